// SPDX-License-Identifier: MIT
// The characters of texts from any source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tools {

/// The UTF-8 character at the start of some bytes.
/// Returns its length, and its number in point; 0 when there is none: no overlong forms, no surrogates. Then point is
/// not set.
std::size_t FirstCharacter(std::string_view bytes, std::uint32_t &point);

/// Whether the bytes are UTF-8 without a NUL.
bool IsText(std::string_view bytes);

/// Whether a character changes the direction of the text around it, so that what is shown differs from what is written.
constexpr bool IsDirection(std::uint32_t point) {
  return point == 0x61c || point == 0x200e || point == 0x200f || (point >= 0x202a && point <= 0x202e) ||
         (point >= 0x2066 && point <= 0x2069);
}

/// Whether a character does something to a terminal instead of being shown.
constexpr bool IsControl(std::uint32_t point) {
  return point < 0x20 || (point >= 0x7f && point < 0xa0) || IsDirection(point);
}

}  // namespace tools
