// SPDX-License-Identifier: MIT
// Simple number parsers that follow the contract literally, and the comparison of the real ones with them.
#pragma once

#include <devsupport/text/NumberParsing.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace devsupport::test {

struct Number {
  int ok;
  std::int32_t value;
};

inline Number NaiveInt(const std::string &text) {
  if (text.empty()) return {0, 0};
  char *stop = nullptr;
  const long long wide = std::strtoll(text.c_str(), &stop, 10);
  return {*stop == '\0', static_cast<std::int32_t>(std::clamp<long long>(wide, INT32_MIN, INT32_MAX))};
}

inline int NaiveDouble(const std::string &text, double &result) {
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

/// A copy whose last byte is the NUL, so that the address sanitizer sees any read after it.
inline std::unique_ptr<char[]> ExactCopy(const std::string &text) {
  auto copy = std::make_unique<char[]>(text.size() + 1);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

/// Parses a text, which has no NUL in it, with every parser.
inline void ExpectParsedAsByNaiveParsers(const std::string &text) {
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

}  // namespace devsupport::test
