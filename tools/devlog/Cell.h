// SPDX-License-Identifier: MIT
// One cell of a log ring as its writer left it, decoded and checked.
#pragma once

#include <devsupport/detail/logmgr/LogCell.h>

#include <cstdint>
#include <string_view>

namespace devlog {

/// A slot of the ring: what devlog copies out of it.
struct Cell {
  std::uint32_t length;
  std::uint8_t record[LOGCELL_BYTES];
};

/// Local time of day in milliseconds; there is no date.
using DayTime = std::int32_t;
inline constexpr DayTime kUnknownTime = -1;
inline constexpr DayTime kDay = 24 * 60 * 60 * 1000;

inline constexpr unsigned kSequences = LOGCELL_MAX(SEQUENCE) + 1;

enum class Damage : std::uint8_t {
  None,
  Length,  ///< the length word is no length of a record
  Text,    ///< no NUL where the text ends
  Time,    ///< no time of day
  Order,   ///< a fragment that does not follow the one before it, though no record is missing between them
};

/// One record. What a damaged cell cannot tell is unknown, 0 or empty.
struct Fragment {
  Damage damage = Damage::None;
  DayTime time = kUnknownTime;
  unsigned number = 0;  ///< of the fragment in its message
  unsigned sequence = 0;
  unsigned type = 0;
  std::string_view text{};  ///< in the cell; may hold any byte, NUL too
};

Fragment Decode(const Cell &cell);

}  // namespace devlog
