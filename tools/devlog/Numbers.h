// Numbers, types and times as people write them on the command line.
#pragma once

#include <cstdint>

#include "tools/devlog/Cell.h"

namespace devlog {

/// "3,5" as one bit a type; a type is a number from 0 to 15.
bool ToTypes(const char *text, std::uint16_t &types);

/// "HH:MM" or "HH:MM:SS"; one digit is enough where the number has only one.
bool ToDayTime(const char *text, DayTime &time);

}  // namespace devlog
