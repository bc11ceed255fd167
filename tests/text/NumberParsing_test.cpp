// SPDX-License-Identifier: MIT
// The number parsers: accepted texts, stored values, and the values after a failure.

#include <devsupport/detail/text/NumberParsing.h>
#include <devsupport/text/NumberParsing.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>

namespace {

/// Flag and stored value of one call.
template <typename T>
struct Parsed {
  int flag;
  T value;
  bool operator==(const Parsed &) const = default;
};

template <typename T>
std::ostream &operator<<(std::ostream &out, const Parsed<T> &parsed) {
  return out << "{flag " << parsed.flag << ", value " << +parsed.value << "}";
}

template <typename T>
Parsed<T> Run(int (*parser)(const char *, T *), const std::string &text) {
  T value = static_cast<T>(77);
  const int flag = parser(text.c_str(), &value);
  return {flag, value};
}

Parsed<std::int32_t> Int(const std::string &text) { return Run(Str2Int, text); }
Parsed<std::uint16_t> Word(const std::string &text) { return Run(Str2Word, text); }
Parsed<std::uint8_t> Byte(const std::string &text) { return Run(Str2Byte, text); }
Parsed<double> Double(const std::string &text) { return Run(Str2Double, text); }
Parsed<float> Float(const std::string &text) { return Run(Str2Float, text); }

using IntResult = Parsed<std::int32_t>;
using WordResult = Parsed<std::uint16_t>;
using ByteResult = Parsed<std::uint8_t>;
using DoubleResult = Parsed<double>;
using FloatResult = Parsed<float>;

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();

TEST(Str2Int, PlainNumber_IsStored) {
  EXPECT_EQ(Int("42"), (IntResult{1, 42}));
  EXPECT_EQ(Int("0"), (IntResult{1, 0}));
  EXPECT_EQ(Int("000000000000000000000000000042"), (IntResult{1, 42}));
  EXPECT_EQ(Int("010"), (IntResult{1, 10}));
}

TEST(Str2Int, LeadingSpaceAndSign_AreRead) {
  EXPECT_EQ(Int(" -7"), (IntResult{1, -7}));
  EXPECT_EQ(Int("+7"), (IntResult{1, 7}));
  EXPECT_EQ(Int(" \t\n\v\f\r7"), (IntResult{1, 7}));
}

TEST(Str2Int, TextAfterTheNumber_FailsAndStoresTheNumber) {
  EXPECT_EQ(Int("12abc"), (IntResult{0, 12}));
  EXPECT_EQ(Int("-12 "), (IntResult{0, -12}));
  EXPECT_EQ(Int("0x10"), (IntResult{0, 0}));
  EXPECT_EQ(Int("1e5"), (IntResult{0, 1}));
  EXPECT_EQ(Int("99999999999x"), (IntResult{0, kIntMax}));
}

TEST(Str2Int, NoDigits_FailsAndStores0) {
  for (const char *text : {"", "x", "-", "+", " ", "  -", "--1", "+-1", "- 1", ".", "\xb2"})
    EXPECT_EQ(Int(text), (IntResult{0, 0})) << '"' << text << '"';
}

TEST(Str2Int, NeighboursOfDigitsAndSpace_AreNeither) {
  for (const char *text : {"1/", "1:",
                           "\x08"
                           "1",
                           "\x0e"
                           "1",
                           "\xa0"
                           "1"})
    EXPECT_EQ(Int(text).flag, 0) << '"' << text << '"';
}

TEST(Str2Int, LimitsOf32Bits_AreStored) {
  EXPECT_EQ(Int("2147483647"), (IntResult{1, kIntMax}));
  EXPECT_EQ(Int("-2147483648"), (IntResult{1, kIntMin}));
  EXPECT_EQ(Int("-2147483647"), (IntResult{1, -kIntMax}));
}

TEST(Str2Int, NumberBeyond32Bits_ClampsAndStillReports1) {
  for (const char *text : {"2147483648", "2147483649", "4294967296", "4294967297", "9223372036854775808",
                           "18446744073709551617", "18446744073709551616000000000000042"}) {
    EXPECT_EQ(Int(text), (IntResult{1, kIntMax})) << text;
    EXPECT_EQ(Int(std::string("-") + text).flag, 1) << text;
    EXPECT_EQ(Int(std::string("-") + text).value, kIntMin) << text;
  }
}

TEST(Str2Int, ManyLeadingZeros_DoNotClamp) {
  EXPECT_EQ(Int(std::string(40, '0') + "2147483647"), (IntResult{1, kIntMax}));
  EXPECT_EQ(Int(std::string(40, '0') + "2147483646"), (IntResult{1, kIntMax - 1}));
  EXPECT_EQ(Int("-" + std::string(40, '0') + "2147483648"), (IntResult{1, kIntMin}));
  EXPECT_EQ(Int(std::string(40, '0') + "2147483648"), (IntResult{1, kIntMax}));
  EXPECT_EQ(Int(std::string(40, '0')), (IntResult{1, 0}));
}

TEST(Str2Int, ErrnoIsLeftAlone) {
  errno = 0;
  Int("99999999999999999999");
  Int("x");
  EXPECT_EQ(errno, 0);
}

TEST(Str2Word, Range_Is0To65535) {
  EXPECT_EQ(Word("0"), (WordResult{1, 0}));
  EXPECT_EQ(Word(" +65535"), (WordResult{1, 65535}));
  EXPECT_EQ(Word("-0"), (WordResult{1, 0}));
}

TEST(Str2Word, AnythingElse_FailsAndStores0) {
  for (const char *text : {"", "65536", "-1", "12x", "x", " ", "4294967296", "4294967297", "-4294967295"})
    EXPECT_EQ(Word(text), (WordResult{0, 0})) << '"' << text << '"';
}

TEST(Str2Byte, Range_Is0To255) {
  EXPECT_EQ(Byte("0"), (ByteResult{1, 0}));
  EXPECT_EQ(Byte("255"), (ByteResult{1, 255}));
}

TEST(Str2Byte, AnythingElse_FailsAndStores0) {
  for (const char *text : {"", "256", "-1", "-256", "12x", "x", " ", "65536", "4294967297"})
    EXPECT_EQ(Byte(text), (ByteResult{0, 0})) << '"' << text << '"';
}

TEST(Str2Double, IntegerAndFraction_AreAdded) {
  EXPECT_EQ(Double("3.25"), (DoubleResult{1, 3.25}));
  EXPECT_EQ(Double("12"), (DoubleResult{1, 12.0}));
  EXPECT_EQ(Double("-12"), (DoubleResult{1, -12.0}));
  EXPECT_EQ(Double("1.05"), (DoubleResult{1, 1.0 + 5.0 / 10.0 / 10.0}));
}

TEST(Str2Double, EmptySide_CountsAs0) {
  EXPECT_EQ(Double(".5"), (DoubleResult{1, 0.5}));
  EXPECT_EQ(Double("5."), (DoubleResult{1, 5.0}));
  EXPECT_EQ(Double("."), (DoubleResult{1, 0.0}));
}

TEST(Str2Double, Sign_DoesNotReachTheFraction) {
  EXPECT_EQ(Double("-1.5"), (DoubleResult{1, -0.5}));
  EXPECT_EQ(Double("-0.5"), (DoubleResult{1, 0.5}));
}

TEST(Str2Double, SignAfterTheDot_IsTheFractionsAndTakesAPlace) {
  EXPECT_EQ(Double("1.-5"), (DoubleResult{1, 1.0 + -5.0 / 10.0 / 10.0}));
  EXPECT_EQ(Double("1.+5"), (DoubleResult{1, 1.0 + 5.0 / 10.0 / 10.0}));
  EXPECT_EQ(Double("1. 5"), (DoubleResult{1, 1.0 + 5.0 / 10.0 / 10.0}));
}

TEST(Str2Double, SignWithoutDigits_FailsButTheFractionIsStored) {
  EXPECT_EQ(Double("-.5"), (DoubleResult{0, 0.5}));
  EXPECT_EQ(Double("x.5"), (DoubleResult{0, 0.5}));
}

TEST(Str2Double, TextAfterTheFraction_FailsAndTakesPlaces) {
  EXPECT_EQ(Double("1.5 "), (DoubleResult{0, 1.0 + 5.0 / 10.0 / 10.0}));
  EXPECT_EQ(Double("1 .5"), (DoubleResult{0, 1.5}));
}

TEST(Str2Double, Exponent_IsNoNumber) {
  EXPECT_EQ(Double("1e5"), (DoubleResult{0, 1.0}));
  EXPECT_EQ(Double("1.5e1"), (DoubleResult{0, 1.0 + 5.0 / 10.0 / 10.0 / 10.0}));
}

TEST(Str2Double, SeveralDots_FailAndStore0) {
  EXPECT_EQ(Double("1.2.3"), (DoubleResult{0, 0.0}));
  EXPECT_EQ(Double(".."), (DoubleResult{0, 0.0}));
}

TEST(Str2Double, NoText_FailsAndStores0) {
  EXPECT_EQ(Double(""), (DoubleResult{0, 0.0}));
  double value = 77;
  EXPECT_EQ(Str2Double(nullptr, &value), 0);
  EXPECT_EQ(value, 0.0);
}

TEST(Str2Double, BothSides_ClampTo32Bits) {
  EXPECT_EQ(Double("99999999999"), (DoubleResult{1, 2147483647.0}));
  EXPECT_EQ(Double("-99999999999."), (DoubleResult{1, -2147483648.0}));
  double fraction = 2147483647.0;
  for (int i = 0; i < 11; ++i) fraction /= 10.0;
  EXPECT_EQ(Double("1.99999999999"), (DoubleResult{1, 1.0 + fraction}));
}

TEST(Str2Double, IntegerPart_IsCutAt64Characters) {
  const std::string blanks(63, ' ');
  EXPECT_EQ(Double(blanks + "7.5"), (DoubleResult{1, 7.5}));
  EXPECT_EQ(Double(blanks + "78.5"), (DoubleResult{1, 7.5}));
  EXPECT_EQ(Double(blanks + "7x.5"), (DoubleResult{1, 7.5}));
  EXPECT_EQ(Double(blanks + " 7.5"), (DoubleResult{0, 0.5}));
  EXPECT_EQ(Double(blanks + "78"), (DoubleResult{1, 78.0}));  // without a dot the text is not cut
}

TEST(Str2Double, LongFraction_VanishesWithoutHarm) {
  EXPECT_EQ(Double("2." + std::string(1000, '1')), (DoubleResult{1, 2.0}));
}

TEST(Str2Double, Worker_DoesTheSame) {
  double value = 77;
  EXPECT_EQ(_Str2Double("-1.5", &value), 1);
  EXPECT_EQ(value, -0.5);
}

TEST(Str2Float, Result_IsNarrowed) {
  EXPECT_EQ(Float("3.25"), (FloatResult{1, 3.25F}));
  EXPECT_EQ(Float("0.1"), (FloatResult{1, 0.1F}));
  EXPECT_EQ(Float("16777217"), (FloatResult{1, 16777216.0F}));
}

TEST(Str2Float, Failure_StillStores) {
  EXPECT_EQ(Float("x"), (FloatResult{0, 0.0F}));
  EXPECT_EQ(Float(""), (FloatResult{0, 0.0F}));
  EXPECT_EQ(Float("1.2.3"), (FloatResult{0, 0.0F}));
  EXPECT_EQ(Float("2.5x"), (FloatResult{0, 2.05F}));
  float value = 77;
  EXPECT_EQ(Str2Float(nullptr, &value), 0);
  EXPECT_EQ(value, 0.0F);
}

}  // namespace
