// SPDX-License-Identifier: MIT
// Decoding and checking one cell.

#include "tools/devlog/Cell.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/devlog/Cells.h"

namespace {

using namespace devlog;
using devlog_test::CellOf;
using devlog_test::Entry;
using devlog_test::SetWord;

TEST(Decode, TakesTheWordsApart) {
  const Cell cell = CellOf({.text = "hello",
                            .sequence = 4095,
                            .type = 15,
                            .fragment = 31,
                            .hour = 23,
                            .minute = 59,
                            .second = 58,
                            .ms = 999});
  const Fragment fragment = Decode(cell);
  EXPECT_EQ(fragment.damage, Damage::None);
  EXPECT_EQ(fragment.time, ((23 * 60 + 59) * 60 + 58) * 1000 + 999);
  EXPECT_EQ(fragment.number, 31U);
  EXPECT_EQ(fragment.sequence, 4095U);
  EXPECT_EQ(fragment.type, 15U);
  EXPECT_EQ(fragment.text, "hello");
}

TEST(Decode, OfGoldenBytes_ReadsWhatTheyMean) {
  Cell cell{};
  cell.length = 8 + 2 + 1;
  const unsigned char bytes[] = {0x4C, 0xC4, 0x2B, 0x16, 0x02, 0x30, 0xFF, 0xFF, 'h', 'i', 0};
  std::memcpy(cell.record, bytes, sizeof bytes);
  const Fragment fragment = Decode(cell);
  EXPECT_EQ(fragment.damage, Damage::None);
  EXPECT_EQ(fragment.time, ((12 * 60 + 34) * 60 + 56) * 1000 + 789);
  EXPECT_EQ(fragment.number, 2U);
  EXPECT_EQ(fragment.sequence, 2U);
  EXPECT_EQ(fragment.type, 3U);
  EXPECT_EQ(fragment.text, "hi");
}

TEST(Decode, TakesTheLongestTextAndTheEmptyOne) {
  const Cell longest = CellOf({.text = std::string(127, 'x')});
  EXPECT_EQ(longest.length, 136U);
  EXPECT_EQ(Decode(longest).damage, Damage::None);
  EXPECT_EQ(Decode(longest).text, std::string(127, 'x'));
  const Cell empty = CellOf({});
  EXPECT_EQ(Decode(empty).damage, Damage::None);
  EXPECT_EQ(Decode(empty).text, "");
}

TEST(Decode, OfATextWithNulsInside_KeepsThem) {
  const Cell cell = CellOf({.text = std::string("a\0b", 3)});
  EXPECT_EQ(Decode(cell).text, std::string_view("a\0b", 3));
}

TEST(Decode, OfAnImpossibleLength_UsesNothingOfTheCell) {
  for (const std::uint32_t length : {0U, 8U, 137U, 4711U, 0x80000000U, 0xFFFFFFFFU}) {
    Cell cell = CellOf({.text = "hello", .sequence = 7, .type = 3});
    cell.length = length;
    const Fragment fragment = Decode(cell);
    EXPECT_EQ(fragment.damage, Damage::Length) << length;
    EXPECT_EQ(fragment.time, kUnknownTime) << length;
    EXPECT_TRUE(fragment.text.empty()) << length;
  }
}

TEST(Decode, OfATextWithoutItsEnd_IsDamagedAndShowsIt) {
  Cell cell = CellOf({.text = "hello"});
  cell.length -= 1;
  EXPECT_EQ(Decode(cell).damage, Damage::Text);
  EXPECT_EQ(Decode(cell).text, "hell");
}

TEST(Decode, OfAnImpossibleTime_IsDamaged) {
  for (const Entry &entry : {Entry{.text = "x", .hour = 24}, Entry{.text = "x", .minute = 60},
                             Entry{.text = "x", .second = 61}, Entry{.text = "x", .ms = 1000}}) {
    EXPECT_EQ(Decode(CellOf(entry)).damage, Damage::Time);
    EXPECT_EQ(Decode(CellOf(entry)).time, kUnknownTime);
  }
}

TEST(Decode, OfALeapSecond_ShowsTheSecondBeforeIt) {
  const Cell cell = CellOf({.text = "x", .hour = 23, .minute = 59, .second = 60, .ms = 5});
  EXPECT_EQ(Decode(cell).damage, Damage::None);
  EXPECT_EQ(Decode(cell).time, kDay - 1000 + 5);
}

}  // namespace
