// SPDX-License-Identifier: MIT
// watch: it prints the changes of the store by any process.

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>

#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;

/// A running devconf watch.
class Watching {
 public:
  Watching(const std::string &home, const Words &words) : program_([&] { return Become(home, words); }) {
    ::close(ends_[1]);
  }
  ~Watching() { ::close(ends_[0]); }
  Watching(const Watching &) = delete;
  Watching &operator=(const Watching &) = delete;

  /// Waits for the next line.
  std::string Line() {
    std::string line;
    for (char c = '\0'; ::read(ends_[0], &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }

  /// The rest, after the end.
  int End(int signal) {
    program_.Signal(signal);
    return program_.Wait();
  }

 private:
  int Become(const std::string &home, const Words &words) const {
    ::dup2(ends_[1], STDOUT_FILENO);
    std::vector<const char *> args{DEVCONF_PATH, "--home", home.c_str(), "watch"};
    for (const std::string &word : words) args.push_back(word.c_str());
    args.push_back(nullptr);
    return ::execv(DEVCONF_PATH, const_cast<char *const *>(args.data()));
  }

  struct Pipe {
    Pipe() { EXPECT_EQ(::pipe(ends), 0); }
    int ends[2] = {-1, -1};
    int operator[](int i) const { return ends[i]; }
  } ends_;
  Child program_;
};

class Watch : public DevconfTest {
 protected:
  /// Changes a record until the program prints that. From then on it prints all changes.
  void WaitUntilItWatches(Watching &watching, const std::string &table, const std::string &begin) {
    Event seen;
    Child knocker([&] {
      Open();
      for (int i = 0; !seen.TryWait(); ++i) {
        for (const TDbTbl &row : g_auDbTbl) {
          if (table == row.pName && BerkDb_Set(*row.ppDb, "knock", std::to_string(i).c_str()) != 0) return 1;
        }
        ::usleep(10000);
      }
      BerkDb_Close();
      return 0;
    });
    EXPECT_THAT(watching.Line(), ::testing::StartsWith(begin));
    seen.Announce();
    EXPECT_EQ(knocker.Wait(), 0);
  }

  /// The next line that is not about this record.
  static std::string NextLine(Watching &watching) {
    std::string line;
    do {
      line = watching.Line();
    } while (line.find("knock") != std::string::npos);
    return line;
  }
};

TEST_F(Watch, OfAllTables_PrintsEveryChangeAsALineForBatch) {
  Init();
  Print({"set", "old", "1"});
  Watching watching(home_, {});
  WaitUntilItWatches(watching, "tb_line", "set --table tb_line \"knock\" ");
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "1"), 0);
  EXPECT_EQ(NextLine(watching), "set --table tb_parameter \"a\" \"1\"");
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "line\n\"2\""), 0);
  EXPECT_EQ(NextLine(watching), "set --table tb_parameter \"a\" \"line\\n\\\"2\\\"\"");
  Print({"del", "old"});
  EXPECT_EQ(NextLine(watching), "del --table tb_parameter \"old\"");
  Print({"pb", "set", "Bob 1", "123"});
  EXPECT_EQ(NextLine(watching), "set --table tb_pb \"Bob 1\" \"123\"");
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "b", "1"), 0);
  EXPECT_EQ(NextLine(watching), "set --table tb_dm \"b\" \"1\"");
  EXPECT_EQ(watching.End(SIGTERM), 1000 + SIGTERM);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "still works"), 0);
}

TEST_F(Watch, OfOneTable_WithAPrefixAndAsJson) {
  Init();
  Watching watching(home_, {"--json", "tb_route", "k"});
  WaitUntilItWatches(watching, "tb_route", "{\"change\":\"set\",\"table\":\"tb_route\",\"key\":\"knock\",\"value\":");
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, "k1", "1"), 0);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "other", "1"), 0);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "k1", "1"), 0);
  EXPECT_EQ(NextLine(watching), R"({"change":"set","table":"tb_route","key":"k1","value":"1"})");
  ASSERT_EQ(BerkDb_Del(g_uDb.tb_route, "k1"), 0);
  EXPECT_EQ(NextLine(watching), R"({"change":"del","table":"tb_route","key":"k1"})");
  EXPECT_EQ(watching.End(SIGINT), 1000 + SIGINT);
}

TEST_F(Watch, ContinuesWhenAnotherProcessIsKilled) {
  Init();
  Watching watching(home_, {"tb_parameter"});
  WaitUntilItWatches(watching, "tb_parameter", "set --table tb_parameter \"knock\" ");
  Child victim([this] {
    Open();
    for (int i = 0;; ++i) BerkDb_Set(g_uDb.tb_line, "x", std::to_string(i).c_str());
    return 0;
  });
  ::usleep(20000);
  victim.Signal(SIGKILL);
  victim.Wait();
  Print({"set", "after", "1"});
  EXPECT_EQ(NextLine(watching), "set --table tb_parameter \"after\" \"1\"");
  EXPECT_EQ(watching.End(SIGTERM), 1000 + SIGTERM);
}

TEST_F(Watch, OfAnIndexOrAnUnknownTable_Is2_WithoutADatabase3) {
  EXPECT_EQ(Run({"watch", "stb_pb"}).status, kMistake);
  EXPECT_EQ(Run({"watch", "tb_x"}).status, kMistake);
  EXPECT_EQ(Run({"watch"}).status, kNoDatabase);
}

}  // namespace
