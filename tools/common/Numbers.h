// SPDX-License-Identifier: MIT
// Numbers on the command line.
#pragma once

#include <cstdint>
#include <string_view>

namespace tools {

/// Digits of one base and nothing else, up to `last`; false, and the number untouched, for anything else.
bool ParseDigits(std::string_view digits, unsigned base, std::uint32_t last, std::uint32_t &number);

/// A decimal number, or a hexadecimal one after 0x, up to `last`; false, and the number untouched, for anything else.
bool ParseNumber(std::string_view text, std::uint32_t last, std::uint32_t &number);

/// The value of a hexadecimal digit; 16 or more for any other character.
unsigned DigitValue(char character);

}  // namespace tools
