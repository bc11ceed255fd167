// Random texts through the number parsers and through naive ones that follow the contract word for word.

#include <devsupport/text/NumberParsing.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "support/TestSeed.h"

namespace {

using devsupport::test::SeedHint;
using devsupport::test::TestSeed;

constexpr int kTexts = 300'000;

struct Number {
  int ok;
  std::int32_t value;
};

Number NaiveInt(const std::string &text) {
  if (text.empty()) return {0, 0};
  char *stop = nullptr;
  const long long wide = std::strtoll(text.c_str(), &stop, 10);
  return {*stop == '\0', static_cast<std::int32_t>(std::clamp<long long>(wide, INT32_MIN, INT32_MAX))};
}

int NaiveDouble(const std::string &text, double &result) {
  result = 0.0;
  if (text.empty()) return 0;
  const auto dots = std::count(text.begin(), text.end(), '.');
  if (dots > 1) return 0;
  if (dots == 0) {
    const Number whole = NaiveInt(text);
    result = whole.value;
    return whole.ok;
  }
  const std::string integer = text.substr(0, std::min<std::size_t>(text.find('.'), 64));
  const std::string fraction = text.substr(text.find('.') + 1);
  int ok = 1;
  if (!integer.empty()) {
    ok &= NaiveInt(integer).ok;
    result = NaiveInt(integer).value;
  }
  double scaled = 0.0;
  if (!fraction.empty()) {
    ok &= NaiveInt(fraction).ok;
    scaled = NaiveInt(fraction).value;
    for (std::size_t i = 0; i < fraction.size(); ++i) scaled = scaled / 10.0;
  }
  result = result + scaled;
  return ok;
}

/// Mostly digits, with what makes a difference between and around them.
class Texts {
 public:
  explicit Texts(std::uint64_t seed) : random_(seed) {}

  std::string Next() {
    std::string text;
    if (Below(4) == 0) text.append(Below(70), " \t0"[Below(3)]);
    if (Below(3) == 0) text += "+-"[Below(2)];
    const std::size_t length = Below(24);
    const bool digitsOnly = Below(2) == 0;
    for (std::size_t i = 0; i < length; ++i) text += digitsOnly ? Digit() : Any();
    return text;
  }

 private:
  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  char Digit() { return static_cast<char>('0' + Below(10)); }
  char Any() {
    static constexpr char kOthers[] = ". +-\t\n\r\v\fxe/:\x80\xb1\xff.";
    return Below(5) == 0 ? kOthers[Below(sizeof kOthers - 1)] : Digit();
  }

  std::mt19937_64 random_;
};

/// A copy whose last byte is the NUL, so that the address sanitizer sees any read behind it.
std::unique_ptr<char[]> ExactCopy(const std::string &text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

TEST(NumberParsingModel, RandomTexts_ParseAsTheNaiveParsersDo) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedHint(seed));
  Texts texts(seed);
  for (int i = 0; i < kTexts; ++i) {
    const std::string text = texts.Next();
    const auto copy = ExactCopy(text);
    const Number number = NaiveInt(text);

    std::int32_t value = 77;
    ASSERT_EQ(Str2Int(copy.get(), &value), number.ok) << '"' << text << '"';
    ASSERT_EQ(value, number.value) << '"' << text << '"';

    const bool isWord = number.ok != 0 && number.value >= 0 && number.value <= 65535;
    std::uint16_t word = 77;
    ASSERT_EQ(Str2Word(copy.get(), &word), isWord) << '"' << text << '"';
    ASSERT_EQ(word, isWord ? number.value : 0) << '"' << text << '"';

    const bool isByte = number.ok != 0 && number.value >= 0 && number.value <= 255;
    std::uint8_t byte = 77;
    ASSERT_EQ(Str2Byte(copy.get(), &byte), isByte) << '"' << text << '"';
    ASSERT_EQ(byte, isByte ? number.value : 0) << '"' << text << '"';

    double expected = 77;
    const int expectedOk = NaiveDouble(text, expected);
    double real = 77;
    ASSERT_EQ(Str2Double(copy.get(), &real), expectedOk) << '"' << text << '"';
    ASSERT_EQ(real, expected) << '"' << text << '"';
    float single = 77;
    ASSERT_EQ(Str2Float(copy.get(), &single), expectedOk) << '"' << text << '"';
    ASSERT_EQ(single, static_cast<float>(expected)) << '"' << text << '"';
  }
}

}  // namespace
