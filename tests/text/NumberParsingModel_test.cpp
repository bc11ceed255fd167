// SPDX-License-Identifier: MIT
// Random texts for the number parsers and for simple ones that follow the contract literally.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

#include "tests/support/TestSeed.h"
#include "tests/text/NaiveNumbers.h"

namespace {

using namespace devsupport::test;

constexpr int kTexts = 300'000;

/// Mostly digits, with special characters between and around them.
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

TEST(NumberParsingModel, RandomTexts_ParseAsTheNaiveParsersDo) {
  const TestSeed seed;
  Texts texts(seed);
  for (int i = 0; i < kTexts; ++i) {
    ExpectParsedAsByNaiveParsers(texts.Next());
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
