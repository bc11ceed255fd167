// SPDX-License-Identifier: MIT
// Numbers on the command line.

#include "tools/common/Numbers.h"

#include "tools/common/Text.h"

namespace tools {

unsigned DigitValue(char character) {
  constexpr unsigned kNone = 99;
  if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a') + 10;
  if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A') + 10;
  return kNone;
}

bool ParseDigits(std::string_view digits, unsigned base, std::uint32_t last, std::uint32_t &number) {
  std::uint64_t value = 0;
  for (const char character : digits) {
    const unsigned digit = DigitValue(character);
    if (digit >= base) return false;
    value = value * base + digit;
    if (value > last) return false;
  }
  if (digits.empty()) return false;
  number = static_cast<std::uint32_t>(value);
  return true;
}

bool ParseNumber(std::string_view text, std::uint32_t last, std::uint32_t &number) {
  const bool isHexadecimal = StartsWith(text, "0x") || StartsWith(text, "0X");
  return ParseDigits(isHexadecimal ? After(text, 2) : text, isHexadecimal ? 16 : 10, last, number);
}

}  // namespace tools
