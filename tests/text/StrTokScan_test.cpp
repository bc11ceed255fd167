// SPDX-License-Identifier: MIT
// The tokenizer's scans by sets of characters: membership, bounds of a run, and lists with several delimiters.

#include <devsupport/detail/text/StrTok.h>
#include <devsupport/detail/text/StrTokScan.h>
#include <devsupport/text/StrTokConvert.h>
#include <devsupport/text/StrTokScan.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/text/GuardedBuffer.h"
#include "tests/text/StrTokTester.h"

namespace {

using namespace devsupport::test;
using List = std::vector<std::string>;

constexpr std::uint32_t kDigits = 1;
constexpr std::uint32_t kLetters = 6;

// ---- Membership ----

bool IsMember(char c, std::uint32_t classes, const char *extra) {
  Tokenizer t(std::string(1, c));
  const int matches = TStrTok_MatchAnyChar(&t.tok, classes, extra, 1, 0, kMost);
  Tokenizer other(std::string(1, c));
  EXPECT_NE(matches, TStrTok_MatchNotAnyChar(&other.tok, classes, extra, 1, 0, kMost)) << int{c};
  return matches != 0;
}

TEST(Sets, EveryClassMask_HoldsItsClassesAndNothingElse) {
  for (std::uint32_t mask = 1; mask < 8; ++mask) {
    for (int value = 0; value < 256; ++value) {
      const char c = static_cast<char>(value);
      const bool expected = ((mask & 1) != 0 && c >= '0' && c <= '9') || ((mask & 2) != 0 && c >= 'A' && c <= 'Z') ||
                            ((mask & 4) != 0 && c >= 'a' && c <= 'z');
      EXPECT_EQ(IsMember(c, mask, nullptr), expected) << "mask " << mask << ", character " << value;
    }
  }
}

TEST(Sets, ExtraCharacters_AreAddedForOneScan) {
  EXPECT_TRUE(IsMember('_', kLetters, "_-"));
  EXPECT_TRUE(IsMember('a', kLetters, "_-"));
  EXPECT_FALSE(IsMember('1', kLetters, "_-"));
  EXPECT_TRUE(IsMember('\x01', 0, "\x01"));
  EXPECT_TRUE(IsMember('\x7f', 0, "\x7f"));
  EXPECT_FALSE(IsMember('_', kLetters, nullptr));
}

TEST(Sets, HighBytes_AreInNoSetEvenAsExtraCharacters) {
  for (int value = 0x80; value < 256; ++value) {
    const std::string extra(1, static_cast<char>(value));
    EXPECT_FALSE(IsMember(static_cast<char>(value), 7, extra.c_str())) << value;
    EXPECT_FALSE(IsMember(static_cast<char>(value - 0x80), 0, extra.c_str())) << value;
  }
}

TEST(Sets, NoClassAndNoExtraCharacters_FailAtOnce) {
  for (const char *none : {static_cast<const char *>(nullptr), ""}) {
    for (const auto scan :
         {TStrTok_FindAnyChar, TStrTok_FindNotAnyChar, TStrTok_MatchAnyChar, TStrTok_MatchNotAnyChar}) {
      Tokenizer t("abc");
      const TStrTok before = t.tok;
      EXPECT_EQ(scan(&t.tok, 0, none, 0, 0, kMost), 0);
      EXPECT_TRUE(SamePosition(t.tok, before));
      EXPECT_EQ(scan(&t.tok, 0, none, 0, 1, kMost), 0);
      EXPECT_TRUE(t.IsExhausted());
    }
  }
}

TEST(Sets, ExtraCharactersThatAreAllIgnored_MakeAnEmptySet) {
  Tokenizer t("ab");
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, 0, "\x80", 1, 0, kMost), 0);
  EXPECT_EQ(TStrTok_MatchNotAnyChar(&t.tok, 0, "\x80", 1, 0, kMost), 1);
  EXPECT_EQ(t.Token(), "ab");
}

TEST(Sets, Exhausted_FailsAndAppliesNoFlag) {
  for (const auto scan :
       {TStrTok_FindAnyChar, TStrTok_FindNotAnyChar, TStrTok_MatchAnyChar, TStrTok_MatchNotAnyChar}) {
    Tokenizer t("abc");
    _SetPosLen(&t.tok, 2);
    t.tok.pCur = nullptr;
    const TStrTok before = t.tok;
    EXPECT_EQ(scan(&t.tok, 7, nullptr, 0, 1, kMost), 0);
    EXPECT_TRUE(SamePosition(t.tok, before));
  }
}

// ---- Find ----

TEST(FindAnyChar, Run_EndsTheTokenAndIsConsumed) {
  Tokenizer t("ab12cd");
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost), 1);
  EXPECT_EQ(t.TokenAndAhead(), "ab|cd");
  EXPECT_EQ(t.tok.nDelimLen, 2);
}

TEST(FindAnyChar, Success_ShiftsTheDelimiterLengths) {
  Tokenizer t("a12b3");
  TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost);
  TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost);
  EXPECT_EQ(t.tok.nPrevDelimLen, 2);
  EXPECT_EQ(t.tok.nDelimLen, 1);
}

TEST(FindAnyChar, Failure_ChangesNothingUnlessAskedTo) {
  Tokenizer t("abc");
  const TStrTok before = t.tok;
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost), 0);
  EXPECT_TRUE(SamePosition(t.tok, before));
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 1, 1, kMost), 0);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(FindAnyChar, Maximum_CutsTheRun) {
  Tokenizer t("a1234");
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 1, 0, 3), 1);
  EXPECT_EQ(t.tok.nDelimLen, 3);
  EXPECT_EQ(t.Ahead(), "4");
}

TEST(FindAnyChar, MaximumBelowMinimum_MeansNoLimit) {
  for (const std::int32_t max : {1, 0, -1, std::numeric_limits<std::int32_t>::min()}) {
    Tokenizer t("a1234");
    EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 2, 0, max), 1);
    EXPECT_EQ(t.tok.nDelimLen, 4) << max;
  }
}

TEST(FindAnyChar, MaximumOf0_ActsAs1) {
  Tokenizer t("a1234");
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 0, 0, 0), 1);
  EXPECT_EQ(t.tok.nDelimLen, 1);
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kDigits, nullptr, 0, 0, 0), 1);
  EXPECT_EQ(t.Token(), "2");
}

TEST(FindAnyChar, TooShortRuns_CountForTheNextOne) {
  Tokenizer t("a1b22c");
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 3, 0, kMost), 1);
  EXPECT_EQ(t.Token(), "a1b");
  EXPECT_EQ(t.tok.nDelimLen, 3);
  EXPECT_EQ(t.tok.pCur, t.tok.pSrcEnd);  // one character after the run
}

TEST(FindAnyChar, TooShortRuns_CountForTheMaximumToo) {
  Tokenizer t("1b2222c");
  EXPECT_EQ(TStrTok_FindAnyChar(&t.tok, kDigits, nullptr, 3, 0, 3), 1);
  EXPECT_EQ(t.TokenAndAhead(), "1b|2c");
  EXPECT_EQ(t.tok.nDelimLen, 3);
}

TEST(FindNotAnyChar, NonMembers_AreFound) {
  Tokenizer t("ab\xff,9");
  EXPECT_EQ(TStrTok_FindNotAnyChar(&t.tok, kDigits | kLetters, nullptr, 1, 0, kMost), 1);
  EXPECT_EQ(t.TokenAndAhead(), "ab|9");
  EXPECT_EQ(t.tok.nDelimLen, 2);
}

// ---- A cursor beyond the end ----

/// "1b22" without anything after it, the cursor one character beyond the end.
class BeyondTheEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    source_[0] = '1';
    source_[1] = 'b';
    source_[2] = source_[3] = '2';
    TStrTok_SetSource(&tok_, 0, source_.get(), 4);
    ASSERT_EQ(TStrTok_FindAnyChar(&tok_, kDigits, nullptr, 3, 0, kMost), 1);
    ASSERT_EQ(TStrTok_GetCurPos(&tok_), 5);
  }

  std::unique_ptr<char[]> source_ = std::make_unique<char[]>(4);
  TStrTok tok_{};
};

TEST_F(BeyondTheEnd, Scans_FindNothing) {
  EXPECT_EQ(TStrTok_IsTokenEnd(&tok_), 0);
  EXPECT_EQ(TStrTok_Find(&tok_, "2", 0, 0), 0);
  EXPECT_EQ(TStrTok_FindNth(&tok_, 0, "2", 0, 0), 0);
  EXPECT_EQ(TStrTok_MatchStr(&tok_, "2", 0, 0), 0);
  EXPECT_EQ(TStrTok_MatchStrNoCase(&tok_, "2", 0, 0), 0);
  EXPECT_EQ(TStrTok_FindAnyChar(&tok_, 7, nullptr, 0, 0, kMost), 0);
  EXPECT_EQ(TStrTok_FindNotAnyChar(&tok_, 7, nullptr, 0, 0, kMost), 0);
  EXPECT_EQ(TStrTok_MatchAnyChar(&tok_, 7, nullptr, 1, 0, kMost), 0);
  EXPECT_EQ(TStrTok_MatchNotAnyChar(&tok_, 7, nullptr, 1, 0, kMost), 0);
  EXPECT_EQ(TStrTok_GetCurPos(&tok_), 5);
}

TEST_F(BeyondTheEnd, EmptyMatch_StaysThereAndCopiesNothing) {
  EXPECT_EQ(TStrTok_MatchAnyChar(&tok_, kDigits, nullptr, 0, 0, kMost), 1);
  EXPECT_EQ(TStrTok_GetTokenPos(&tok_), 5);
  GuardedBuffer buffer(4);
  std::int32_t length = 77;
  EXPECT_EQ(TStrTok_GetToken(&tok_, buffer.Data(), 4, &length), 1);
  EXPECT_EQ(buffer.Text(), "");
  EXPECT_EQ(length, 0);
  TStrTok sub{};
  EXPECT_EQ(TStrTok_Token2Tok(&tok_, &sub), 1);
  EXPECT_EQ(TStrTok_GetSourceLen(&sub), 0);
}

TEST_F(BeyondTheEnd, TokenUpToCursor_EndsWithTheSource) {
  GuardedBuffer buffer(8);
  EXPECT_EQ(TStrTok_GetTokenEx(&tok_, buffer.Data(), 8, 0, 1, nullptr), 1);
  EXPECT_EQ(buffer.Text(), "1b22");
}

TEST_F(BeyondTheEnd, Rest_HasItsEndBeforeItsStartAndCopiesNothing) {
  EXPECT_EQ(TStrTok_Match2End(&tok_), 1);
  EXPECT_EQ(TStrTok_GetTokenLen(&tok_), -1);
  EXPECT_EQ(tok_.pCur, tok_.pSrcEnd);
  GuardedBuffer buffer(4);
  std::int32_t length = 77;
  EXPECT_EQ(TStrTok_GetToken(&tok_, buffer.Data(), 4, &length), 1);
  EXPECT_EQ(buffer.Text(), "");
  EXPECT_EQ(length, 0);
  std::int32_t value = 77;
  EXPECT_EQ(TStrTok_Token2Int(&tok_, &value), 0);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(TStrTok_TokenIs(&tok_, "x"), 1);
  EXPECT_EQ(TStrTok_FindInToken(&tok_, "2", 0), nullptr);
  EXPECT_EQ(TStrTok_Match2End(&tok_), 0);
}

// ---- Match ----

TEST(MatchAnyChar, RunAtTheCursor_BecomesTheToken) {
  Tokenizer t("Abc9");
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 1, 0, kMost), 1);
  EXPECT_EQ(t.TokenAndAhead(), "Abc|9");
  EXPECT_EQ(t.tok.nDelimLen, 3);
}

TEST(MatchAnyChar, RunShorterThanTheMinimum_Fails) {
  Tokenizer t("Abc9");
  const TStrTok before = t.tok;
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 4, 0, kMost), 0);
  EXPECT_TRUE(SamePosition(t.tok, before));
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 4, 1, kMost), 0);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(MatchAnyChar, RunFurtherOn_IsNotTaken) {
  Tokenizer t("9Abc");
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 1, 0, kMost), 0);
}

TEST(MatchAnyChar, Maximum_CutsTheRun) {
  Tokenizer t("Abc9");
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 1, 0, 2), 1);
  EXPECT_EQ(t.Token(), "Ab");
  EXPECT_EQ(TStrTok_MatchNotAnyChar(&t.tok, kDigits, nullptr, 1, 0, 0), 1);  // below the minimum: no limit
  EXPECT_EQ(t.Token(), "c");
}

TEST(MatchAnyChar, Success_ShiftsTheDelimiterLengths) {
  Tokenizer t("Abc12");
  TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 1, 0, kMost);
  TStrTok_MatchAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost);
  EXPECT_EQ(t.tok.nPrevDelimLen, 3);
  EXPECT_EQ(t.tok.nDelimLen, 2);
}

TEST(MatchAnyChar, EmptyRun_Sets0AndLeavesThePreviousDelimiterLength) {
  Tokenizer t("Abc12;x");
  TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 1, 0, kMost);
  TStrTok_MatchAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost);
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 0, 1, kMost), 1);
  EXPECT_EQ(t.TokenAndAhead(), "|;x");
  EXPECT_EQ(t.tok.nDelimLen, 0);
  EXPECT_EQ(t.tok.nPrevDelimLen, 3);
}

TEST(MatchAnyChar, EmptyRunAtTheEnd_IsASuccess) {
  Tokenizer t("");
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 0, 1, kMost), 1);
  EXPECT_EQ(TStrTok_MatchAnyChar(&t.tok, kLetters, nullptr, 1, 0, kMost), 0);
}

TEST(MatchNotAnyChar, NonMembers_AreTaken) {
  Tokenizer t("\xff,;1");
  EXPECT_EQ(TStrTok_MatchNotAnyChar(&t.tok, kDigits, nullptr, 1, 0, kMost), 1);
  EXPECT_EQ(t.Token(), "\xff,;");
}

// ---- Workers ----

TEST(Workers, TakeTheLimitsBeforeTheFlag) {
  Tokenizer t("a1234");
  EXPECT_EQ(_FindAnyChar(&t.tok, 1, kDigits, nullptr, 1, 2, 0), 1);
  EXPECT_EQ(t.Ahead(), "34");
  EXPECT_EQ(_MatchAnyChar(&t.tok, 1, kDigits, nullptr, 1, 1, 0), 1);
  EXPECT_EQ(t.Ahead(), "4");
  EXPECT_EQ(_MatchAnyChar(&t.tok, 0, kDigits, nullptr, 1, 1, 0), 0);
  EXPECT_EQ(t.Ahead(), "4");
  EXPECT_EQ(_FindAnyChar(&t.tok, 0, kDigits, nullptr, 1, 1, 1), 0);
  EXPECT_TRUE(t.IsExhausted());
}

// ---- Fields ----

List FieldsByAny(const std::string &text, const char *delimiters, bool canEmpty) {
  return Fields(text, [=](TStrTok *tok) { return TStrTok_GoDelimit_AnyChar(tok, delimiters, canEmpty); });
}

TEST(GoDelimitAnyChar, EmptyFields_AreDelivered) {
  EXPECT_EQ(FieldsByAny(",a;;b,", ",;", true), (List{"", "a", "", "b", ""}));
}

TEST(GoDelimitAnyChar, EmptyFields_AreSkipped) {
  EXPECT_EQ(FieldsByAny(",a;;b,", ",;", false), (List{"a", "b"}));
  EXPECT_EQ(FieldsByAny(";,;,", ",;", false), List{});
}

TEST(GoDelimitAnyChar, EmptySource_HasNoField) {
  EXPECT_EQ(FieldsByAny("", ",;", true), List{});
  EXPECT_EQ(FieldsByAny("", ",;", false), List{});
}

TEST(GoDelimitAnyChar, NoDelimiters_MakeOneField) {
  for (const char *none : {static_cast<const char *>(nullptr), "", "x", "\x80"}) {
    EXPECT_EQ(FieldsByAny("a,b", none, true), (List{"a,b"}));
    EXPECT_EQ(FieldsByAny("a,b", none, false), (List{"a,b"}));
  }
}

TEST(GoDelimitAnyChar, RunOfDelimiters_IsOneDelimiterOnlyWhereEmptyFieldsAreSkipped) {
  Tokenizer skipping("a,;b");
  TStrTok_GoDelimit_AnyChar(&skipping.tok, ",;", 0);
  EXPECT_EQ(skipping.tok.nDelimLen, 2);
  Tokenizer delivering("a,;b");
  TStrTok_GoDelimit_AnyChar(&delivering.tok, ",;", 1);
  EXPECT_EQ(delivering.tok.nDelimLen, 1);
}

TEST(GoDelimitAnyChar, Exhausted_Fails) {
  Tokenizer t("a,b");
  _SetPosEmpty(&t.tok);
  EXPECT_EQ(TStrTok_GoDelimit_AnyChar(&t.tok, ",", 0), 0);
  EXPECT_EQ(TStrTok_GoDelimit_AnyChar(&t.tok, ",", 1), 0);
}

TEST(GoDelimitAnyChar, ListWithLongFields_IsSplitAtEveryPosition) {
  // Fields of every length up to 40, so that a delimiter is at every distance from the cursor.
  for (std::size_t length = 0; length < 40; ++length) {
    const std::string field(length, 'x');
    EXPECT_EQ(FieldsByAny(field + ";" + field + ",", ",;", true), (List{field, field, ""})) << length;
  }
}

TEST(GoDelimitAnyChar, NoOtherByte_IsTakenForADelimiter) {
  for (int value = 0; value < 256; ++value) {
    const char c = static_cast<char>(value);
    if (c == ',' || c == ';') continue;
    const std::string field(9, c);
    Tokenizer t(field + "," + field + ";" + field);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(TStrTok_GoDelimit_AnyChar(&t.tok, ",;", 1), 1) << value;
      EXPECT_EQ(t.Token(), field) << value;
    }
  }
}

TEST(GoDelimitAnyChar, OneDelimiterOrMany_SplitAlike) {
  EXPECT_EQ(FieldsByAny("aaaaaaaaaaa,b,;c", ",", true), (List{"aaaaaaaaaaa", "b", ";c"}));
  EXPECT_EQ(FieldsByAny("aaaaaaaaaaa,b:;c", ",;:", true), (List{"aaaaaaaaaaa", "b", "", "c"}));
  EXPECT_EQ(FieldsByAny("aaaaaaaaaaa,b:;c", ",;:", false), (List{"aaaaaaaaaaa", "b", "c"}));
  EXPECT_EQ(FieldsByAny("a\xac,b\xac", ",\xac", true), (List{"a\xac", "b\xac"}));
}

}  // namespace
