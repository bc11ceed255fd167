// SPDX-License-Identifier: MIT
// Numbers on the command line: what is taken, what is refused.

#include "tools/common/Numbers.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using tools::ParseDigits;
using tools::ParseNumber;

TEST(ParseNumber, TakesDecimalAndHexadecimalNumbersUpToTheLast) {
  std::uint32_t number = 4711;
  EXPECT_TRUE(ParseNumber("0", 9, number));
  EXPECT_EQ(number, 0U);
  EXPECT_TRUE(ParseNumber("010", 10, number));
  EXPECT_EQ(number, 10U);
  EXPECT_TRUE(ParseNumber("0xFfFfFfFf", UINT32_MAX, number));
  EXPECT_EQ(number, UINT32_MAX);
}

TEST(ParseNumber, RefusesEverythingElseAndLeavesTheNumber) {
  std::uint32_t number = 4711;
  for (const char *text : {"", "-1", "+1", " 1", "1 ", "1x", "0x", "0xg", "x", "4294967296", "0x100000000"})
    EXPECT_FALSE(ParseNumber(text, UINT32_MAX, number)) << text;
  EXPECT_FALSE(ParseNumber("10", 9, number));
  EXPECT_EQ(number, 4711U);
}

TEST(ParseDigits, TakesDigitsOfItsBaseOnly) {
  std::uint32_t number = 4711;
  EXPECT_TRUE(ParseDigits("59", 10, 59, number));
  EXPECT_EQ(number, 59U);
  for (const char *text : {"", "5f", "0x5", "60"}) EXPECT_FALSE(ParseDigits(text, 10, 59, number)) << text;
  EXPECT_EQ(number, 59U);
}

}  // namespace
