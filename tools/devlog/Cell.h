// SPDX-License-Identifier: MIT
// Decodes and checks one cell of a log ring.
#pragma once

#include <devsupport/detail/logmgr/LogCell.h>

#include <cstdint>
#include <string_view>

namespace devlog {

/// What devlog copies out of one slot of the ring.
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
  Length,  ///< the length is not possible for a record
  Text,    ///< the text does not end with a NUL
  Time,    ///< not a valid time of day
  Order,   ///< a fragment that does not follow the one before it, though no record is missing between them
};

/// One record. Fields that a damaged cell does not give are unknown, 0 or empty.
struct Fragment {
  Damage damage = Damage::None;
  DayTime time = kUnknownTime;
  unsigned number = 0;  ///< number of the fragment in its message
  unsigned sequence = 0;
  unsigned type = 0;
  std::string_view text{};  ///< points into the cell; may hold any byte, also NUL
};

Fragment Decode(const Cell &cell);

}  // namespace devlog
