// SPDX-License-Identifier: MIT
// The real devconf: its command line, its output, and a store that is missing, damaged or in use.

#include <gmock/gmock.h>

#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "db/for_project/StoreGate.h"
#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Shell : public DevconfTest {};

// The program itself.

TEST_F(Shell, Help_GoesToStandardOutput) {
  const std::string help = Print({"--help"});
  EXPECT_THAT(help, StartsWith("Usage: devconf [OPTIONS] COMMAND\n"));
  EXPECT_THAT(help, HasSubstr("Exit status: 0 done;"));
}

TEST_F(Shell, Version_IsOneLine) { EXPECT_THAT(Print({"--version"}), ::testing::MatchesRegex("devconf [0-9.]+\n")); }

TEST_F(Shell, AWrongCommandLine_Is2WithAMessage) {
  Expect({"put"}, kMistake, "", "devconf: unknown command \"put\"\ndevconf --help lists the commands.\n");
  Expect({"set", "a"}, kMistake, "", "devconf: missing argument after \"set\"\ndevconf --help lists the commands.\n");
}

TEST_F(Shell, AnUnknownTable_Is2AndOpensNothing) {
  for (const char *command : {"list", "export"}) {
    Expect({command, "tb_x\x1b"}, kMistake, "", "devconf: unknown table \"tb_x\\x1b\"\n");
  }
  Expect({"find", "tb_x", ""}, kMistake, "", "devconf: unknown table \"tb_x\"\n");
  EXPECT_TRUE(std::filesystem::is_empty(home_));
}

TEST_F(Shell, OutputThatCannotBeWritten_Is4WithAMessage) {
  Init();
  const CommandResult result = Devconf({"tables"}).OutputTo("/dev/full").Run();
  EXPECT_EQ(result.status, kFailed);
  EXPECT_EQ(result.err, "devconf: standard output: No space left on device\n");
}

TEST_F(Shell, WithoutAStandardOutput_Is4AndPrintsNothingIntoTheDatabase) {
  Init();
  Print({"set", "a", "1"});
  const CommandResult result = Devconf({"list"}).CloseOutput().Run();
  EXPECT_EQ(result.status, kFailed);
  EXPECT_EQ(result.err, "devconf: standard output: Bad file descriptor\n");
  EXPECT_EQ(Print({"verify"}), "clean\n");
  EXPECT_EQ(Print({"list"}), "a\t1\n");
}

// No database.

TEST_F(Shell, WithoutADatabase_EveryCommandIs3AndMakesNothing) {
  const std::string message = "devconf: no database (devconf init makes one) \"" + FilePath() + "\"\n";
  TempDir elsewhere;
  const std::string file = elsewhere / "import";
  WriteFile(file, "{\"table\":\"tb_line\"}\n");
  const std::vector<Words> commands = {{"get", "a"},        {"set", "a", "b"},
                                       {"del", "a"},        {"list"},
                                       {"tables"},          {"find", "tb_pb", ""},
                                       {"pb", "find", "1"}, {"pb", "add", "a", "b"},
                                       {"export"},          {"verify"},
                                       {"import", file},    {"pb", "number", "1"}};
  for (const Words &words : commands) {
    Expect(words, kNoDatabase, "", message);
    EXPECT_TRUE(std::filesystem::is_empty(home_)) << words[0];
  }
}

TEST_F(Shell, AHomeThatIsNotThere_Is3AndMakesNothing) {
  const CommandResult result = Command({DEVCONF_PATH, "--home", home_ + "/none", "tables"}).Run();
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.err, "devconf: no database (devconf init makes one) \"" + home_ + "/none/config.db\"\n");
  EXPECT_TRUE(std::filesystem::is_empty(home_));
}

TEST_F(Shell, AFileThatIsNoDatabase_Is3AndStaysAsItIs) {
  const std::string text(10000, 'x');
  WriteFile(FilePath(), text);
  const CommandResult result = Run({"tables"});
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, EndsWith("devconf: a table cannot be opened \"" + FilePath() + "\"\n"));
  EXPECT_EQ(FileText(FilePath()), text);
}

TEST_F(Shell, Init_MakesHomeAndDatabase) {
  const std::string home = home_ + "/new";
  const CommandResult result = Command({DEVCONF_PATH, "--home", home, "init"}).Run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_TRUE(std::filesystem::exists(home + "/config.db"));
}

TEST_F(Shell, Init_OfADatabaseThatIsThere_ChangesNothing) {
  Init();
  Print({"set", "a", "1"});
  Init();
  EXPECT_EQ(Print({"get", "a"}), "1");
}

TEST_F(Shell, Init_WhereNoFolderCanBeMade_Is3WithAMessage) {
  const CommandResult result = Command({DEVCONF_PATH, "--home", home_ + "/no/folder", "init"}).Run();
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.err, "devconf: No such file or directory \"" + home_ + "/no/folder\"\n");
}

TEST_F(Shell, AnotherFile_IsAnotherDatabase) {
  EXPECT_EQ(Print({"--file", "other.db", "init"}), "");
  EXPECT_TRUE(std::filesystem::exists(home_ + "/other.db"));
  EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

// While other processes use the store.

TEST_F(Shell, WhileAProcessHasTheStoreOpen_SharesItsData) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "1"), 0);
  EXPECT_EQ(Print({"get", "a"}), "1");
  EXPECT_EQ(Print({"set", "a", "2"}), "");
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "2");
}

TEST_F(Shell, AnotherHomeWhileOneIsInUse_Is3AndHarmsNeither) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "1"), 0);
  TempDir other;
  std::filesystem::copy(FilePath(), other / "config.db");
  const std::string before = FileText(other / "config.db");
  const CommandResult result = Command({DEVCONF_PATH, "--home", other.Path(), "set", "a", "2"}).Run();
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_THAT(result.err, HasSubstr("devconf: the environment cannot be opened"));
  EXPECT_EQ(FileText(other / "config.db"), before);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "1");
}

TEST_F(Shell, TwoAtOnce_StoreEverything) {
  Init();
  std::vector<Child> writers;
  for (const std::string name : {"a", "b"}) {
    writers.emplace_back([this, name] {
      for (int i = 0; i < 10; ++i) {
        if (Run({"set", name + std::to_string(i), "1"}).status != 0) return 1;
        if (Run({"pb", "add", name + std::to_string(i), "1"}).status != 0) return 2;
      }
      return 0;
    });
  }
  for (Child &writer : writers) EXPECT_EQ(writer.Wait(), 0);
  EXPECT_EQ(Lines(Print({"list"})).size(), 20U);
  EXPECT_EQ(Lines(Print({"list", "stb_1_pb"})).size(), 20U);
  ExpectSoundFile();
}

TEST_F(Shell, WithAReaderThatEnds_EndsAndLeavesTheStoreInOrder) {
  Open();
  const std::string value(3000, 'v');
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, std::to_string(i).c_str(), value.data(), 3000), 0);
  }
  const CommandResult result =
      Command({"bash", "-c", "\"$0\" --home \"$1\" export | head -n 1; echo ${PIPESTATUS[0]}", DEVCONF_PATH, home_})
          .Run();
  EXPECT_EQ(result.out, "{\"table\":\"tb_parameter\"}\n" + std::to_string(128 + SIGPIPE) + "\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_line, "0", "still works"), 0);
}

TEST_F(Shell, ThatIsInterrupted_EndsBetweenTwoRecordsAndLeavesTheStoreInOrder) {
  Open();
  const std::string value(3000, 'v');
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, std::to_string(i).c_str(), value.data(), 3000), 0);
  }
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  Child program([&] {
    ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[0]);
    ::close(ends[1]);
    return ::execl(DEVCONF_PATH, DEVCONF_PATH, "--home", home_.c_str(), "export", nullptr);
  });
  ::close(ends[1]);
  // The store is open while the first records are printed. Most of the output does not fit into the pipe.
  char buffer[4096];
  ssize_t got = ::read(ends[0], buffer, 1);
  ASSERT_EQ(got, 1);
  program.Signal(SIGINT);
  std::size_t all = 1;
  while ((got = ::read(ends[0], buffer, sizeof buffer)) > 0) all += static_cast<std::size_t>(got);
  ::close(ends[0]);
  EXPECT_EQ(program.Wait(), 1000 + SIGINT);
  EXPECT_LT(all, 100U * 3000U);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_line, "0", "still works"), 0);
}

TEST_F(Shell, WhenAProcessDiedInsideTheStore_HealsIt) {
  Init();
  Print({"set", "a", "1"});
  Event opened;
  Event done;
  Child survivor([&] {
    Open();
    opened.Announce();
    done.Wait();
    return 0;
  });
  opened.Wait();
  Child victim([this] {
    Open();
    devsupport::store::Deadline deadline;
    if (devsupport::store::g_gate.Enter(deadline) != 0) return 1;
    ::raise(SIGKILL);
    return 1;
  });
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  EXPECT_EQ(Print({"get", "a"}), "1") << "opening heals the store";
  done.Announce();
  EXPECT_EQ(survivor.Wait(), 0);
  EXPECT_EQ(Print({"get", "a"}), "1");
}

}  // namespace
