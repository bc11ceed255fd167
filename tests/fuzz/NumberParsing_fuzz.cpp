// SPDX-License-Identifier: MIT
// The number parsers: any text gives the result of the naive parsers, and a number's own text gives the number.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/text/NaiveNumbers.h"

namespace {

/// The input's first bytes as a number, written out and read again.
void ExpectRoundTrip(std::string_view bytes) {
  std::int32_t number = 0;
  std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
  std::int32_t again = ~number;
  EXPECT_EQ(Str2Int(std::to_string(number).c_str(), &again), 1);
  EXPECT_EQ(again, number);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char *>(data), size);
  if (size > 0) ExpectRoundTrip(bytes);
  devsupport::test::ExpectParsedAsByNaiveParsers(std::string(bytes.substr(0, bytes.find('\0'))));
  return 0;
}
