// SPDX-License-Identifier: MIT
// Small files, read and written whole.

#include "tools/common/Files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "tests/support/TempDir.h"

namespace {

using devsupport::test::TempDir;

std::string Read(const std::string &path, std::size_t room) {
  std::string text(room, '\x55');
  std::size_t size = 4711;
  if (!tools::ReadFile(path.c_str(), text, size)) return "errno " + std::to_string(errno);
  return text.substr(0, size);
}

TEST(ReplaceFile, MakesAFileAndReplacesItWhole) {
  const TempDir dir;
  const std::string path = (dir / "file").string();
  ASSERT_TRUE(tools::ReplaceFile(path.c_str(), "a long text"));
  EXPECT_EQ(Read(path, 100), "a long text");
  ASSERT_TRUE(tools::ReplaceFile(path.c_str(), "short"));
  EXPECT_EQ(Read(path, 100), "short");
}

TEST(ReplaceFile, ThatFails_LeavesTheOldFile) {
  const TempDir dir;
  const std::string path = (dir / "file").string();
  ASSERT_TRUE(tools::ReplaceFile(path.c_str(), "old"));
  ASSERT_EQ(::mkdir((path + ".new").c_str(), 0755), 0);
  EXPECT_FALSE(tools::ReplaceFile(path.c_str(), "new"));
  EXPECT_EQ(Read(path, 100), "old");
  EXPECT_FALSE(tools::ReplaceFile((dir / "none/file").c_str(), "new"));
  EXPECT_EQ(errno, ENOENT);
}

TEST(ReadFile, TakesAFileThatJustFitsAndRefusesALargerOne) {
  const TempDir dir;
  const std::string path = (dir / "file").string();
  ASSERT_TRUE(tools::ReplaceFile(path.c_str(), "12345"));
  EXPECT_EQ(Read(path, 5), "12345");
  EXPECT_EQ(Read(path, 4), "errno " + std::to_string(EFBIG));
  EXPECT_EQ(Read(path + "x", 4), "errno " + std::to_string(ENOENT));
}

}  // namespace
