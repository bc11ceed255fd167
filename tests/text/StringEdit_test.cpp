// SPDX-License-Identifier: MIT
// The bounded copy and the editing helpers, at and near each limit of position, count and size.

#include <devsupport/text/StringEdit.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/text/GuardedBuffer.h"

namespace {

using devsupport::test::GuardedBuffer;
using devsupport::test::kMost;
using namespace std::string_literals;

constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();

std::string Copied(std::size_t room, const char *source) {
  GuardedBuffer buffer(room);
  StrNcpy(buffer.Data(), source, buffer.Size());
  EXPECT_TRUE(buffer.GuardsIntact());
  return buffer.Bytes();
}

TEST(StrNcpy, LongerSource_IsCutAndTerminated) { EXPECT_EQ(Copied(4, "abcdef"), "abc\0"s); }

TEST(StrNcpy, SourceThatJustFits_IsWhole) { EXPECT_EQ(Copied(4, "abc"), "abc\0"s); }

TEST(StrNcpy, SourceOneTooLong_LosesOneCharacter) { EXPECT_EQ(Copied(4, "abcd"), "abc\0"s); }

TEST(StrNcpy, ShorterSource_IsPaddedWithNul) { EXPECT_EQ(Copied(6, "ab"), "ab\0\0\0\0"s); }

TEST(StrNcpy, EmptySource_WritesOneNulOnly) { EXPECT_EQ(Copied(4, ""), "\0ZZZ"s); }

TEST(StrNcpy, RoomForOne_HoldsTheNulAlone) { EXPECT_EQ(Copied(1, "abc"), "\0"s); }

TEST(StrNcpy, SourceWithoutNul_IsReadUpToTheRoomOnly) {
  GuardedBuffer source(4);
  GuardedBuffer buffer(4);
  StrNcpy(buffer.Data(), source.Data(), 4);
  EXPECT_EQ(buffer.Bytes(), "ZZZ\0"s);
}

TEST(StrNcpy, SizeBelow1_WritesNothing) {
  GuardedBuffer buffer(4);
  for (const std::int32_t size : {0, -1, kLeast}) {
    StrNcpy(buffer.Data(), "abc", size);
    StrNcpy(buffer.Data(), "", size);
  }
  EXPECT_EQ(buffer.Bytes(), "ZZZZ");
  EXPECT_TRUE(buffer.GuardsIntact());
}

std::string Deleted(const std::string &text, std::int32_t pos, std::int32_t count) {
  GuardedBuffer buffer(text.size() + 1, text);
  StrDelete(buffer.Data(), pos, count);
  EXPECT_TRUE(buffer.GuardsIntact());
  return buffer.Text();
}

TEST(StrDelete, Range_IsRemovedAndTheRestMovesDown) {
  EXPECT_EQ(Deleted("abcdef", 0, 2), "cdef");
  EXPECT_EQ(Deleted("abcdef", 2, 3), "abf");
  EXPECT_EQ(Deleted("abcdef", 5, 1), "abcde");
  EXPECT_EQ(Deleted("abcdef", 0, 6), "");
}

TEST(StrDelete, RangePastTheEnd_IsCutAtTheEnd) {
  EXPECT_EQ(Deleted("abcdef", 4, 3), "abcd");
  EXPECT_EQ(Deleted("abcdef", 4, kMost), "abcd");
  EXPECT_EQ(Deleted("abcdef", 0, kMost), "");
}

TEST(StrDelete, NothingToDelete_ChangesNothing) {
  EXPECT_EQ(Deleted("abc", 1, 0), "abc");
  EXPECT_EQ(Deleted("abc", 1, -1), "abc");
  EXPECT_EQ(Deleted("abc", 1, kLeast), "abc");
}

TEST(StrDelete, PositionOutsideTheText_ChangesNothing) {
  EXPECT_EQ(Deleted("abc", -1, 2), "abc");
  EXPECT_EQ(Deleted("abc", kLeast, kMost), "abc");
  EXPECT_EQ(Deleted("abc", 3, 1), "abc");
  EXPECT_EQ(Deleted("abc", kMost, kMost), "abc");
  EXPECT_EQ(Deleted("", 0, 1), "");
}

std::string TailCut(const std::string &text, std::int32_t count) {
  GuardedBuffer buffer(text.size() + 1, text);
  StrCutTail(buffer.Data(), count);
  EXPECT_TRUE(buffer.GuardsIntact());
  return buffer.Text();
}

TEST(StrCutTail, LastCharacters_AreDropped) {
  EXPECT_EQ(TailCut("abc", 1), "ab");
  EXPECT_EQ(TailCut("abc", 3), "");
}

TEST(StrCutTail, MoreThanThereAre_EmptiesTheText) {
  EXPECT_EQ(TailCut("abc", 4), "");
  EXPECT_EQ(TailCut("abc", kMost), "");
  EXPECT_EQ(TailCut("", 1), "");
}

TEST(StrCutTail, CountBelow1_ChangesNothing) {
  EXPECT_EQ(TailCut("abc", 0), "abc");
  EXPECT_EQ(TailCut("abc", -1), "abc");
  EXPECT_EQ(TailCut("abc", kLeast), "abc");
}

std::string Inserted(std::int32_t pos, const char *insert, std::size_t room) {
  GuardedBuffer buffer(room, "abc");
  StrInsert(buffer.Data(), pos, insert, buffer.Size());
  EXPECT_TRUE(buffer.GuardsIntact());
  return buffer.Text();
}

TEST(StrInsert, Text_GoesToThePosition) {
  EXPECT_EQ(Inserted(0, "xy", 10), "xyabc");
  EXPECT_EQ(Inserted(1, "xy", 10), "axybc");
  EXPECT_EQ(Inserted(3, "xy", 10), "abcxy");
  EXPECT_EQ(Inserted(1, "", 10), "abc");
}

TEST(StrInsert, PositionBeyondTheEnd_Appends) {
  EXPECT_EQ(Inserted(4, "xy", 10), "abcxy");
  EXPECT_EQ(Inserted(kMost, "xy", 10), "abcxy");
}

TEST(StrInsert, NegativePosition_ChangesNothing) {
  EXPECT_EQ(Inserted(-1, "xy", 10), "abc");
  EXPECT_EQ(Inserted(kLeast, "xy", 10), "abc");
}

TEST(StrInsert, ResultThatJustFits_IsInserted) { EXPECT_EQ(Inserted(1, "xy", 6), "axybc"); }

TEST(StrInsert, ResultOneTooLong_IsRefusedWhole) { EXPECT_EQ(Inserted(1, "xyz", 6), "abc"); }

TEST(StrInsert, SizeBelow1_ChangesNothing) {
  GuardedBuffer buffer(10, "abc");
  for (const std::int32_t size : {0, -1, kLeast}) StrInsert(buffer.Data(), 1, "xy", size);
  EXPECT_EQ(buffer.Text(), "abc");
}

/// All bytes except NUL, in order.
std::string AllBytes() {
  std::string all;
  for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
  return all;
}

TEST(StrToUpper, OnlyAsciiLetters_Change) {
  std::string expected = AllBytes();
  for (char &c : expected)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  std::string text = AllBytes();
  StrToUpper(text.data());
  EXPECT_EQ(text, expected);
}

TEST(StrToLower, OnlyAsciiLetters_Change) {
  std::string expected = AllBytes();
  for (char &c : expected)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  std::string text = AllBytes();
  StrToLower(text.data());
  EXPECT_EQ(text, expected);
}

TEST(StrToUpperAndLower, NullText_IsIgnored) {
  StrToUpper(nullptr);
  StrToLower(nullptr);
}

TEST(StrIsBlank, BlanksAndTabs_AreBlank) {
  EXPECT_EQ(StrIsBlank(""), 1);
  EXPECT_EQ(StrIsBlank(" "), 1);
  EXPECT_EQ(StrIsBlank("\t \t  "), 1);
}

TEST(StrIsBlank, AnythingElse_IsNot) {
  for (const char *text : {"a", "  a", "a  ", "\n", "\r", "\v", " \f ", "\xa0"})
    EXPECT_EQ(StrIsBlank(text), 0) << '"' << text << '"';
}

}  // namespace
