// SPDX-License-Identifier: MIT
// What devdoctor says about the store: each fault is produced and reported.

#include <db.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "db/for_project/StoreGate.h"
#include "tests/db/FailingAssociate.h"
#include "tests/db/Store.h"
#include "tests/devdoctor/Devdoctor.h"
#include "tests/support/Child.h"
#include "tests/support/SmallMedium.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devdoctor_test;
using namespace devsupport::test;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kGateKey = 0x12345677;

class Store : public StoreTest {
 protected:
  CommandResult Look() const { return Devdoctor({"--home", home_}); }
  /// Two records in tb_parameter, and closed in order.
  void MakeClosed() {
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "one", "1"), BERKDB_OK);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "two", "2"), BERKDB_OK);
    BerkDb_Close();
  }
};

/// The gate's record, as processes that have the store open see it.
class GateView {
 public:
  GateView() : address_(::shmat(::shmget(kGateKey, 0, 0), nullptr, 0)) {}
  ~GateView() { ::shmdt(address_); }
  GateView(const GateView &) = delete;
  GateView &operator=(const GateView &) = delete;
  devsupport::store::GateRecord *operator->() const { return static_cast<devsupport::store::GateRecord *>(address_); }

 private:
  void *address_;
};

TEST_F(Store, ThatNobodyOpened_IsWell) {
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("no program has stored anything yet"));
  EXPECT_THAT(result.out, HasSubstr("store: no program has opened it since the system started"));
}

TEST_F(Store, ThatIsOpen_TellsWhoHasIt) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "name", "value"), BERKDB_OK);
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("store: open in devdoctor_Store ("));
  EXPECT_THAT(result.out, HasSubstr("(" + std::to_string(::getpid()) + ")"));
  EXPECT_THAT(result.out, HasSubstr("store gate: of " + home_));
  EXPECT_THAT(result.out, HasSubstr("regions of shared memory"));
}

TEST_F(Store, WhoseProgramWasKilled_SaysThatTheNextOneCleansUp) {
  const Event isOpen;
  Child child([&] {
    Open();
    isOpen.Announce();
    ::pause();
    return 0;
  });
  isOpen.Wait();
  child.Signal(SIGKILL);
  child.Wait();
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store: 1 program ended without closing it"));
}

TEST_F(Store, WhoseOpeningIsStopped_NamesTheHolder) {
  Open();
  const Child child([] {
    const int id = ::semget(kGateKey, 0, 0);
    sembuf take{0, 1, SEM_UNDO};
    ::semop(id, &take, 1);
    ::raise(SIGSTOP);
    return 0;
  });
  const std::string out = Await({"--home", home_}, "is stopped while opening or closing");
  EXPECT_THAT(out, HasSubstr("kill -CONT " + std::to_string(child.Pid())));
}

TEST_F(Store, WhoseFileIsBroken_SaysSo) {
  for (const std::string &text : {std::string("garbage"), std::string(4096, '\0')}) {
    WriteFile(FilePath(), text);
    const CommandResult result = Look();
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, HasSubstr("ERROR: store: the file is not one of tables, or was cut"));
    EXPECT_THAT(result.out, HasSubstr("devconf verify"));
  }
}

TEST_F(Store, WhoseFileWasCut_SaysSo) {
  Open();
  BerkDb_Close();
  EXPECT_EQ(Look().status, 0);
  struct stat status {};
  ASSERT_EQ(::stat(FilePath().c_str(), &status), 0);
  ASSERT_EQ(::truncate(FilePath().c_str(), status.st_size - 100), 0);
  EXPECT_EQ(Look().status, 2);
}

TEST_F(Store, AForeignSegmentAtTheGatesKey_IsNamed) {
  const int id = ::shmget(kGateKey, 64, IPC_CREAT | 0660);
  ASSERT_NE(id, -1);
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("ERROR: store gate: the segment at key 0x12345677 is not ours: 64 bytes"));
  ::shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Store, AScribbledGate_IsNamed) {
  Open();
  void *gate = ::shmat(::shmget(kGateKey, 0, 0), nullptr, 0);
  ASSERT_NE(gate, reinterpret_cast<void *>(-1));
  std::uint32_t before = 0;
  std::memcpy(&before, gate, sizeof before);
  std::memset(gate, 0x55, sizeof before);
  const CommandResult result = Look();
  std::memcpy(gate, &before, sizeof before);
  ::shmdt(gate);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("is no gate of this library, was never finished, or was written over"));
}

TEST_F(Store, OfAnotherHome_SaysSo) {
  Open();
  const TempDir other;
  const CommandResult result = Devdoctor({"--home", other.Path().string()});
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store gate: it belongs to another folder"));
}

// The files of a store.

TEST_F(Store, ThatWasClosedInOrder_HasItsRecordsCounted) {
  MakeClosed();
  const std::string before = devsupport::test::FileText(FilePath());
  CommandResult result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("store: it was closed in order: sealed, and as it was then"));
  EXPECT_THAT(result.out, HasSubstr("store: its reserve is there"));
  EXPECT_THAT(result.out, HasSubstr("tb_parameter: 2 records"));
  EXPECT_THAT(result.out, HasSubstr("tb_route: 0 records"));
  result = Devdoctor({"--home", home_, "--prometheus"});
  EXPECT_THAT(result.out, HasSubstr("devdoctor_records{object=\"tb_parameter\"} 2\n"));
  EXPECT_EQ(devsupport::test::FileText(FilePath()), before);
}

TEST_F(Store, ThatIsOpen_HasItsRecordsLeftAlone) {
  Open();
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("store: its records are not counted while a program has it open"));
  EXPECT_THAT(result.out, Not(HasSubstr("tb_parameter")));
}

TEST_F(Store, ThatWasNotClosed_SaysThatItMustRecover) {
  Child child([&] {
    Open();
    ::raise(SIGKILL);
    return 0;
  });
  child.Wait();
  ::shmctl(::shmget(kGateKey, 0, 0), IPC_RMID, nullptr);  // as after a restart of the system
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store: it was not closed in order"));
}

TEST_F(Store, WhoseFileWasChangedSinceItWasClosed_SaysSo) {
  MakeClosed();
  std::string text = devsupport::test::FileText(FilePath());
  text.back() = static_cast<char>(~text.back());
  devsupport::test::WriteFile(FilePath(), text);
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store: files were changed since the store was closed in order"));
  EXPECT_THAT(result.out, Not(HasSubstr("tb_parameter")));
}

TEST_F(Store, WhoseLogWasCut_NamesTheFile) {
  MakeClosed();
  std::string log;
  for (const auto &entry : std::filesystem::directory_iterator(home_)) {
    if (entry.path().filename().string().starts_with("log.")) log = entry.path().filename().string();
  }
  ASSERT_EQ(::truncate((home_ + "/" + log).c_str(), 100), 0);
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 2) << result.out;
  EXPECT_THAT(result.out, HasSubstr("ERROR: store: the file " + log + " is not as it was"));
}

TEST_F(Store, ThatMayNotBeRead_IsNotJudged) {
  MakeClosed();
  for (const std::string &path : {FilePath(), FilePath() + ".seal", home_}) {
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    Child child([this] {
      // Without these, root has no more rights than other users.
      for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) ::prctl(PR_CAPBSET_DROP, right);
      const CommandResult result = Look();
      EXPECT_EQ(result.status, 2);
      EXPECT_THAT(result.out, HasSubstr("cannot be read: Permission denied"));
      EXPECT_THAT(result.out, Not(HasSubstr("WARNING")));
      EXPECT_THAT(result.out, Not(HasSubstr("stored anything")));
      return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.Wait(), 0) << path;
    ::chmod(path.c_str(), before.st_mode & 07777);
  }
}

// The gate's record.

/// A process that changes a record again and again, and is stopped in the middle of a change.
class StoppedInside {
 public:
  explicit StoppedInside(const std::string &home)
      : child_([&home]() -> int {
          BerkDb_Open(home.c_str(), nullptr, nullptr);
          for (;;) BerkDb_Set(g_uDb.tb_parameter, "name", "value");
        }),
        number_(std::to_string(child_.Pid())) {
    while (::shmget(kGateKey, 0, 0) == -1) ::usleep(1000);
    const GateView gate;
    for (;;) {
      child_.Signal(SIGSTOP);
      ::waitpid(child_.Pid(), nullptr, WUNTRACED);
      if (gate->nInside.load() == child_.Pid()) break;
      child_.Signal(SIGCONT);
      ::usleep(1000);
    }
  }
  const std::string &Number() const { return number_; }
  void Kill() {
    child_.Signal(SIGKILL);
    child_.Wait();
  }

 private:
  Child child_;
  std::string number_;
};

TEST_F(Store, WhoseUserIsStoppedInside_NamesItAndThenItsDeath) {
  StoppedInside user(home_);
  CommandResult result = Look();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out,
              HasSubstr("(" + user.Number() + ") is stopped in the middle of an operation, and all others wait"));
  EXPECT_THAT(result.out, HasSubstr("kill -CONT " + user.Number()));
  user.Kill();
  result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("store gate: process " + user.Number() + " died in the middle of an operation"));
}

// The process that closes next finds the death; the next one that opens the store does the rest.
TEST_F(Store, WhoseUserDiedInsideBeforeTheLastOneClosedIt_SaysThatItsSharedMemoryMustBeMadeAnew) {
  const Event isOpen;
  const Event hasDied;
  Child last([&] {
    Open();
    isOpen.Announce();
    hasDied.Wait();
    BerkDb_Close();
    return 0;
  });
  isOpen.Wait();
  StoppedInside user(home_);
  user.Kill();
  hasDied.Announce();
  ASSERT_EQ(last.Wait(), 0);
  CommandResult result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store: its shared memory must be made anew"));
  Open();
  result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
}

TEST_F(Store, WhoseIndexesCouldNotBeBound_SaysThatTheyMayLackEntries) {
  g_associateFails = true;
  Open();
  g_associateFails = false;
  CommandResult result = Look();
  EXPECT_EQ(result.status, 1) << result.out;
  EXPECT_THAT(result.out, HasSubstr("WARNING: store: an index may lack entries"));
  Reopen();  // compares the indexes with their tables
  result = Look();
  EXPECT_EQ(result.status, 0) << result.out;
}

TEST_F(Store, WithoutRoomForItsReserve_SaysThatChangesAreRefused) {
  if (!SmallMedium::CanMake()) GTEST_SKIP() << "the machine does not let us mount";
  const SmallMedium medium(home_, 4 * 1024 * 1024);
  MakeClosed();
  ASSERT_EQ(::unlink((home_ + "/store.reserve").c_str()), 0);
  medium.LeaveFree(140 * 1024);
  Open();
  const CommandResult result = Look();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("store: it has no reserve"));
  EXPECT_THAT(result.out, HasSubstr("ERROR: store: its reserve is used up: changes are refused until there is room"));
  BerkDb_Close();
}

TEST_F(Store, OnAFullDisk_SaysSo) {
  if (!SmallMedium::CanMake()) GTEST_SKIP() << "the machine does not let us mount";
  const SmallMedium medium(home_, 4 * 1024 * 1024);
  EXPECT_EQ(Look().status, 0);
  medium.LeaveFree(500 * 1024);
  CommandResult result = Look();
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("soon changes fail"));
  medium.LeaveFree(16 * 1024);
  result = Look();
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, HasSubstr("ERROR: store: only "));
  EXPECT_THAT(result.out, HasSubstr("changes are refused"));
}

}  // namespace
