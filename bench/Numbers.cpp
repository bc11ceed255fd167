// SPDX-License-Identifier: MIT
// Number parsing: NUL-terminated decimal texts of one to ten digits, some with a sign. The whole text must be a
// number.

#include <devsupport/text/NumberParsing.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "bench/Peers.h"
#include "bench/Row.h"

#if DEVSUPPORT_PEER_ABSEIL
#include <absl/strings/numbers.h>
#endif

namespace devsupport::bench {

namespace {

using Text = std::array<char, 16>;

const std::vector<Text> &Texts() {
  static const auto texts = [] {
    std::mt19937 random(4711);
    std::vector<Text> made(4096);
    for (Text &text : made) {
      // As many short numbers as long ones.
      const int value = static_cast<int>((random() & 0x7FFFFFFFU) >> (random() % 31));
      std::snprintf(text.data(), text.size(), "%d", random() % 8 == 0 ? -value : value);
    }
    return made;
  }();
  return texts;
}

// kParse returns whether the whole text was a number.
template <bool (*kParse)(const Text &, int &)>
void Parse(benchmark::State &state) {
  const auto &texts = Texts();
  std::size_t turn = 0;
  for (auto _ : state) {
    int value = 0;
    benchmark::DoNotOptimize(kParse(texts[turn++ % texts.size()], value));
    benchmark::DoNotOptimize(value);
  }
}

bool Ours(const Text &text, int &value) { return Str2Int(text.data(), &value) != 0; }

// The floor: only digits and a minus sign, and no check whether the number fits.
bool Digits(const Text &text, int &value) {
  const bool negative = text[0] == '-';
  const char *digit = text.data() + (negative ? 1 : 0);
  unsigned sum = 0;
  for (; *digit != '\0'; ++digit) sum = sum * 10 + static_cast<unsigned>(*digit - '0');
  value = static_cast<int>(negative ? 0U - sum : sum);
  return true;
}

bool Strtol(const Text &text, int &value) {
  char *end = nullptr;
  value = static_cast<int>(std::strtol(text.data(), &end, 10));
  return *end == '\0' && end != text.data();
}

// Needs no strlen: it stops at the NUL, as at any character that is no digit.
bool FromChars(const Text &text, int &value) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() && *result.ptr == '\0';
}

#if DEVSUPPORT_PEER_ABSEIL
bool SimpleAtoi(const Text &text, int &value) { return absl::SimpleAtoi(text.data(), &value); }
#endif

}  // namespace

void RegisterNumbers() {
  const Row row("str2int", "parse a decimal text of 1 to 10 digits", kAheadOfEveryPeer);
  row.Ours(Parse<Ours>).Floor("digits only, unchecked", Parse<Digits>);
  row.Peer("strtol", Parse<Strtol>).Peer("std::from_chars", Parse<FromChars>);
#if DEVSUPPORT_PEER_ABSEIL
  row.Peer("absl::SimpleAtoi", Parse<SimpleAtoi>);
#endif
}

}  // namespace devsupport::bench
