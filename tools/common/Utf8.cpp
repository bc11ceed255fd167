// SPDX-License-Identifier: MIT
// The characters of texts from any source.

#include "tools/common/Utf8.h"

namespace tools {

namespace {

constexpr std::uint8_t Byte(char c) { return static_cast<std::uint8_t>(c); }

constexpr bool IsSurrogate(std::uint32_t point) { return point >= 0xd800 && point < 0xe000; }

// Bytes that follow the first one, and the smallest character that needs so many.
struct Length {
  std::size_t following;
  std::uint32_t smallest;
};

// A byte that begins no character needs more bytes than there are.
constexpr Length LengthOf(std::uint8_t first) {
  if (first < 0x80) return {0, 0};
  if (first >= 0xc0 && first < 0xe0) return {1, 0x80};
  if (first >= 0xe0 && first < 0xf0) return {2, 0x800};
  if (first >= 0xf0 && first < 0xf8) return {3, 0x10000};
  return {SIZE_MAX, 0};
}

}  // namespace

std::size_t FirstCharacter(std::string_view bytes, std::uint32_t &point) {
  if (bytes.empty()) return 0;
  const std::uint8_t first = Byte(bytes[0]);
  const auto [following, smallest] = LengthOf(first);
  if (following >= bytes.size()) return 0;
  std::uint32_t code = following == 0 ? first : first & (0x3fU >> following);
  for (std::size_t i = 1; i <= following; ++i) {
    if ((Byte(bytes[i]) & 0xc0) != 0x80) return 0;
    code = code << 6 | (Byte(bytes[i]) & 0x3fU);
  }
  if (code < smallest || code > 0x10ffff || IsSurrogate(code)) return 0;
  point = code;
  return following + 1;
}

bool IsText(std::string_view bytes) {
  while (!bytes.empty()) {
    std::uint32_t point = 0;
    const std::size_t size = FirstCharacter(bytes, point);
    if (size == 0 || point == 0) return false;
    bytes.remove_prefix(size);
  }
  return true;
}

}  // namespace tools
