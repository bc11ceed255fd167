// SPDX-License-Identifier: MIT
// Local time from a cached distance to UTC. The C library's localtime_r takes a lock that all threads share, and
// keeps it while it reads a zone file; it does not look either whether the zone has changed. So it is asked once a
// minute, by one thread, and all others add the distance that it found then. docs/decisions/local-time.md
// has the figures.
//
// The offset belongs to one minute of UTC. When the clock reaches another minute, or is set, the function asks again;
// the switch of summer time falls on a full minute.
//
// Two words hold it, each of them 32 bits wide, which every machine loads and stores whole. That they belong together
// is seen from the minute that both of them name:
//
//     g_dwMinute    | minute, since 1970                                   |
//     g_dwDistance  | low 15 bits of the minute | seconds ahead of UTC (17) |
//
// The distance is stored first (release) and read last (acquire). So who reads a minute finds the distance of that
// minute after it, or of a later one, which its tag tells. Only a minute that is 2^15 minutes later has the same
// tag: a thread would have to stop for 22 days between its two loads. Two threads that refresh for different minutes
// leave words that belong together or that do not match; then the next reader asks again.

#include "lib/diag/LocalTime.h"

#include <atomic>
#include <cstdint>
#include <ctime>

namespace devsupport {

namespace {

constexpr std::uint32_t kSecondsPerMinute = 60;
constexpr std::uint32_t kSecondsPerHour = 3600;
constexpr std::uint32_t kSecondsPerDay = 86400;
constexpr std::uint32_t kNsPerMs = 1'000'000;

constexpr std::uint32_t kDistanceBits = 17;
constexpr std::uint32_t kDistanceMask = (1u << kDistanceBits) - 1;
static_assert(kSecondsPerDay <= kDistanceMask);

// A minute that never comes: 32 bits of seconds end before. A device without a battery starts in minute 0.
constexpr std::uint32_t kNoMinute = UINT32_MAX;

constinit std::atomic<std::uint32_t> g_dwMinute{kNoMinute};
constinit std::atomic<std::uint32_t> g_dwDistance{0};
constinit std::atomic<std::uint32_t> g_bRefreshing{0};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "the device has no library that would make them so");

constexpr std::uint32_t Tagged(std::uint32_t dwMinute, std::uint32_t dwDistance) {
  return dwMinute << kDistanceBits | dwDistance;
}

void AskLibrary(std::uint32_t dwNow, std::uint32_t dwMinute) {
  const auto now = static_cast<time_t>(dwNow);
  struct tm local {};
  ::tzset();
  if (::localtime_r(&now, &local) == nullptr) return;
  const auto dwLocal = static_cast<std::uint32_t>(local.tm_hour) * kSecondsPerHour +
                       static_cast<std::uint32_t>(local.tm_min) * kSecondsPerMinute +
                       static_cast<std::uint32_t>(local.tm_sec);
  const std::uint32_t dwDistance = (dwLocal + kSecondsPerDay - dwNow % kSecondsPerDay) % kSecondsPerDay;
  g_dwDistance.store(Tagged(dwMinute, dwDistance), std::memory_order_relaxed);
  g_dwMinute.store(dwMinute, std::memory_order_release);
}

// Seconds that local time is ahead of UTC, within a day.
std::uint32_t Distance(std::uint32_t dwNow) {
  const std::uint32_t dwMinute = dwNow / kSecondsPerMinute;
  if (g_dwMinute.load(std::memory_order_acquire) == dwMinute) [[likely]] {
    const std::uint32_t dwDistance = g_dwDistance.load(std::memory_order_relaxed);
    if (Tagged(dwMinute, dwDistance & kDistanceMask) == dwDistance) [[likely]]
      return dwDistance & kDistanceMask;
  }
  // While another thread asks, the distance of the minute before will do: it is wrong in the one moment only in which
  // the zone changes.
  if (g_bRefreshing.exchange(1, std::memory_order_acquire) == 0) {
    AskLibrary(dwNow, dwMinute);
    g_bRefreshing.store(0, std::memory_order_release);
  }
  return g_dwDistance.load(std::memory_order_relaxed) & kDistanceMask;
}

}  // namespace

LocalTime LocalTimeNow() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const auto dwNow = static_cast<std::uint32_t>(now.tv_sec);  // until 2106
  const std::uint32_t dwOfDay = (dwNow % kSecondsPerDay + Distance(dwNow)) % kSecondsPerDay;
  return {dwOfDay / kSecondsPerHour, dwOfDay / kSecondsPerMinute % 60, dwOfDay % 60,
          static_cast<std::uint32_t>(now.tv_nsec) / kNsPerMs};
}

}  // namespace devsupport
