// SPDX-License-Identifier: MIT
// The state file: it is kept, shared, and replaced in one step. A damaged one is never replaced.

#include "tools/analogsim/Store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

using namespace analogsim;
using namespace devsupport::test;

class StateFile : public ::testing::Test {
 protected:
  static void Put(Store &store, std::int32_t number, std::int32_t value) {
    store.Update([&](Registers &registers) { registers.channels[0].direct[number] = value; });
  }
  static std::int32_t Get(Store &store, std::int32_t number) {
    std::int32_t value = -4711;
    store.Update([&](const Registers &registers) {
      const auto channel = registers.channels.find(0);
      value = channel == registers.channels.end() ? 0 : channel->second.direct.at(number);
    });
    return value;
  }
  static ino_t Inode(const std::filesystem::path &file) {
    struct stat about {};
    EXPECT_EQ(::stat(file.c_str(), &about), 0);
    return about.st_ino;
  }

  TempDir dir_;
  std::filesystem::path file_ = dir_ / "state.json";
};

TEST_F(StateFile, ThatIsMissing_MeansNoRegistersAndIsNotMadeByReading) {
  FileStore store(file_);
  store.Update([](const Registers &registers) { EXPECT_EQ(registers, Registers{}); });
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(StateFile, InAFolderThatIsMissing_MakesTheFolder) {
  FileStore store(dir_ / "a/b/state.json");
  Put(store, 1, 2);
  EXPECT_TRUE(std::filesystem::exists(dir_ / "a/b/state.json"));
}

TEST_F(StateFile, KeepsRegistersForTheNextSession) {
  {
    FileStore store(file_);
    Put(store, 23, 48);
  }
  FileStore next(file_);
  EXPECT_EQ(Get(next, 23), 48);
}

TEST_F(StateFile, IsReplacedAndNotRewritten) {
  FileStore store(file_);
  Put(store, 1, 1);
  std::filesystem::create_hard_link(file_, dir_ / "old");
  Put(store, 1, 2);
  EXPECT_NE(Inode(file_), Inode(dir_ / "old"));
  EXPECT_NE(FileText(file_), FileText(dir_ / "old"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "state.json.new"));
}

TEST_F(StateFile, StaysTheSameFileWhenNothingChanges) {
  FileStore store(file_);
  Put(store, 1, 1);
  const ino_t before = Inode(file_);
  Get(store, 1);
  Put(store, 1, 1);
  EXPECT_EQ(Inode(file_), before);
}

TEST_F(StateFile, AfterASymbolicLink_IsReplacedInItsFolder) {
  std::filesystem::create_directory(dir_ / "real");
  std::filesystem::create_symlink("real/state.json", file_);
  WriteFile(dir_ / "real/state.json", "{\"version\":1,\"debug\":false,\"channels\":{}}");
  FileStore store(file_);
  Put(store, 1, 2);
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
  FileStore direct(dir_ / "real/state.json");
  EXPECT_EQ(Get(direct, 1), 2);
}

TEST_F(StateFile, ThatIsDamaged_IsAnErrorThatNamesItAndStaysAsItIs) {
  WriteFile(file_, "{\"version\": 1,");
  try {
    const FileStore store(file_);
    FAIL() << "was taken";
  } catch (const std::runtime_error &error) {
    const std::string text = error.what();
    EXPECT_TRUE(text.starts_with(file_.string() + " is damaged and was left as it is: ")) << text;
  }
  EXPECT_EQ(FileText(file_), "{\"version\": 1,");
}

TEST_F(StateFile, DamagedDuringTheSession_IsNotReplaced) {
  FileStore store(file_);
  Put(store, 1, 1);
  WriteFile(file_, "rubbish");
  EXPECT_THROW(Put(store, 1, 2), std::runtime_error);
  EXPECT_EQ(FileText(file_), "rubbish");
}

TEST_F(StateFile, ThatCannotBeWritten_IsAnErrorAndKeepsTheOldContent) {
  FileStore store(file_);
  Put(store, 1, 1);
  const std::string before = FileText(file_);
  std::filesystem::create_directory(dir_ / "state.json.new");  // where the next content would be written
  EXPECT_THROW(Put(store, 1, 2), std::runtime_error);
  EXPECT_EQ(FileText(file_), before);
}

TEST_F(StateFile, ThatIsAFolder_IsAnError) { EXPECT_THROW(FileStore{dir_.Path()}, std::runtime_error); }

TEST_F(StateFile, LeftoversOfAKilledWriter_DoNotMatter) {
  WriteFile(dir_ / "state.json.new", std::string(100000, '{'));
  FileStore store(file_);
  Put(store, 1, 2);
  EXPECT_EQ(Get(store, 1), 2);
}

TEST_F(StateFile, SharedByProcesses_LosesNoUpdate) {
  constexpr int kUpdates = 100;
  const auto count = [this] {
    FileStore store(file_);
    for (int update = 0; update < kUpdates; ++update)
      store.Update([](Registers &registers) { ++registers.channels[0].direct[7]; });
    return 0;
  };
  Child first(count);
  Child second(count);
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  FileStore store(file_);
  EXPECT_EQ(Get(store, 7), 2 * kUpdates);
}

TEST_F(StateFile, OfAKilledProcess_IsWholeAndUnlocked) {
  for (int kill = 0; kill < 5; ++kill) {
    Event running;
    const Child writer([&]() -> int {
      FileStore store(file_);
      for (int value = 0;; ++value) {
        Put(store, 7, value);
        if (value == 10 + kill) running.Announce();
      }
    });
    running.Wait();
    writer.Signal(SIGKILL);
    FileStore store(file_);
    EXPECT_GE(Get(store, 7), 10 + kill);
  }
}

TEST(MemoryStore, KeepsRegistersAsLongAsItLives) {
  MemoryStore store;
  store.Update([](Registers &registers) { registers.debug = true; });
  store.Update([](const Registers &registers) { EXPECT_TRUE(registers.debug); });
}

}  // namespace
