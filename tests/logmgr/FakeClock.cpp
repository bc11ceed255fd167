// SPDX-License-Identifier: MIT
#include "tests/logmgr/FakeClock.h"

#include <atomic>
#include <cstdint>
#include <ctime>

namespace devsupport::test {

namespace {

// Milliseconds since 1970; -1 for the real clock.
std::atomic<std::int64_t> g_stoppedAt{-1};

}  // namespace

void StopClockAt(std::int64_t seconds, long ms) { g_stoppedAt = seconds * 1000 + ms; }
void LetClockGo() { g_stoppedAt = -1; }

extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  const std::int64_t stoppedAt = g_stoppedAt;
  if (clock != CLOCK_REALTIME || stoppedAt < 0) return __real_clock_gettime(clock, now);
  // A real clock reads some time within the millisecond.
  *now = {static_cast<time_t>(stoppedAt / 1000), static_cast<long>(stoppedAt % 1000) * 1'000'000 + 999'999};
  return 0;
}

}  // namespace devsupport::test
