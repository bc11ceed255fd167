// SPDX-License-Identifier: MIT
// The trace at a known time.

#include <devsupport/diag/TraceNow.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "tests/support/CapturedOutput.h"

namespace {

const timespec *g_now = nullptr;  // the time of day while set

}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  if (g_now == nullptr || clock != CLOCK_REALTIME) return __real_clock_gettime(clock, now);
  *now = *g_now;
  return 0;
}

namespace {

using devsupport::test::CapturedOutput;

/// A midnight in a time zone of 5 hours 30 minutes east.
constexpr std::time_t kLocalMidnight = 86400 - 19800;

/// What TraceNow prints at a given time, in that zone.
std::string TraceAt(std::time_t seconds, long nanoseconds, const char *label) {
  const timespec now{seconds, nanoseconds};
  const char *const pZone = std::getenv("TZ");
  const std::optional<std::string> zone = pZone != nullptr ? std::optional<std::string>(pZone) : std::nullopt;
  ::setenv("TZ", "XST-05:30", 1);
  ::tzset();
  g_now = &now;
  CapturedOutput err(stderr);
  TraceNow(label);
  std::string printed = err.Take();
  g_now = nullptr;
  zone ? ::setenv("TZ", zone->c_str(), 1) : ::unsetenv("TZ");
  ::tzset();
  return printed;
}

TEST(Trace, PrintsLabelAndLocalTimeWithMilliseconds) {
  EXPECT_EQ(TraceAt(1000000000, 123456789, "dialled"), "dialled now=[07:16:40.123]\n");
}

TEST(Trace, EveryFieldKeepsItsWidth) {
  EXPECT_EQ(TraceAt(kLocalMidnight + 3661, 7000000, "x"), "x now=[01:01:01.007]\n");
}

TEST(Trace, LastMillisecondOfTheDay_IsNotRoundedUp) {
  EXPECT_EQ(TraceAt(kLocalMidnight + 86399, 999999999, "x"), "x now=[23:59:59.999]\n");
}

TEST(Trace, NullLabel_MeansTheEmptyText) { EXPECT_EQ(TraceAt(1000000000, 0, nullptr), " now=[07:16:40.000]\n"); }

TEST(Trace, EmptyLabel_LeavesTheBlank) { EXPECT_EQ(TraceAt(1000000000, 0, ""), " now=[07:16:40.000]\n"); }

TEST(Trace, LabelWithPercentSigns_IsPrintedAsItIs) {
  EXPECT_EQ(TraceAt(1000000000, 0, "50%s%n"), "50%s%n now=[07:16:40.000]\n");
}

TEST(Trace, WithTheRealClock_LiesBetweenTheTimesBeforeAndAfter) {
  timespec before{};
  timespec after{};
  ::clock_gettime(CLOCK_REALTIME, &before);
  CapturedOutput err(stderr);
  TraceNow("t");
  const std::string printed = err.Take();
  ::clock_gettime(CLOCK_REALTIME, &after);
  int hours = -1;
  int minutes = -1;
  int seconds = -1;
  int milliseconds = -1;
  ASSERT_EQ(std::sscanf(printed.c_str(), "t now=[%2d:%2d:%2d.%3d]\n", &hours, &minutes, &seconds, &milliseconds), 4);
  tm local{};
  ::localtime_r(&before.tv_sec, &local);
  constexpr long kDay = 86400000;
  const long earliest = ((local.tm_hour * 60L + local.tm_min) * 60 + local.tm_sec) * 1000 + before.tv_nsec / 1000000;
  const long traced = ((hours * 60L + minutes) * 60 + seconds) * 1000 + milliseconds;
  const long elapsed = (after.tv_sec - before.tv_sec) * 1000 + after.tv_nsec / 1000000 - before.tv_nsec / 1000000;
  EXPECT_LE((traced - earliest + kDay) % kDay, elapsed) << printed;
}

}  // namespace
