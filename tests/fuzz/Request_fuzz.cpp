// SPDX-License-Identifier: MIT
// The command line of cpld: any words give the same record as a naive reader, and never one that the driver must
// not get.
//
// The input is the words, without the program's name, with a NUL after each.

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cpld/Request.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using cpld::Action;
using Words = std::array<std::int32_t, 6>;

constexpr std::size_t kMostWords = 8;

/// The value of a digit of any base up to 16; 99 when it is none.
unsigned DigitOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return 99;
}

/// strtol with a long of 32 bits, one character at a time. Base 0 takes the base from the prefix.
std::int32_t NaiveNumber(const std::string &word, unsigned base) {
  std::size_t i = word.find_first_not_of(" \t\n\v\f\r");
  if (i == std::string::npos) return 0;
  const bool negative = word[i] == '-';
  if (negative || word[i] == '+') ++i;
  const std::string digits = word.substr(i);
  i = 0;
  if (base == 0) {
    base = digits[0] == '0' ? 8 : 10;
    const bool isHex = digits.size() > 2 && digits[0] == '0' && (digits[1] | 0x20) == 'x' && DigitOf(digits[2]) < 16;
    if (isHex) {
      base = 16;
      i = 2;
    }
  }
  const std::int64_t limit = negative ? 0x80000000LL : 0x7fffffffLL;
  std::int64_t magnitude = 0;
  for (; i < digits.size() && DigitOf(digits[i]) < base; ++i)
    magnitude = std::min<std::int64_t>(limit, magnitude * base + DigitOf(digits[i]));
  return static_cast<std::int32_t>(negative ? -magnitude : magnitude);
}

struct Outcome {
  Action action;
  Words record;

  bool operator==(const Outcome &) const = default;
};

/// The command line by the user's description.
Outcome NaiveOutcome(const std::vector<std::string> &words) {
  constexpr Outcome kUsage{Action::Usage, {}};
  if (words.size() < 2) return kUsage;
  const std::int32_t command = NaiveNumber(words[0], 10);
  const auto number = [&](std::size_t i, unsigned base) {
    return i < words.size() ? NaiveNumber(words[i], base) : 0;
  };
  Words record{0, number(1, 10), number(2, 10), 0, 0, 0};
  switch (command) {
    case 0:
    case 2:
      if (words.size() != 3) return kUsage;
      record[0] = command == 0 ? 10019 : 10018;
      break;
    case 1:
    case 3:
      if (words.size() != 4) return kUsage;
      record[0] = command == 1 ? 10021 : 10020;
      record[3] = number(3, 0);
      break;
    case 4:
      if (words.size() != 2) return kUsage;
      return {Action::DebugSwitch, {10037, record[1] == 0 ? 1 : 0, 0, 0, 0, 0}};
    default:
      break;
  }
  return {Action::Register, record};
}

/// Each word is a block of exactly its size, and so is the vector of them.
Outcome RealOutcome(const std::vector<std::string> &words) {
  std::vector<std::unique_ptr<char[]>> blocks;
  const std::size_t count = words.size() + 1;
  const auto args = std::make_unique<const char *[]>(count + 1);
  args[0] = "cpld";
  for (std::size_t i = 0; i < words.size(); ++i) {
    blocks.push_back(std::make_unique<char[]>(words[i].size() + 1));
    words[i].copy(blocks.back().get(), words[i].size());
    args[i + 1] = blocks.back().get();
  }
  cpld::TAnalogRegRequest request;
  std::memset(&request, 0xA5, sizeof request);
  const Action action = cpld::ParseRequest(static_cast<int>(count), args.get(), &request);
  return {action, std::bit_cast<Words>(request)};
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  devsupport::test::FuzzInput input(data, size);
  std::vector<std::string> words;
  while (!input.IsUsedUp() && words.size() < kMostWords) words.push_back(input.UpTo('\0'));
  const Outcome expected = NaiveOutcome(words);
  const Outcome real = RealOutcome(words);
  EXPECT_EQ(real.action, expected.action);
  EXPECT_EQ(real.record, expected.record);
  return 0;
}
