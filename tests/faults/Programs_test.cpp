// SPDX-License-Identifier: MIT
// The programs while their calls fail: each ends, either with its usual output or with an error status, and leaves
// everything usable.
#include <devsupport/logmgr/LogInfoShm.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <filesystem>
#include <functional>
#include <new>
#include <ostream>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/db/Store.h"
#include "tests/faults/Sweep.h"
#include "tests/support/Command.h"
#include "tests/support/Tally.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;
using Words = std::vector<std::string>;

/// A program's command line, in a folder with a store, with both log rings there.
struct Session {
  const char *name;
  Words words;
  std::string input = "";
  /// Checks the state afterwards, without faults: for a program that has ended well, and for one that has not.
  std::function<void(bool ended)> check = [](bool) {};
  /// Whether this output and status are right when a call has failed. Those of a run without a fault always are.
  std::function<bool(const CommandResult &)> mayEnd = [](const CommandResult &result) { return result.status != 0; };
};

std::ostream &operator<<(std::ostream &stream, const Session &session) { return stream << session.name; }

CommandResult RunUndisturbed(Words words, const std::string &input = "") {
  WriteFile("input", input);
  return Command(std::move(words)).InputFrom("input").Run();
}

CommandResult Devconf(Words words) {
  words.insert(words.begin(), {DEVCONF_PATH, "--home", "."});
  return RunUndisturbed(words);
}

std::function<void(bool)> Holds(const std::string &name, const std::string &before, const std::string &after) {
  return [=](bool ended) {
    const CommandResult got = Devconf({"get", name});
    EXPECT_TRUE(got.out == after || (!ended && got.out == before)) << got.out << got.err;
  };
}

constexpr char kExport[] = R"({"table":"tb_tone","key":"new","value":"imported"})"
                           "\n";

// A ring that cannot be found counts as missing.
bool IsAnswerOfDevlog(const CommandResult &result) {
  return result.status != 0 || result.err.find("there is no ") != std::string::npos;
}

// Errors of the driver or of standard output do not change cpld's exit status.
bool IsAnswerOfCpld(const CommandResult &result) {
  return result.status != 0 || result.out.empty() || result.out == "ch=1, reg23, data=0x0 value=0xffffffff\n";
}

// devdoctor leaves out processes that it may not read.
bool IsReport(const CommandResult &result) { return result.status != 0 || !result.out.empty(); }

void NothingToSee(bool /*ended*/) {}

const Session kSessions[] = {
    {"devconf_get", {DEVCONF_PATH, "--home", ".", "get", "number"}},
    {"devconf_set", {DEVCONF_PATH, "--home", ".", "set", "number", "48"}, "", Holds("number", "47", "48")},
    {"devconf_set_input", {DEVCONF_PATH, "--home", ".", "set", "number", "-"}, "48", Holds("number", "47", "48")},
    {"devconf_del", {DEVCONF_PATH, "--home", ".", "del", "number"}, "", Holds("number", "47", "")},
    {"devconf_list", {DEVCONF_PATH, "--home", ".", "list", "tb_parameter"}},
    {"devconf_find", {DEVCONF_PATH, "--home", ".", "pb", "find", "2"}},
    {"devconf_tables", {DEVCONF_PATH, "--home", ".", "tables"}},
    {"devconf_export", {DEVCONF_PATH, "--home", ".", "export"}},
    {"devconf_import", {DEVCONF_PATH, "--home", ".", "import", "-"}, kExport},
    {"devconf_diff", {DEVCONF_PATH, "--home", ".", "diff", "-"}, kExport},
    {"devconf_batch",
     {DEVCONF_PATH, "--home", ".", "batch"},
     "set number 48\nset other x\n",
     Holds("number", "47", "48")},
    {"devconf_verify", {DEVCONF_PATH, "--home", ".", "verify"}},
    {"devconf_salvage", {DEVCONF_PATH, "--home", ".", "salvage"}},
    {"devconf_offline", {DEVCONF_PATH, "--offline", "config.db", "list"}},
    {"devlog", {DEVLOG_PATH}, "", NothingToSee, IsAnswerOfDevlog},
    {"devlog_json", {DEVLOG_PATH, "--json", "-e", "t", "--names", "names"}, "", NothingToSee, IsAnswerOfDevlog},
    {"devlog_stats", {DEVLOG_PATH, "--stats"}, "", NothingToSee, IsAnswerOfDevlog},
    {"devlog_consume", {DEVLOG_PATH, "--consume"}, "", NothingToSee, IsAnswerOfDevlog},
    {"devlog_cursor", {DEVLOG_PATH, "--cursor", "cursor"}, "", NothingToSee, IsAnswerOfDevlog},
    {"devlog_write", {DEVLOG_PATH, "write", "-t", "3", "written"}},
    {"devlog_write_lines", {DEVLOG_PATH, "write", "-"}, "line 1\nline 2\n"},
    {"devdoctor", {DEVDOCTOR_PATH, "--home", "."}, "", NothingToSee, IsReport},
    {"devdoctor_json", {DEVDOCTOR_PATH, "--home", ".", "--json"}, "", NothingToSee, IsReport},
    {"devdoctor_prometheus", {DEVDOCTOR_PATH, "--home", ".", "--prometheus"}, "", NothingToSee, IsReport},
    {"cpld", {CPLD_PATH, "0", "1", "23"}, "", NothingToSee, IsAnswerOfCpld},
    {"cpld_usage", {CPLD_PATH}, "", NothingToSee, IsAnswerOfCpld},
    {"cpld_simulated", {ANALOGSIM_PATH, "--", CPLD_PATH, "0", "1", "23"}, "", NothingToSee, IsAnswerOfCpld},
    {"analogsim_state", {ANALOGSIM_PATH, "--state", "state", "--", "true"}},
};

/// A plan in a file that a program can open.
class PlanFile {
 public:
  PlanFile() : fd_(::memfd_create("plan", 0)) {
    if (::ftruncate(fd_, sizeof(FaultPlan)) != 0) throw std::runtime_error("cannot make a plan");
    plan_ = new (::mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0)) FaultPlan{};
  }
  ~PlanFile() {
    ::munmap(plan_, sizeof(FaultPlan));
    ::close(fd_);
  }
  PlanFile(const PlanFile &) = delete;
  PlanFile &operator=(const PlanFile &) = delete;

  FaultPlan &operator*() const { return *plan_; }
  FaultPlan *operator->() const { return plan_; }
  std::string Path() const { return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(fd_); }

 private:
  int fd_;
  FaultPlan *plan_;
};

/// Runs a program whose calls fail as planned.
CommandResult RunFailing(FaultPlan &plan, const std::string &planPath, const Session &session) {
  WriteFile("input", session.input);
  const int status = FailingCalls(plan).Run([&] {
    for (const auto &[path, fd, flags] : {std::tuple{"input", STDIN_FILENO, O_RDONLY},
                                          {"out", STDOUT_FILENO, O_CREAT | O_TRUNC | O_WRONLY},
                                          {"err", STDERR_FILENO, O_CREAT | O_TRUNC | O_WRONLY}})
      ::dup2(::open(path, flags | O_CLOEXEC, 0600), fd);
    ::setenv("LD_PRELOAD", PRELOAD_PATH, 1);
    ::setenv("DEVSUPPORT_FAULT_PLAN", planPath.c_str(), 1);
    std::vector<char *> words;
    for (const std::string &word : session.words) words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    ::execvp(words[0], words.data());
    return 126;
  });
  plan.armed = false;
  return {status, FileText("out"), FileText("err")};
}

class Programs : public StoreTest, public testing::WithParamInterface<Session> {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    if (!FailingCalls::AreAvailable()) GTEST_SKIP() << "the kernel does not let us answer a child's system calls";
    ASSERT_EQ(::setenv("TZ", "UTC", 1), 0);
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "number", "47"), BERKDB_OK);
    BerkDb_Close();
    WriteFile(home_ + "/names", "type 3 sip\n");
  }

  void TearDown() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(Place());
    StoreTest::TearDown();
  }

  /// Runs the program in a home and an IPC namespace of its own, calls the test's checks, and cleans up.
  void InAPlaceOfItsOwn(PlanFile &plan, const std::function<void(const CommandResult &)> &look) const {
    ASSERT_EQ(::unshare(CLONE_NEWIPC), 0);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(Place());
    std::filesystem::copy(home_, Place());
    std::filesystem::current_path(Place());
    ASSERT_EQ(TLogInfoShm_Open(3, ~0U, "test"), 1);
    TLogInfoShm_Write("text", 3, 0);
    look(RunFailing(*plan, plan.Path(), GetParam()));
    TLogInfoShm_Close();
  }

  std::string Place() const { return home_ + "-copy"; }
};

/// Removes what differs between runs: times, process numbers.
std::string WithoutNumbers(const std::string &text) {
  static const std::regex s_number("[0-9]+");
  return std::regex_replace(text, s_number, "#");
}

void ExpectRightEnd(const Session &session, const FaultPlan &plan, const CommandResult &result,
                    const CommandResult &usual) {
  const std::string said = "status " + std::to_string(result.status) + "\n" + result.out + result.err;
  EXPECT_NE(result.status, FailingCalls::kHung) << said;
  // GLib's report of missing memory calls itself, until the stack is used up or a trap ends it.
  const bool isGLib = session.words[0] == ANALOGSIM_PATH && plan.kind == CallKind::Memory &&
                      (result.status == 1000 + SIGTRAP || result.status == 1000 + SIGSEGV);
  EXPECT_TRUE(result.status < 1000 || isGLib) << "ended by a signal: " << said;
  const bool asUsual = result.status == usual.status && WithoutNumbers(result.out) == WithoutNumbers(usual.out);
  EXPECT_TRUE(asUsual || session.mayEnd(result)) << said;
}

TEST_P(Programs, EachCall_FailsInTurn) {
  const TestSeed seed;
  PlanFile plan;
  for (const FaultKind &kind : AllKinds()) {
    CommandResult usual;
    MakePlan(*plan, kind, INT_MAX);
    InAPlaceOfItsOwn(plan, [&](const CommandResult &result) { usual = result; });
    ASSERT_LT(usual.status, 2) << usual.err;
    const int calls = plan->met;
    const int stride = StrideOf(calls, 1);
    for (int nth = FirstOf(stride, seed); nth <= calls; nth += stride) {
      MakePlan(*plan, kind, nth);
      InAPlaceOfItsOwn(plan, [&](const CommandResult &result) {
        ExpectRightEnd(GetParam(), *plan, result, usual);
        GetParam().check(result.status == usual.status);
        const CommandResult again = RunUndisturbed(GetParam().words, GetParam().input);
        EXPECT_LT(again.status, 2) << "afterwards: " << again.out << again.err;
      });
      if (plan->failed != 0) Tally("call");
      ASSERT_FALSE(HasFailure()) << Describe(*plan);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, Programs, testing::ValuesIn(kSessions),
                         [](const auto &session) { return std::string(session.param.name); });

}  // namespace
