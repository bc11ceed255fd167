// SPDX-License-Identifier: MIT
// Reading a closed store and a copied file: nothing is changed, and the right to read is enough.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>

#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"
#include "tools/devconf/Seal.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;
using ::testing::HasSubstr;
using ::testing::Not;

class Closed : public DevconfTest {
 protected:
  void Fill() {
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "1"), 0);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), 0);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "101a", "r"), 0);
    for (const char *key : {"a", "b"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key, "1"), 0);
    BerkDb_Close();
  }

  std::vector<Words> ReadingCommands() const {
    return {{"get", "a"},
            {"list"},
            {"list", "tb_dm"},
            {"list", "stb_1_pb"},
            {"tables"},
            {"find", "stb_route", "1"},
            {"pb", "find", "26"},
            {"pb", "number", "123"},
            {"export"},
            {"get", "none"},
            {"diff", home_ + "/file.jsonl"}};
  }

  /// A file's content and the time of its last change.
  std::map<std::string, std::string> Files() const {
    std::map<std::string, std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(home_)) {
      struct stat status = {};
      EXPECT_EQ(::stat(entry.path().c_str(), &status), 0);
      files[entry.path()] = FileText(entry.path()) + std::to_string(status.st_mtim.tv_sec) + "." +
                            std::to_string(status.st_mtim.tv_nsec) + " " + std::to_string(status.st_ino);
    }
    return files;
  }
};

TEST_F(Closed, Store_IsReadAsAnOpenOne) {
  Fill();
  File("{\"table\":\"tb_parameter\",\"key\":\"new\",\"value\":\"1\"}\n");
  std::vector<CommandResult> closed;
  for (const Words &words : ReadingCommands()) closed.push_back(Run(words));
  Open();
  for (std::size_t i = 0; i < closed.size(); ++i) {
    const CommandResult open = Run(ReadingCommands()[i]);
    EXPECT_EQ(closed[i].status, open.status) << ReadingCommands()[i][0];
    EXPECT_EQ(closed[i].out, open.out);
    EXPECT_EQ(closed[i].err, open.err);
  }
  EXPECT_EQ(closed[0].out, "1");
}

TEST_F(Closed, Store_IsReadWithoutATrace) {
  Fill();
  File("");
  const auto before = Files();
  for (const Words &words : ReadingCommands()) {
    TempDir folder;
    Words all{"strace", "-f", "-o", folder / "calls", DEVCONF_PATH, "--home", home_};
    all.insert(all.end(), words.begin(), words.end());
    const CommandResult result = Command(all).Environment("ASAN_OPTIONS", "detect_leaks=0").Run();
    ASSERT_LE(result.status, 1) << result.err;
    for (const std::string &line : Lines(FileText(folder / "calls"))) {
      const std::string call = line.substr(std::min(line.find(' ') + 1, line.size()));
      if (call.starts_with("write(1,") || call.starts_with("write(2,")) continue;
      for (const char *change : {"write(", "pwrite", "writev(", "fsync(", "fdatasync(", "ftruncate", "unlink",
                                 "rename", "mkdir", "creat(", "shmget(", "semget(", "semop("}) {
        EXPECT_FALSE(call.starts_with(change)) << words[0] << ": " << call;
      }
      if (call.find("\"" + home_) == std::string::npos && call.find("config.db") == std::string::npos) continue;
      EXPECT_THAT(call, Not(HasSubstr("O_CREAT")));
      EXPECT_THAT(call, Not(HasSubstr("O_RDWR")));
      EXPECT_THAT(call, Not(HasSubstr("O_WRONLY")));
    }
  }
  EXPECT_EQ(Files(), before);
}

TEST_F(Closed, Store_OnAMediumThatCannotBeWritten_IsRead) {
  Fill();
  const std::string script =
      "mount --bind \"$1\" \"$1\" && mount -o remount,ro,bind \"$1\" && ! touch \"$1/x\" 2>&- && "
      "\"$0\" --home \"$1\" get a && \"$0\" --home \"$1\" verify";
  const CommandResult result = Command({"unshare", "-m", "sh", "-c", script, DEVCONF_PATH, home_}).Run();
  if (result.err.find("mount") != std::string::npos) GTEST_SKIP() << "the machine does not let us mount";
  EXPECT_EQ(result.out, "1clean\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Closed, Store_WithTheRightToReadOnly_IsRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody without rights";
  Fill();
  for (const auto &entry : std::filesystem::directory_iterator(home_))
    ASSERT_EQ(::chmod(entry.path().c_str(), 0444), 0);
  ASSERT_EQ(::chmod(home_.c_str(), 0555), 0);
  TempDir folder;
  ASSERT_EQ(::chmod(folder.Path().c_str(), 0755), 0);
  std::filesystem::copy(DEVCONF_PATH, folder / "devconf");
  const auto run = [&](const char *command, const char *word) {
    return Command({"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", folder / "devconf", "--home",
                    home_, command, word})
        .Run();
  };
  EXPECT_EQ(run("get", "a"), (CommandResult{0, "1", ""}));
  EXPECT_EQ(run("find", "tb_pb").status, 2);
  EXPECT_NE(run("del", "a").status, 0);
  ASSERT_EQ(::chmod(home_.c_str(), 0700), 0);
  EXPECT_EQ(Print({"get", "a"}), "1");
}

TEST_F(Closed, Store_ThatIsOpenedMeanwhile_IsNoticed) {
  Fill();
  devconf::Options options;
  options.home = home_.c_str();
  const devconf::Seal seal(options);
  EXPECT_EQ(seal.Found(), devconf::Seal::State::Fits);
  EXPECT_TRUE(seal.IsStillThere());
  Open();
  EXPECT_FALSE(seal.IsStillThere());
  const devconf::Seal open(options);
  EXPECT_EQ(open.Found(), devconf::Seal::State::None);
  BerkDb_Close();
  EXPECT_FALSE(seal.IsStillThere()) << "there is another seal by now";
  const devconf::Seal closed(options);
  EXPECT_EQ(closed.Found(), devconf::Seal::State::Fits);
}

TEST_F(Closed, Store_ReadWhileOthersOpenAndChangeAndCloseIt_GivesWhatWasThere) {
  Fill();
  Event enough;
  Child writer([&] {
    for (int i = 0; !enough.TryWait(); ++i) {
      Open();
      const std::string value(static_cast<std::size_t>(1 + i % 500), static_cast<char>('a' + i % 26));
      if (BerkDb_Set(g_uDb.tb_parameter, "a", value.c_str()) != 0) return 1;
      if (BerkDb_Set(g_uDb.tb_parameter, "b", value.c_str()) != 0) return 1;
      BerkDb_Close();
    }
    return 0;
  });
  for (int i = 0; i < 50; ++i) {
    const CommandResult result = Run({"get", "a"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_FALSE(result.out.empty());
    EXPECT_EQ(result.out.find_first_not_of(result.out.front()), std::string::npos) << result.out;
  }
  enough.Announce();
  EXPECT_EQ(writer.Wait(), 0);
}

TEST_F(Closed, Store_WhoseLastUserWasKilled_IsRecoveredFirst) {
  Fill();
  Child victim([this] {
    Open();
    if (BerkDb_Set(g_uDb.tb_parameter, "late", "1") != 0) return 1;
    ::raise(SIGKILL);
    return 1;
  });
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  EXPECT_EQ(Print({"get", "late"}), "1");
}

// Copied files.

class Offline : public Closed {};

TEST_F(Offline, ACopyWithoutItsLog_IsRead) {
  Fill();
  TempDir folder;
  const std::string copy = folder / "config.db";
  std::filesystem::copy(FilePath(), copy);
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "changed since"), 0);
  EXPECT_EQ(Print({"--offline", copy, "get", "a"}), "1");
  EXPECT_EQ(Print({"--offline", copy, "list", "tb_dm"}), "b\t1\na\t1\n");
  EXPECT_EQ(Print({"--offline", copy, "pb", "find", "262"}), "26201\tBob 1\t123;x\n");
  EXPECT_EQ(Print({"--offline", copy, "verify"}), "clean\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

TEST_F(Offline, AFileThatIsNotThere_Is3) {
  const CommandResult result = Run({"--offline", home_ + "/none", "list"});
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.err, "devconf: no database (devconf init makes one) \"" + home_ + "/none\"\n");
}

TEST_F(Offline, GarbageAndDamage_Are6InAFewLines) {
  Fill();
  const std::string good = FileText(FilePath());
  const std::string path = home_ + "/copy.db";
  std::string zeroed = good;
  for (std::size_t page = 3; page < 8; ++page) zeroed.replace(page * 2048, 2048, std::string(2048, '\0'));
  for (const std::string &text : {std::string(10000, 'x'), std::string(100, 'x'), std::string(), zeroed}) {
    WriteFile(path, text);
    for (const char *command : {"tables", "export", "verify"}) {
      const CommandResult result = Run({"--offline", path, command});
      EXPECT_EQ(result.status, kDamaged) << command << text.size();
      EXPECT_EQ(result.out, "");
      EXPECT_LE(Lines(result.err).size(), 10U) << result.err;
    }
    EXPECT_EQ(FileText(path), text);
  }
}

}  // namespace
