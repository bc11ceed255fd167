// SPDX-License-Identifier: MIT
// The tokenizer's positions, copies and oddities in single tests. Long scripts are in StrTokModel_test.cpp.

#include <devsupport/detail/text/StrTok.h>
#include <devsupport/text/StrTok.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/text/GuardedBuffer.h"
#include "tests/text/StrTokTester.h"

namespace {

using namespace devsupport::test;
using namespace std::string_literals;
using List = std::vector<std::string>;

// ---- Source ----

TEST(SetSource, LengthBelow1_TakesTheTextsOwn) {
  const char text[] = "abc";
  for (const std::int32_t length : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    TStrTok tok{};
    TStrTok_SetSource(&tok, 1, text, length);
    EXPECT_EQ(tok.pSrcEnd, text + 3) << length;
  }
}

TEST(SetSource, FillsTheWholeRecord) {
  const char text[] = "abc";
  TStrTok tok{9, text + 1, nullptr, nullptr, text + 1, text + 2, 7, 7};
  TStrTok_SetSource(&tok, 5, text, 2);
  EXPECT_EQ(tok.bTrim, 5U);
  EXPECT_EQ(tok.pSrc, text);
  EXPECT_EQ(tok.pSrcEnd, text + 2);
  EXPECT_EQ(tok.pTok, text);
  EXPECT_EQ(tok.pTokEnd, text);
  EXPECT_EQ(tok.pCur, text);
  EXPECT_EQ(tok.nPrevDelimLen, 0);
  EXPECT_EQ(tok.nDelimLen, 0);
}

TEST(SetSource, NullSource_IsExhaustedFromTheStart) {
  TStrTok tok{};
  TStrTok_SetSource(&tok, 1, nullptr, 3);
  EXPECT_EQ(tok.bTrim, 1U);
  for (const char *p : {tok.pSrc, tok.pSrcEnd, tok.pTok, tok.pTokEnd, tok.pCur}) EXPECT_EQ(p, nullptr);
  EXPECT_EQ(TStrTok_Find(&tok, ",", 0, 1), 0);
  EXPECT_EQ(TStrTok_FindNth(&tok, 1, ",", 0, 1), 0);
  EXPECT_EQ(TStrTok_MatchStr(&tok, ",", 0, 1), 0);
  EXPECT_EQ(TStrTok_MatchStrNoCase(&tok, ",", 0, 1), 0);
  EXPECT_EQ(TStrTok_MatchLen(&tok, 1), 0);
  EXPECT_EQ(TStrTok_Match2End(&tok), 0);
  EXPECT_EQ(_Match2End_CanEmpty(&tok), 0);
  EXPECT_EQ(TStrTok_GoDelimit_Str(&tok, ",", 1, 0), 0);
  EXPECT_EQ(TStrTok_GoDelimit_Str(&tok, ",", 0, 0), 0);
  EXPECT_EQ(TStrTok_IsTokenEnd(&tok), 1);
  EXPECT_EQ(TStrTok_GetSourceLen(&tok), 0);
  EXPECT_EQ(TStrTok_GetTokenLen(&tok), 0);
  EXPECT_EQ(TStrTok_FindInToken(&tok, ",", 0), nullptr);
}

TEST(SetSource, NullSource_GivesEmptyCopies) {
  TStrTok tok{};
  TStrTok_SetSource(&tok, 0, nullptr, 0);
  GuardedBuffer buffer(4);
  std::int32_t length = 77;
  EXPECT_EQ(TStrTok_GetToken(&tok, buffer.Data(), buffer.Size(), &length), 0);
  EXPECT_EQ(buffer.Bytes(), "\0ZZZ"s);
  EXPECT_EQ(length, 0);
  EXPECT_EQ(TStrTok_GetSource(&tok, buffer.Data(), buffer.Size()), buffer.Data());
  EXPECT_EQ(buffer.Bytes(), "\0ZZZ"s);
}

TEST(SetSource, UsedRecord_StartsAnew) {
  Tokenizer t("a,b");
  TStrTok_Find(&t.tok, "x", 0, 1);
  ASSERT_TRUE(t.IsExhausted());
  TStrTok_SetSource(&t.tok, 0, "c", 0);
  EXPECT_EQ(TStrTok_Match2End(&t.tok), 1);
  EXPECT_EQ(t.Copy(), "c");
}

TEST(SetTrim, FlagIsStoredAndReturned) {
  Tokenizer t("  a");
  EXPECT_EQ(TStrTok_SetTrim(&t.tok, 8), 8U);
  EXPECT_EQ(t.tok.bTrim, 8U);
  TStrTok_Match2End(&t.tok);
  EXPECT_EQ(t.Copy(), "a");
  EXPECT_EQ(TStrTok_SetTrim(&t.tok, 0), 0U);
  EXPECT_EQ(t.Copy(), "  a");
}

// ---- Position rules ----

TEST(Positions, Found_PutsTheTokenBeforeItAndTheCursorAfterIt) {
  Tokenizer t("abcdef");
  t.tok.pCur += 1;
  _SetPosFound(&t.tok, t.tok.pSrc + 3, 2);
  EXPECT_EQ(t.TokenAndAhead(), "bc|f");
}

TEST(Positions, Len_TakesTheNextCharacters) {
  Tokenizer t("abcdef");
  _SetPosLen(&t.tok, 2);
  _SetPosLen(&t.tok, 3);
  EXPECT_EQ(t.TokenAndAhead(), "cde|f");
}

TEST(Positions, ToEnd_TakesTheRest) {
  Tokenizer t("abc");
  _SetPosLen(&t.tok, 1);
  _SetPosToEnd(&t.tok);
  EXPECT_EQ(t.Token(), "bc");
  EXPECT_EQ(t.tok.pCur, t.tok.pSrcEnd);
}

TEST(Positions, Empty_LeavesTheTokensStartAndExhausts) {
  Tokenizer t("abc");
  _SetPosLen(&t.tok, 1);
  _SetPosLen(&t.tok, 1);
  _SetPosEmpty(&t.tok);
  EXPECT_EQ(t.tok.pTok, t.tok.pSrc + 1);
  EXPECT_EQ(t.tok.pTokEnd, t.tok.pSrc + 1);
  EXPECT_TRUE(t.IsExhausted());
}

// ---- Find ----

TEST(Find, Delimiter_EndsTheTokenAndIsConsumed) {
  Tokenizer t("a,b");
  EXPECT_EQ(TStrTok_Find(&t.tok, ",", 0, 0), 1);
  EXPECT_EQ(t.TokenAndAhead(), "a|b");
  EXPECT_EQ(t.tok.nDelimLen, 1);
}

TEST(Find, Success_ShiftsTheDelimiterLengths) {
  Tokenizer t("a::b,c");
  TStrTok_Find(&t.tok, "::", 0, 0);
  TStrTok_Find(&t.tok, ",", 1, 0);
  EXPECT_EQ(t.tok.nPrevDelimLen, 2);
  EXPECT_EQ(t.tok.nDelimLen, 1);
}

TEST(Find, Failure_ChangesNothing) {
  Tokenizer t = AfterComma("a,b");
  const TStrTok before = t.tok;
  EXPECT_EQ(TStrTok_Find(&t.tok, ",", 0, 0), 0);
  EXPECT_TRUE(SamePosition(t.tok, before));
}

TEST(Find, FailureWithEmptyOnFail_Exhausts) {
  Tokenizer t = AfterComma("a,b");
  EXPECT_EQ(TStrTok_Find(&t.tok, ",", 0, 1), 0);
  EXPECT_TRUE(t.IsExhausted());
  EXPECT_EQ(t.Copy(), "");
  EXPECT_EQ(t.tok.nDelimLen, 1);
}

TEST(Find, NoString_ChangesNothingWhateverTheFlagSays) {
  Tokenizer t("abc");
  const TStrTok before = t.tok;
  for (const char *none : {static_cast<const char *>(nullptr), ""}) {
    EXPECT_EQ(TStrTok_Find(&t.tok, none, 2, 1), 0);
    EXPECT_EQ(TStrTok_FindNth(&t.tok, 1, none, 2, 1), 0);
    EXPECT_EQ(TStrTok_MatchStr(&t.tok, none, 2, 1), 0);
    EXPECT_EQ(TStrTok_MatchStrNoCase(&t.tok, none, 2, 1), 0);
    EXPECT_EQ(TStrTok_FindInToken(&t.tok, none, 2), nullptr);
    EXPECT_TRUE(SamePosition(t.tok, before));
  }
}

TEST(Find, NearMisses_AreNotTaken) {
  Tokenizer t("aabaabab");
  EXPECT_EQ(TStrTok_Find(&t.tok, "abab", 0, 0), 1);
  EXPECT_EQ(t.Token(), "aaba");
}

TEST(Find, StringAtTheVeryEnd_IsFound) {
  Tokenizer t("xxab");
  EXPECT_EQ(TStrTok_Find(&t.tok, "ab", 0, 0), 1);
  EXPECT_EQ(t.Ahead(), "");
  EXPECT_FALSE(t.IsExhausted());
}

TEST(Find, StringThatContinuesAfterTheSource_IsNotFound) {
  Tokenizer t("xxa");
  EXPECT_EQ(TStrTok_Find(&t.tok, "a#", 0, 0), 0);
}

TEST(Find, ShorterLength_StillComparesTheWholeStringAfterTheEnd) {
  TStrTok tok{};
  TStrTok_SetSource(&tok, 0, "xabc", 2);  // the source is "xa", the text goes on
  EXPECT_EQ(TStrTok_Find(&tok, "abd", 1, 0), 0);
  EXPECT_EQ(TStrTok_Find(&tok, "abc", 1, 0), 1);
  EXPECT_EQ(tok.pTokEnd, tok.pSrc + 1);
  EXPECT_EQ(tok.pCur, tok.pSrcEnd);
  EXPECT_EQ(tok.nDelimLen, 1);
}

TEST(Find, LongerLength_ConsumesMoreThanTheString) {
  Tokenizer t("a,bcd,e");
  EXPECT_EQ(TStrTok_Find(&t.tok, ",\0\0", 3, 0), 1);
  EXPECT_EQ(t.TokenAndAhead(), "a|d,e");
  EXPECT_EQ(TStrTok_Find(&t.tok, ",\0\0", 3, 0), 0);  // only two characters are left from the comma on
}

TEST(Find, HighBytes_AreCharactersLikeAnyOther) {
  Tokenizer t(
      "a\xff\x80"
      "b");
  EXPECT_EQ(TStrTok_Find(&t.tok, "\xff\x80", 0, 0), 1);
  EXPECT_EQ(t.Ahead(), "b");
}

// ---- FindNth ----

TEST(FindNth, NthOccurrence_EndsOneLongToken) {
  Tokenizer t("a;b;c");
  EXPECT_EQ(TStrTok_FindNth(&t.tok, 2, ";", 0, 0), 2);
  EXPECT_EQ(t.TokenAndAhead(), "a;b|c");
}

TEST(FindNth, TooFew_ReturnsTheirCountAndRestoresThePosition) {
  Tokenizer t = AfterComma("x,a;b;c");
  const TStrTok before = t.tok;
  EXPECT_EQ(TStrTok_FindNth(&t.tok, 3, ";", 0, 0), 2);
  EXPECT_EQ(t.tok.pTok, before.pTok);
  EXPECT_EQ(t.tok.pTokEnd, before.pTokEnd);
  EXPECT_EQ(t.tok.pCur, before.pCur);
}

TEST(FindNth, TooFew_LeavesTheDelimiterLengthsOfTheLastOneFound) {
  Tokenizer t("a::b");
  EXPECT_EQ(TStrTok_FindNth(&t.tok, 2, "::", 0, 0), 1);
  EXPECT_EQ(t.tok.nDelimLen, 2);
}

TEST(FindNth, TooFewWithEmptyOnFail_ReturnsTheirCountAndExhausts) {
  Tokenizer t("a;b;c");
  EXPECT_EQ(TStrTok_FindNth(&t.tok, 3, ";", 0, 1), 2);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(FindNth, CountBelow1_MeansTheLastOccurrence) {
  for (const std::int32_t count : {0, -1}) {
    Tokenizer t("a;b;c");
    EXPECT_EQ(TStrTok_FindNth(&t.tok, count, ";", 0, 1), 2);
    EXPECT_EQ(t.TokenAndAhead(), "a;b|c");
  }
}

TEST(FindNth, CountBelow1WithoutOccurrence_Fails) {
  Tokenizer t("abc");
  EXPECT_EQ(TStrTok_FindNth(&t.tok, 0, ";", 0, 0), 0);
  EXPECT_EQ(t.Ahead(), "abc");
  EXPECT_EQ(TStrTok_FindNth(&t.tok, 0, ";", 0, 1), 0);
  EXPECT_TRUE(t.IsExhausted());
}

// ---- Match ----

TEST(MatchStr, StringAtTheCursor_BecomesTheToken) {
  Tokenizer t("GET /");
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "GET", 0, 0), 1);
  EXPECT_EQ(t.TokenAndAhead(), "GET| /");
  EXPECT_EQ(t.tok.nDelimLen, 3);
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, " ", 1, 0), 1);
  EXPECT_EQ(t.tok.nPrevDelimLen, 3);
  EXPECT_EQ(t.tok.nDelimLen, 1);
}

TEST(MatchStr, Difference_FailsAndChangesNothing) {
  Tokenizer t("get /");
  const TStrTok before = t.tok;
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "GET", 0, 0), 0);
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "et", 0, 0), 0);
  EXPECT_TRUE(SamePosition(t.tok, before));
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "GET", 0, 1), 0);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(MatchStr, FewerCharactersLeft_Fails) {
  Tokenizer t("ab");
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "ab#", 0, 0), 0);
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "ab", kMost, 0), 0);
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "ab", 0, 0), 1);
}

TEST(MatchStr, ShorterLength_ComparesThatMuch) {
  Tokenizer t("abx");
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "abc", 2, 0), 1);
  EXPECT_EQ(t.Ahead(), "x");
}

TEST(MatchStr, LengthThatSpansANul_ComparesAfterIt) {
  const std::string text = "a\0b"s;
  Tokenizer t(text);
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "a\0c", 3, 0), 0);
  EXPECT_EQ(TStrTok_MatchStr(&t.tok, "a\0b", 3, 0), 1);
}

TEST(MatchStrNoCase, AsciiLetters_MatchInEitherCase) {
  Tokenizer t("gEt \xe4");
  EXPECT_EQ(TStrTok_MatchStrNoCase(&t.tok, "GeT", 0, 0), 1);
  EXPECT_EQ(t.Token(), "gEt");
  EXPECT_EQ(TStrTok_MatchStrNoCase(&t.tok, " \xc4", 0, 0), 0);
}

TEST(MatchStrNoCase, NeighboursOfLetters_DoNot) {
  Tokenizer t("@[`{");
  EXPECT_EQ(TStrTok_MatchStrNoCase(&t.tok, "`", 0, 0), 0);
  TStrTok_MatchLen(&t.tok, 1);
  EXPECT_EQ(TStrTok_MatchStrNoCase(&t.tok, "{", 0, 0), 0);
}

TEST(MatchLen, Characters_BecomeTheToken) {
  Tokenizer t("abc");
  EXPECT_EQ(TStrTok_MatchLen(&t.tok, 2), 1);
  EXPECT_EQ(t.Token(), "ab");
  EXPECT_EQ(TStrTok_MatchLen(&t.tok, 1), 1);
  EXPECT_EQ(t.Token(), "c");
  EXPECT_FALSE(t.IsExhausted());
}

TEST(MatchLen, TooFewLeft_FailsButTakesTheRest) {
  for (const std::int32_t length : {5, kMost}) {
    Tokenizer t("xabc");
    TStrTok_MatchLen(&t.tok, 1);
    EXPECT_EQ(TStrTok_MatchLen(&t.tok, length), 0);
    EXPECT_EQ(t.Token(), "abc");
    EXPECT_EQ(t.tok.pCur, t.tok.pSrcEnd);
  }
}

TEST(MatchLen, DelimiterLengths_Stay) {
  Tokenizer t = AfterComma("a,bcd");
  TStrTok_MatchLen(&t.tok, 2);
  EXPECT_EQ(t.tok.nDelimLen, 1);
  EXPECT_EQ(t.tok.nPrevDelimLen, 0);
}

TEST(Match2End, Rest_BecomesTheTokenOnce) {
  Tokenizer t = AfterComma("a,b");
  EXPECT_EQ(TStrTok_Match2End(&t.tok), 1);
  EXPECT_EQ(t.Token(), "b");
  EXPECT_EQ(TStrTok_IsTokenEnd(&t.tok), 1);
  EXPECT_FALSE(t.IsExhausted());
  EXPECT_EQ(t.Copy(), "b");
  EXPECT_EQ(TStrTok_Match2End(&t.tok), 0);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(Match2EndCanEmpty, DelimiterAtTheEnd_IsFollowedByOneEmptyField) {
  Tokenizer t = AfterComma("a,");
  EXPECT_EQ(_Match2End_CanEmpty(&t.tok), 1);
  EXPECT_EQ(t.Token(), "");
  EXPECT_EQ(_Match2End_CanEmpty(&t.tok), 0);
  EXPECT_TRUE(t.IsExhausted());
}

// ---- Fields ----

List FieldsByText(const std::string &text, const char *delimiter, bool canEmpty) {
  return Fields(text, [=](TStrTok *tok) { return TStrTok_GoDelimit_Str(tok, delimiter, canEmpty, 0); });
}

TEST(GoDelimitStr, EmptyFields_AreDelivered) {
  EXPECT_EQ(FieldsByText("a,,b", ",", true), (List{"a", "", "b"}));
  EXPECT_EQ(FieldsByText("a,", ",", true), (List{"a", ""}));
  EXPECT_EQ(FieldsByText(",", ",", true), (List{"", ""}));
  EXPECT_EQ(FieldsByText("a--b-c--", "--", true), (List{"a", "b-c", ""}));
}

TEST(GoDelimitStr, EmptyFields_AreSkipped) {
  EXPECT_EQ(FieldsByText("a,,b", ",", false), (List{"a", "b"}));
  EXPECT_EQ(FieldsByText(",,a,", ",", false), (List{"a"}));
  EXPECT_EQ(FieldsByText(",,", ",", false), List{});
}

TEST(GoDelimitStr, EmptySource_HasNoField) {
  EXPECT_EQ(FieldsByText("", ",", true), List{});
  EXPECT_EQ(FieldsByText("", ",", false), List{});
}

TEST(GoDelimitStr, NoDelimiter_MakesOneField) {
  for (const char *none : {static_cast<const char *>(nullptr), "", "x"}) {
    EXPECT_EQ(FieldsByText("a,b", none, true), (List{"a,b"}));
    EXPECT_EQ(FieldsByText("a,b", none, false), (List{"a,b"}));
  }
}

}  // namespace
