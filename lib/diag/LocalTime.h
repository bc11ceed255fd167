// SPDX-License-Identifier: MIT
// The wall clock's local time of day, for log records and traces: no lock, and no system call where the C library
// reads the clock without one.
#pragma once

#include <cstdint>

namespace devsupport {

struct LocalTime {
  std::uint32_t dwHour;    // 0-23
  std::uint32_t dwMinute;  // 0-59
  std::uint32_t dwSecond;  // 0-59
  std::uint32_t dwMs;      // 0-999
};

/// Threads: safe. Never waits for another thread, but to be the first of the process.
LocalTime LocalTimeNow();

}  // namespace devsupport
