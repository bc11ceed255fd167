// SPDX-License-Identifier: MIT
// The local time of the log channel's records: time zones, their changes, steps of the clock, and locks of the C
// library.

#include "lib/diag/LocalTime.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/logmgr/FakeClock.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TempDir.h"

namespace {

std::atomic<int> g_questions{0};
std::atomic<const devsupport::test::Event *> g_asked{nullptr};      // announced when somebody asks the library ...
std::atomic<const devsupport::test::Event *> g_mayAnswer{nullptr};  // ... which then waits for this

}  // namespace

extern "C" tm *__real_localtime_r(const time_t *now, tm *local);
extern "C" tm *__wrap_localtime_r(const time_t *now, tm *local);
extern "C" tm *__wrap_localtime_r(const time_t *now, tm *local) {
  ++g_questions;
  if (const auto *asked = g_asked.exchange(nullptr)) {
    asked->Announce();
    g_mayAnswer.load()->Wait();
  }
  return devsupport::test::MustFail("localtime_r") ? nullptr : __real_localtime_r(now, local);
}

namespace {

using devsupport::LocalTime;
using devsupport::LocalTimeNow;
using namespace devsupport::test;

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kMonday = 20000 * kDay;  // some midnight
constexpr std::int64_t kElsewhere = 10000 * kDay;
// The European summer time of 2026, in UTC.
constexpr std::int64_t kSummerBegins = 1774746000;  // 29 March, 01:00:00
constexpr std::int64_t kSummerEnds = 1792890000;    // 25 October, 01:00:00

class Time : public ::testing::Test {
 protected:
  // Forgets the stored offset, so that the next test does not use it.
  void TearDown() override {
    At(kElsewhere);
    LetClockGo();
  }
  static void Zone(const char *zone) { ::setenv("TZ", zone, 1); }
  static std::string At(std::int64_t second, long ms = 0) {
    StopClockAt(second, ms);
    return Now();
  }
  static std::string Now() {
    const LocalTime now = LocalTimeNow();
    char text[64];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u.%03u", now.dwHour, now.dwMinute, now.dwSecond, now.dwMs);
    return text;
  }
};

// First in the file: a device without a battery starts in the first minute of 1970, and this is the first call.
TEST_F(Time, InTheFirstMinuteOf1970_IsLocal) {
  Zone("IST-5:30");
  EXPECT_EQ(At(5), "05:30:05.000");
}

TEST_F(Time, InUtc_IsTheTimeOfDay) {
  Zone("UTC0");
  EXPECT_EQ(At(kMonday, 0), "00:00:00.000");
  EXPECT_EQ(At(kMonday + 45296, 789), "12:34:56.789");
  EXPECT_EQ(At(kMonday + kDay - 1, 999), "23:59:59.999");
}

TEST_F(Time, WestOfUtc_CanBeThatOfTheDayBefore) {
  Zone("EST5");
  EXPECT_EQ(At(kMonday + 3600), "20:00:00.000");
}

TEST_F(Time, EastOfUtc_CanBeThatOfTheDayAfter) {
  Zone("IST-5:30");
  EXPECT_EQ(At(kMonday + kDay - 60), "05:29:00.000");
}

TEST_F(Time, InAZoneAheadByHalfAMinute_IsSo) {
  Zone("ODD-0:00:30");
  EXPECT_EQ(At(kMonday + 45), "00:01:15.000");
}

TEST_F(Time, InTheFarthestZones_IsLocal) {
  Zone("FAR-24");
  EXPECT_EQ(At(kMonday + 1), "00:00:01.000");
  Zone("FAR24");
  EXPECT_EQ(At(kMonday + 61), "00:01:01.000");
  Zone("FAR-14");
  EXPECT_EQ(At(kMonday + 121), "14:02:01.000");
}

TEST_F(Time, WhenSummerBegins_LeapsAhead) {
  Zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(At(kSummerBegins - 1, 999), "01:59:59.999");
  EXPECT_EQ(At(kSummerBegins), "03:00:00.000");
}

TEST_F(Time, WhenSummerEnds_FallsBack) {
  Zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(At(kSummerEnds - 1), "02:59:59.000");
  EXPECT_EQ(At(kSummerEnds), "02:00:00.000");
}

TEST_F(Time, AfterTheClockWasSet_IsThatOfTheNewTime) {
  Zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(At(kSummerEnds + 7200), "04:00:00.000");
  EXPECT_EQ(At(kSummerEnds - 7200), "01:00:00.000");
  EXPECT_EQ(At(kSummerEnds + 7200), "04:00:00.000");
}

// The largest distance at which two minutes have different numbers.
TEST_F(Time, AfterTheClockWasSetBy32768Minutes_IsThatOfTheNewTime) {
  constexpr std::int64_t kWay = 32768 * 60;
  Zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(At(kSummerEnds + 7200 - kWay), "10:52:00.000");
  EXPECT_EQ(At(kSummerEnds + 7200), "04:00:00.000");
}

TEST_F(Time, AfterTheZoneHasChanged_FollowsWithTheNextMinute) {
  Zone("UTC0");
  EXPECT_EQ(At(kMonday), "00:00:00.000");
  Zone("IST-5:30");
  EXPECT_EQ(At(kMonday + 60), "05:31:00.000");
}

// A device without TZ uses the file that /etc/localtime names.
TEST_F(Time, AfterTheZoneFileWasReplaced_FollowsWithTheNextMinute) {
  const auto zoneFile = [](const std::filesystem::path &path, int hours) {
    std::string bytes = "TZif" + std::string(16, '\0');
    bytes += std::string(16, '\0') + std::string("\0\0\0\1\0\0\0\4", 8);
    const int seconds = hours * 3600;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(seconds >> shift);
    WriteFile(path, bytes + std::string(2, '\0') + std::string("XYZ\0", 4));
  };
  const TempDir dir;
  zoneFile(dir / "east", 3);
  zoneFile(dir / "farther", 4);
  Child device([&] {
    if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return 77;
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return 77;
    const auto install = [&](const char *name) {
      return ::mount((dir / name).c_str(), "/etc/localtime", nullptr, MS_BIND, nullptr) == 0;
    };
    if (!install("east")) return 77;
    ::unsetenv("TZ");
    EXPECT_EQ(At(kMonday), "03:00:00.000");
    if (!install("farther")) return 77;
    EXPECT_EQ(At(kMonday + 60), "04:01:00.000");
    return 0;
  });
  const int status = device.Wait();
  if (status == 77) GTEST_SKIP() << "the machine does not let us put another file at /etc/localtime";
  EXPECT_EQ(status, 0);
}

TEST_F(Time, AsksTheLibraryOnceAMinute) {
  Zone("UTC0");
  At(kMonday + 30 * kDay);
  g_questions = 0;
  for (long ms = 0; ms < 180'000; ms += 100) At(kMonday + ms / 1000, ms % 1000);
  EXPECT_EQ(g_questions, 3);
}

TEST_F(Time, WhileAnotherThreadAsksTheLibrary_DoesNotWaitForIt) {
  Zone("IST-5:30");
  EXPECT_EQ(At(kMonday), "05:30:00.000");
  const Event asked;
  const Event mayAnswer;
  g_mayAnswer = &mayAnswer;
  g_asked = &asked;
  StopClockAt(kMonday + 60, 0);
  std::thread other([] { EXPECT_EQ(Now(), "05:31:00.000"); });
  asked.Wait();
  EXPECT_EQ(Now(), "05:31:00.000");
  EXPECT_EQ(At(kMonday + 130), "05:32:10.000");
  mayAnswer.Announce();
  other.join();
  EXPECT_EQ(Now(), "05:32:10.000");
}

TEST_F(Time, WhenTheLibraryFails_IsByTheLastDistance) {
  Zone("IST-5:30");
  EXPECT_EQ(At(kMonday), "05:30:00.000");
  FailCall fail("localtime_r", FailCall::kEvery);
  Zone("UTC0");
  EXPECT_EQ(At(kMonday + 60), "05:31:00.000");
  EXPECT_TRUE(fail.Happened());
}

TEST_F(Time, OfTheRealClock_IsWhatTheLibrarySays) {
  Zone("CET-1CEST,M3.5.0,M10.5.0/3");
  StopClockAt(kMonday, 0);
  LocalTimeNow();
  LetClockGo();
  for (int i = 0; i < 10000; ++i) {
    timespec before{};  // not time(): it lags by a tick
    timespec after{};
    ::clock_gettime(CLOCK_REALTIME, &before);
    const LocalTime now = LocalTimeNow();
    ::clock_gettime(CLOCK_REALTIME, &after);
    bool found = false;
    for (time_t second = before.tv_sec; second <= after.tv_sec; ++second) {
      tm local{};
      __real_localtime_r(&second, &local);
      found |= static_cast<int>(now.dwHour) == local.tm_hour && static_cast<int>(now.dwMinute) == local.tm_min &&
               static_cast<int>(now.dwSecond) == local.tm_sec;
    }
    ASSERT_TRUE(found);
  }
}

TEST_F(Time, InManyThreads_WhileTheMinutesFly_IsRight) {
  Zone("IST-5:30");
  constexpr std::int64_t kAhead = 19800;
  std::atomic<std::int64_t> second{kMonday};
  std::atomic<bool> stop{false};
  StopClockAt(second, 0);
  LocalTimeNow();
  std::vector<std::thread> readers;
  std::atomic<unsigned> wrong{0};
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        const std::int64_t before = second;
        const LocalTime now = LocalTimeNow();
        const std::int64_t after = second;
        const std::int64_t told = now.dwHour * 3600 + now.dwMinute * 60 + now.dwSecond;
        // The clock is set before the counter, so it is at most one step ahead.
        const std::int64_t since = (told - kAhead - before % kDay + 2 * kDay) % kDay;
        if (since > after - before + 13) ++wrong;
      }
    });
  }
  for (int step = 0; step < 1'000'000; ++step) {
    StopClockAt(second + 13, 0);
    second += 13;
  }
  stop = true;
  for (std::thread &reader : readers) reader.join();
  EXPECT_EQ(wrong, 0u);
}

}  // namespace
