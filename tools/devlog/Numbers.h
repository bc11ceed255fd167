// Numbers, types and times as people write them on the command line.
#pragma once

#include <cstdint>

#include "Cell.h"

namespace devlog {

/// A decimal number, or a hexadecimal one behind 0x, up to `last`; false, and the number untouched, for anything else.
bool ToNumber(const char *text, std::uint32_t last, std::uint32_t &number);

/// "3,5" as one bit a type; a type is a number from 0 to 15.
bool ToTypes(const char *text, std::uint16_t &types);

/// "HH:MM" or "HH:MM:SS"; one digit is enough where the number has only one.
bool ToDayTime(const char *text, DayTime &time);

}  // namespace devlog
