// SPDX-License-Identifier: MIT
// The token as a number, and the functions that advance first.

#include <devsupport/detail/text/StrTok.h>
#include <devsupport/text/StrTokConvert.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

#include "tests/text/GuardedBuffer.h"
#include "tests/text/StrTokTester.h"

namespace {

using namespace devsupport::test;
using namespace std::string_literals;

/// Flag and value of one conversion of a token.
template <typename Number>
struct Converted {
  int flag;
  Number value;
  bool operator==(const Converted &) const = default;
};

template <typename Number>
std::ostream &operator<<(std::ostream &out, const Converted<Number> &converted) {
  return out << "{flag " << converted.flag << ", value " << +converted.value << "}";
}

template <typename Number>
Converted<Number> Value(std::int32_t (*convert)(const TStrTok *, Number *), const Tokenizer &t) {
  Number value = 77;
  const int flag = convert(&t.tok, &value);
  return {flag, value};
}

using IntResult = Converted<std::int32_t>;
using WordResult = Converted<std::uint16_t>;
using ByteResult = Converted<std::uint8_t>;
using FloatResult = Converted<float>;
using DoubleResult = Converted<double>;

TEST(Token2Number, Token_IsParsedByItsParser) {
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("-42")), (IntResult{1, -42}));
  EXPECT_EQ(Value(TStrTok_Token2Word, Whole("65535")), (WordResult{1, 65535}));
  EXPECT_EQ(Value(TStrTok_Token2Byte, Whole("255")), (ByteResult{1, 255}));
  EXPECT_EQ(Value(TStrTok_Token2Float, Whole("0.1")), (FloatResult{1, 0.1F}));
  EXPECT_EQ(Value(TStrTok_Token2Double, Whole("-1.5")), (DoubleResult{1, -0.5}));
}

TEST(Token2Number, Failure_LeavesWhatTheParserLeaves) {
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("12x")), (IntResult{0, 12}));
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("")), (IntResult{0, 0}));
  EXPECT_EQ(Value(TStrTok_Token2Word, Whole("65536")), (WordResult{0, 0}));
  EXPECT_EQ(Value(TStrTok_Token2Byte, Whole("256")), (ByteResult{0, 0}));
  EXPECT_EQ(Value(TStrTok_Token2Float, Whole("x")), (FloatResult{0, 0.0F}));
  EXPECT_EQ(Value(TStrTok_Token2Double, Whole("2.5x")), (DoubleResult{0, 2.0 + 5.0 / 10.0 / 10.0}));
}

TEST(Token2Number, Exhausted_LeavesTheResultUntouched) {
  Tokenizer t = Whole("42");
  _SetPosEmpty(&t.tok);
  EXPECT_EQ(Value(TStrTok_Token2Int, t), (IntResult{0, 77}));
  EXPECT_EQ(Value(TStrTok_Token2Word, t), (WordResult{0, 77}));
  EXPECT_EQ(Value(TStrTok_Token2Byte, t), (ByteResult{0, 77}));
  EXPECT_EQ(Value(TStrTok_Token2Float, t), (FloatResult{0, 77.0F}));
  EXPECT_EQ(Value(TStrTok_Token2Double, t), (DoubleResult{0, 77.0}));
  EXPECT_EQ(TStrTok_Token2Int_Ret(&t.tok), 0);
}

TEST(Token2Number, TokenEndsTheNumberWhateverFollows) {
  Tokenizer t("123456");
  _SetPosLen(&t.tok, 3);
  EXPECT_EQ(Value(TStrTok_Token2Int, t), (IntResult{1, 123}));
}

TEST(Token2Number, LongToken_IsCutAt15Characters) {
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("00000000000001234567")), (IntResult{1, 12}));
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("000000000000123x")), (IntResult{1, 123}));
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("00000000000123x")), (IntResult{0, 123}));
  EXPECT_EQ(Value(TStrTok_Token2Double, Whole("0000000000001.25")), (DoubleResult{1, 1.0 + 2.0 / 10.0}));
}

TEST(Token2Number, Trimming_DoesNotApply) {
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole(" 7", true)), (IntResult{1, 7}));
  EXPECT_EQ(Value(TStrTok_Token2Int, Whole("7 ", true)), (IntResult{0, 7}));
}

TEST(Token2IntRet, ValueOr0) {
  const Tokenizer number = Whole("-42");
  EXPECT_EQ(TStrTok_Token2Int_Ret(&number.tok), -42);
  const Tokenizer none = Whole("12x");
  EXPECT_EQ(TStrTok_Token2Int_Ret(&none.tok), 0);
}

// ---- Shorthands ----

TEST(FindGetToken, Field_IsCopied) {
  Tokenizer t("ab--c");
  GuardedBuffer buffer(4);
  EXPECT_EQ(TStrTok_FindGetToken(&t.tok, buffer.Data(), buffer.Size(), "--", 0), 1);
  EXPECT_EQ(buffer.Text(), "ab");
  EXPECT_EQ(t.Ahead(), "c");
}

TEST(FindGetToken, MissingDelimiter_ExhaustsAndGivesAnEmptyCopy) {
  Tokenizer t("ab");
  GuardedBuffer buffer(4);
  EXPECT_EQ(TStrTok_FindGetToken(&t.tok, buffer.Data(), buffer.Size(), ",", 1), 0);
  EXPECT_EQ(buffer.Bytes(), "\0ZZZ"s);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(FindGetToken, NoDelimiterGiven_CopiesTheTokenUnchangedAndFails) {
  Tokenizer t = AfterComma("a,b");
  GuardedBuffer buffer(4);
  EXPECT_EQ(TStrTok_FindGetToken(&t.tok, buffer.Data(), buffer.Size(), "", 0), 0);
  EXPECT_EQ(buffer.Text(), "a");
  EXPECT_FALSE(t.IsExhausted());
}

TEST(FindToken2Int, Fields_AreConvertedUntilTheDelimiterIsMissing) {
  Tokenizer t("12,x");
  std::int32_t value = 77;
  EXPECT_EQ(TStrTok_FindToken2Int(&t.tok, &value, ",", 0), 1);
  EXPECT_EQ(value, 12);
  value = 77;
  EXPECT_EQ(TStrTok_FindToken2Int(&t.tok, &value, ",", 0), 0);
  EXPECT_EQ(value, 77);
  EXPECT_TRUE(t.IsExhausted());
}

TEST(FindToken2Int, FieldThatIsNoNumber_Fails) {
  Tokenizer t("1x,2");
  std::int32_t value = 77;
  EXPECT_EQ(TStrTok_FindToken2Int(&t.tok, &value, ",", 0), 0);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(t.Ahead(), "2");
}

TEST(MatchLenGetToken, Characters_AreCopied) {
  Tokenizer t("abcd");
  GuardedBuffer buffer(4);
  EXPECT_EQ(TStrTok_MatchLenGetToken(&t.tok, buffer.Data(), buffer.Size(), 3), 1);
  EXPECT_EQ(buffer.Text(), "abc");
}

TEST(MatchLenGetToken, TooFewLeft_FailsButCopiesTheRest) {
  Tokenizer t("ab");
  GuardedBuffer buffer(4);
  EXPECT_EQ(TStrTok_MatchLenGetToken(&t.tok, buffer.Data(), buffer.Size(), 3), 0);
  EXPECT_EQ(buffer.Text(), "ab");
}

TEST(MatchLen2Int, TooFewLeft_FailsButConvertsTheRest) {
  Tokenizer t("12345");
  std::int32_t value = 77;
  EXPECT_EQ(TStrTok_MatchLen2Int(&t.tok, &value, 3), 1);
  EXPECT_EQ(value, 123);
  EXPECT_EQ(TStrTok_MatchLen2Int(&t.tok, &value, 3), 0);
  EXPECT_EQ(value, 45);
}

TEST(Match2EndGetToken, Rest_IsCopiedOnce) {
  Tokenizer t("ab");
  GuardedBuffer buffer(4);
  EXPECT_EQ(TStrTok_Match2EndGetToken(&t.tok, buffer.Data(), buffer.Size()), 1);
  EXPECT_EQ(buffer.Text(), "ab");
  EXPECT_EQ(TStrTok_Match2EndGetToken(&t.tok, buffer.Data(), buffer.Size()), 0);
  EXPECT_EQ(buffer.Text(), "");
}

TEST(Match2End2Int, Rest_IsConvertedOnce) {
  Tokenizer t("42");
  std::int32_t value = 77;
  EXPECT_EQ(TStrTok_Match2End2Int(&t.tok, &value), 1);
  EXPECT_EQ(value, 42);
  value = 77;
  EXPECT_EQ(TStrTok_Match2End2Int(&t.tok, &value), 0);
  EXPECT_EQ(value, 77);
}

}  // namespace
