// SPDX-License-Identifier: MIT
// Copies, comparisons and second tokenizers of the current token.

#include <devsupport/detail/text/StrTok.h>
#include <devsupport/text/StrTok.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "tests/text/GuardedBuffer.h"
#include "tests/text/StrTokTester.h"

namespace {

using namespace devsupport::test;
using namespace std::string_literals;

/// "a::b,c" with the token b: two characters of delimiter before it, one after it.
Tokenizer Middle(const std::string &text = "a::b,c") {
  Tokenizer t(text);
  TStrTok_Find(&t.tok, "::", 0, 0);
  TStrTok_Find(&t.tok, ",", 0, 0);
  return t;
}

// ---- GetToken ----

/// Copies the token into a buffer of this size, which holds these bytes afterwards.
void ExpectCopy(const Tokenizer &t, std::size_t room, int result, const std::string &bytes, std::int32_t length) {
  GuardedBuffer buffer(room);
  std::int32_t copied = 77;
  EXPECT_EQ(TStrTok_GetToken(&t.tok, buffer.Data(), buffer.Size(), &copied), result);
  EXPECT_EQ(buffer.Bytes(), bytes);
  EXPECT_EQ(copied, length);
  EXPECT_EQ(TStrTok_GetToken(&t.tok, buffer.Data(), buffer.Size(), nullptr), result);
  EXPECT_EQ(buffer.Bytes(), bytes);
  EXPECT_TRUE(buffer.GuardsIntact());
}

TEST(GetToken, Token_IsCopiedWithItsLength) { ExpectCopy(Whole("abc"), 5, 1, "abc\0Z"s, 3); }

TEST(GetToken, BufferThatJustFits_HoldsTheWholeToken) { ExpectCopy(Whole("abc"), 4, 1, "abc\0"s, 3); }

TEST(GetToken, LongerToken_IsCutWithoutNotice) { ExpectCopy(Whole("abcd"), 4, 1, "abc\0"s, 3); }

TEST(GetToken, RoomForOne_HoldsTheNulAlone) { ExpectCopy(Whole("abcd"), 1, 1, "\0"s, 0); }

TEST(GetToken, SizeBelow1_WritesNothing) {
  Tokenizer t = Whole("abcd");
  GuardedBuffer buffer(4);
  for (const std::int32_t size : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    std::int32_t length = 77;
    EXPECT_EQ(TStrTok_GetToken(&t.tok, buffer.Data(), size, &length), 1);
    EXPECT_EQ(length, 0);
  }
  _SetPosEmpty(&t.tok);
  EXPECT_EQ(TStrTok_GetToken(&t.tok, buffer.Data(), 0, nullptr), 0);
  EXPECT_EQ(buffer.Bytes(), "ZZZZ");
}

TEST(GetToken, Exhausted_GivesEmptyCopyAndLength0) {
  Tokenizer t = Whole("abc");
  _SetPosEmpty(&t.tok);
  ExpectCopy(t, 4, 0, "\0ZZZ"s, 0);
}

TEST(GetToken, TrimmedToken_LosesBlanksAndTabsAtBothEnds) {
  ExpectCopy(Whole("  \t x y \t ", true), 6, 1, "x y\0ZZ"s, 3);
}

TEST(GetToken, TrimmedTokenOfBlanks_IsEmptyAndStillASuccess) { ExpectCopy(Whole("   ", true), 4, 1, "\0ZZZ"s, 0); }

TEST(GetToken, OtherWhiteSpace_IsNotTrimmed) {
  EXPECT_EQ(Whole("\n a \r", true).Copy(), "\n a \r");
  EXPECT_EQ(Whole("\va\f", true).Copy(), "\va\f");
}

TEST(GetToken, TrimmedAndTooLong_KeepsTheBeginning) { ExpectCopy(Whole("  abcdef  ", true), 4, 1, "abc\0"s, 3); }

TEST(GetToken, UntrimmedToken_IsCopiedUnchanged) { EXPECT_EQ(Whole(" \ta\t ").Copy(), " \ta\t "); }

// ---- GetTokenEx ----

std::string CopyEx(const Tokenizer &t, bool leading, bool toCursor) {
  GuardedBuffer buffer(20);
  std::int32_t length = 77;
  EXPECT_EQ(TStrTok_GetTokenEx(&t.tok, buffer.Data(), buffer.Size(), leading, toCursor, &length), 1);
  EXPECT_EQ(static_cast<std::size_t>(length), buffer.Text().size());
  return buffer.Text();
}

TEST(GetTokenEx, Flags_IncludeTheDelimitersAround) {
  const Tokenizer t = Middle();
  EXPECT_EQ(CopyEx(t, false, false), "b");
  EXPECT_EQ(CopyEx(t, true, false), "::b");
  EXPECT_EQ(CopyEx(t, false, true), "b,");
  EXPECT_EQ(CopyEx(t, true, true), "::b,");
}

TEST(GetTokenEx, Trimming_AppliesToTheWholeSpan) {
  Tokenizer t("a \tb ,c");
  TStrTok_Find(&t.tok, " \t", 0, 0);
  TStrTok_Find(&t.tok, ",", 0, 0);
  TStrTok_SetTrim(&t.tok, 1);
  EXPECT_EQ(CopyEx(t, true, false), "b");
  EXPECT_EQ(CopyEx(t, true, true), "b ,");
}

TEST(GetTokenEx, Exhausted_GivesEmptyCopy) {
  Tokenizer t = Middle();
  _SetPosEmpty(&t.tok);
  GuardedBuffer buffer(4);
  std::int32_t length = 77;
  EXPECT_EQ(TStrTok_GetTokenEx(&t.tok, buffer.Data(), buffer.Size(), 1, 1, &length), 0);
  EXPECT_EQ(buffer.Bytes(), "\0ZZZ"s);
  EXPECT_EQ(length, 0);
}

TEST(GetTokenEx, LeadingDelimiterThatIsNotThere_BeginsWithTheSource) {
  Tokenizer t("a::b::c");
  TStrTok_FindNth(&t.tok, 2, "::", 0, 0);  // the token begins the source, the delimiter length says 2
  ASSERT_EQ(t.tok.nPrevDelimLen, 2);
  EXPECT_EQ(CopyEx(t, true, false), "a::b");
}

// ---- Second tokenizers ----

TEST(Token2Tok, Token_BecomesTheSource) {
  Tokenizer t = Middle("a::bcd,e");
  t.tok.bTrim = 1;
  TStrTok sub{};
  sub.nDelimLen = sub.nPrevDelimLen = 77;
  EXPECT_EQ(TStrTok_Token2Tok(&t.tok, &sub), 1);
  EXPECT_EQ(std::string(sub.pSrc, sub.pSrcEnd), "bcd");
  EXPECT_EQ(sub.pCur, sub.pSrc);
  EXPECT_EQ(sub.pTok, sub.pSrc);
  EXPECT_EQ(sub.pTokEnd, sub.pSrc);
  EXPECT_EQ(sub.bTrim, 1U);
  EXPECT_EQ(sub.nDelimLen, 0);
  EXPECT_EQ(sub.nPrevDelimLen, 0);
}

TEST(Token2Tok, SameRecord_StepsInto) {
  Tokenizer t = Middle("a::bcd,e");
  EXPECT_EQ(TStrTok_Token2Tok(&t.tok, &t.tok), 1);
  EXPECT_EQ(t.Ahead(), "bcd");
}

TEST(Token2Tok, Exhausted_OpensAnExhaustedOne) {
  Tokenizer t = Middle();
  t.tok.bTrim = 1;
  _SetPosEmpty(&t.tok);
  TStrTok sub = t.tok;
  EXPECT_EQ(TStrTok_Token2Tok(&t.tok, &sub), 0);
  EXPECT_EQ(sub.pSrc, nullptr);
  EXPECT_EQ(sub.pSrcEnd, nullptr);
  EXPECT_EQ(sub.pCur, nullptr);
  EXPECT_EQ(sub.bTrim, 1U);
  EXPECT_EQ(TStrTok_Token2TokEx(&t.tok, &sub, 1, 1), 0);
  EXPECT_EQ(sub.pCur, nullptr);
}

TEST(Token2Tok, EmptyToken_OpensTheTextUpToItsNul) {
  TStrTok tok{};
  TStrTok_SetSource(&tok, 0, ",b;c", 0);
  TStrTok_Find(&tok, ",", 0, 0);
  TStrTok sub{};
  EXPECT_EQ(TStrTok_Token2Tok(&tok, &sub), 1);
  EXPECT_EQ(std::string(sub.pSrc, sub.pSrcEnd), ",b;c");
}

TEST(Token2Tok, EmptyTokenOfATextWithoutNul_EndsWithTheSource) {
  Tokenizer t = AfterComma(",b;c");
  TStrTok sub{};
  EXPECT_EQ(TStrTok_Token2Tok(&t.tok, &sub), 1);
  EXPECT_EQ(std::string(sub.pSrc, sub.pSrcEnd), ",b;c");
  Tokenizer end = AfterComma("a,");
  _Match2End_CanEmpty(&end.tok);
  EXPECT_EQ(TStrTok_Token2Tok(&end.tok, &sub), 1);
  EXPECT_EQ(TStrTok_GetSourceLen(&sub), 0);
  EXPECT_EQ(sub.pSrc, end.tok.pSrcEnd);
}

TEST(Token2TokEx, Flags_IncludeTheDelimitersAround) {
  const Tokenizer t = Middle();
  TStrTok sub{};
  EXPECT_EQ(TStrTok_Token2TokEx(&t.tok, &sub, 1, 0), 1);
  EXPECT_EQ(std::string(sub.pSrc, sub.pSrcEnd), "::b");
  EXPECT_EQ(TStrTok_Token2TokEx(&t.tok, &sub, 0, 1), 1);
  EXPECT_EQ(std::string(sub.pSrc, sub.pSrcEnd), "b,");
}

// ---- GetSource ----

TEST(GetSource, WholeSource_IsCopiedUntrimmed) {
  Tokenizer t = Whole(" ab ", true);
  GuardedBuffer buffer(8);
  EXPECT_EQ(TStrTok_GetSource(&t.tok, buffer.Data(), buffer.Size()), buffer.Data() + 4);
  EXPECT_EQ(buffer.Bytes(), " ab \0ZZZ"s);
  _SetPosEmpty(&t.tok);
  EXPECT_EQ(TStrTok_GetSource(&t.tok, buffer.Data(), 3), buffer.Data() + 2);
  EXPECT_EQ(buffer.Text(), " a");
}

// ---- TokenIs ----

int Is(const Tokenizer &t, const char *string) { return TStrTok_TokenIs(&t.tok, string); }
int IsNoCase(const Tokenizer &t, const char *string) { return TStrTok_TokenIsNoCase(&t.tok, string); }

TEST(TokenIs, EqualAndDifferentStrings) {
  const Tokenizer t = Whole("ab");
  EXPECT_EQ(Is(t, "ab"), 1);
  EXPECT_EQ(Is(t, "aB"), 0);
  EXPECT_EQ(Is(t, "xb"), 0);
}

TEST(TokenIs, TokenThatBeginsTheString_IsIt) {
  EXPECT_EQ(Is(Whole("ab"), "abc"), 1);
  EXPECT_EQ(IsNoCase(Whole("ab"), "ABC"), 1);
}

TEST(TokenIs, EmptyToken_IsAnyString) {
  const Tokenizer t("ab");
  EXPECT_EQ(Is(t, "x"), 1);
  EXPECT_EQ(Is(t, ""), 1);
  EXPECT_EQ(IsNoCase(t, "x"), 1);
}

TEST(TokenIs, TokenLongerThanTheString_IsNot) {
  EXPECT_EQ(Is(Whole("abc"), "ab"), 0);
  EXPECT_EQ(IsNoCase(Whole("abc"), "ab"), 0);
  EXPECT_EQ(Is(Whole("a"), ""), 0);
}

TEST(TokenIs, TokenWithNul_IsComparedNoFurtherThanTheStringGoes) {
  const auto string = std::make_unique<char[]>(3);
  string[0] = 'a';
  string[1] = 'b';
  EXPECT_EQ(Is(Whole("ab\0"s), string.get()), 1);
  EXPECT_EQ(Is(Whole("ab\0c"s), string.get()), 0);
  EXPECT_EQ(IsNoCase(Whole("AB\0c"s), string.get()), 1);
}

TEST(TokenIsNoCase, OnlyAsciiLettersFold) {
  EXPECT_EQ(IsNoCase(Whole("aZ"), "Az"), 1);
  EXPECT_EQ(IsNoCase(Whole("@"), "`"), 0);
  EXPECT_EQ(IsNoCase(Whole("\xe4"), "\xc4"), 0);
}

// ---- FindInToken ----

TEST(FindInToken, OnlyTheTokenIsSearched) {
  Tokenizer t("xbab;b");
  TStrTok_Find(&t.tok, ";", 0, 0);
  const TStrTok before = t.tok;
  EXPECT_EQ(TStrTok_FindInToken(&t.tok, "ab", 0), t.tok.pSrc + 2);
  EXPECT_EQ(TStrTok_FindInToken(&t.tok, "b;", 0), nullptr);
  EXPECT_EQ(TStrTok_FindInToken(&t.tok, ";", 0), nullptr);
  EXPECT_TRUE(SamePosition(t.tok, before));
}

TEST(FindInToken, ShorterLength_StillComparesTheWholeStringAfterTheToken) {
  Tokenizer t("xab;b");
  TStrTok_Find(&t.tok, ";", 0, 0);
  EXPECT_EQ(TStrTok_FindInToken(&t.tok, "b;b", 1), t.tok.pSrc + 2);
  EXPECT_EQ(TStrTok_FindInToken(&t.tok, "b;x", 1), nullptr);
}

// ---- Accessors ----

TEST(Accessors, GiveTheFieldsAndTheirDistances) {
  const Tokenizer t = Middle();
  EXPECT_EQ(TStrTok_GetSourcePtr(&t.tok), t.tok.pSrc);
  EXPECT_EQ(TStrTok_GetSourceEnd(&t.tok), t.tok.pSrcEnd);
  EXPECT_EQ(TStrTok_GetSourceLen(&t.tok), 6);
  EXPECT_EQ(TStrTok_GetTokenPtr(&t.tok), t.tok.pTok);
  EXPECT_EQ(TStrTok_GetTokenEndPtr(&t.tok), t.tok.pTokEnd);
  EXPECT_EQ(TStrTok_GetCurPtr(&t.tok), t.tok.pCur);
  EXPECT_EQ(TStrTok_GetTokenPos(&t.tok), 3);
  EXPECT_EQ(TStrTok_GetTokenEndPos(&t.tok), 4);
  EXPECT_EQ(TStrTok_GetCurPos(&t.tok), 5);
  EXPECT_EQ(TStrTok_GetTokenLen(&t.tok), 1);
}

TEST(Accessors, SourceLenWithoutEnd_Is0) {
  TStrTok tok{};
  tok.pSrc = "abc";
  EXPECT_EQ(TStrTok_GetSourceLen(&tok), 0);
}

}  // namespace
