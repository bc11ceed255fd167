// SPDX-License-Identifier: MIT
// Numbers, types and times in the form used on the command line.
#pragma once

#include <cstdint>

#include "tools/devlog/Names.h"

namespace devlog {

/// "3,5-7,call" as one bit for each type: numbers from 0 to 15, ranges of them, and names.
bool ToTypes(const char *text, const Names &names, std::uint16_t &types);

/// "HH:MM" or "HH:MM:SS"; one digit is enough where the number has only one.
bool ToDayTime(const char *text, DayTime &time);

}  // namespace devlog
