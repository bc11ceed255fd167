// SPDX-License-Identifier: MIT
// Slices of texts.

#include "tools/common/Text.h"

#include <gtest/gtest.h>

namespace {

TEST(First, IsNeverLongerThanTheText) {
  EXPECT_EQ(tools::First("abc", 2), "ab");
  EXPECT_EQ(tools::First("abc", 4), "abc");
  EXPECT_EQ(tools::First("abc", std::string_view::npos), "abc");
}

TEST(After, IsEmptyAfterTheEnd) {
  EXPECT_EQ(tools::After("abc", 2), "c");
  EXPECT_EQ(tools::After("abc", 4), "");
}

TEST(StartsWith, ComparesWholePrefixes) {
  EXPECT_TRUE(tools::StartsWith("abc", "ab"));
  EXPECT_TRUE(tools::StartsWith("abc", ""));
  EXPECT_FALSE(tools::StartsWith("a", "ab"));
}

TEST(TakePart, GivesEachPartAndThenNullData) {
  std::string_view rest = "a,,b,";
  for (const char *part : {"a", "", "b"}) {
    EXPECT_EQ(tools::TakePart(rest, ','), part);
    EXPECT_NE(rest.data(), nullptr);
  }
  EXPECT_EQ(tools::TakePart(rest, ','), "");
  EXPECT_EQ(rest.data(), nullptr);
}

}  // namespace
