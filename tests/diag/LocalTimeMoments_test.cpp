// SPDX-License-Identifier: MIT
// A signal handler asks for the local time after any one instruction of a thread that does the same, or that changes
// the zone. Nobody waits, and the times are right.

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>

#include "lib/diag/LocalTime.h"
#include "tests/support/Moments.h"
#include "tests/support/SharedBlock.h"

namespace {

constexpr std::int64_t kMidnight = 20000 * std::int64_t{86400};
std::atomic<int> g_second{0};  // since then; 32 bits, which each processor reads without a lock
static_assert(std::atomic<int>::is_always_lock_free);

}  // namespace

extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t /*clock*/, timespec *now) {
  *now = {static_cast<time_t>(kMidnight + g_second), 0};
  return 0;
}

namespace {

using namespace devsupport::test;

constexpr int kMinute = 60;
constexpr const char *kZone = "IST-5:30";
constexpr int kAhead = 19800;
constexpr const char *kOtherZone = "EAT-3";
constexpr int kOtherAhead = 10800;

// Seconds of the local day.
int Told() {
  const devsupport::LocalTime now = devsupport::LocalTimeNow();
  return static_cast<int>(now.dwHour * 3600 + now.dwMinute * 60 + now.dwSecond);
}
int ToldAt(int second) {
  g_second = second;
  return Told();
}
void Zone(const char *zone) { ::setenv("TZ", zone, 1); }

struct Seen {
  std::atomic<int> operation;
  std::atomic<int> handler;
  std::atomic<int> later;
};
Seen *g_seen;
int g_secondOfTheHandler;

class LocalTimeMoments : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    g_seen = &*seen;
  }

  // The operation begins at the given second, when the time of the first minute has been asked for and the zone has
  // changed. The clock shows the other second when the handler runs, and a minute more when the process asks at its
  // end.
  void Meet(const char *zone, int second, int secondOfTheHandler, const std::function<void()> &operation,
            const std::function<void()> &judge) {
    const TestSeed seed;
    const auto prepare = [&] {
      Zone(kZone);
      ToldAt(0);
      Zone(zone);
      g_secondOfTheHandler = secondOfTheHandler;
      std::signal(SIGUSR1, [](int) { g_seen->handler = ToldAt(g_secondOfTheHandler); });
      g_second = second;
    };
    const auto begin = [&] {
      seen->operation = seen->handler = seen->later = -1;
      return std::make_unique<Traced>(prepare, operation,
                                      [&] { seen->later = ToldAt(secondOfTheHandler + kMinute); });
    };
    const auto interrupt = [&](Traced &process) {
      process.Queue(SIGUSR1, 0);
      EXPECT_EQ(process.Finish(), 0);
      judge();
    };
    EXPECT_GT(AtEachMoment(seed, begin, interrupt), 0);
  }

  SharedBlock<Seen> seen;
};

TEST_F(LocalTimeMoments, AskedForInAHandler_IsRight) {
  for (const int second : {5, kMinute + 5}) {  // the known minute, a new one
    for (const int secondOfTheHandler : {second, second + kMinute}) {
      const auto judge = [&] {
        EXPECT_TRUE(seen->operation == second + kAhead || seen->operation == secondOfTheHandler + kAhead);
        EXPECT_EQ(seen->handler, secondOfTheHandler + kAhead);
        EXPECT_EQ(seen->later, secondOfTheHandler + kMinute + kAhead);
      };
      Meet(
          kZone, second, secondOfTheHandler, [this] { seen->operation = Told(); }, judge);
    }
  }
}

TEST_F(LocalTimeMoments, AskedForInAHandlerAfterTheZoneHasChanged_IsThatOfOneOfTheZones) {
  constexpr int kSecond = kMinute + 5;
  for (const int secondOfTheHandler : {kSecond, kSecond + kMinute}) {
    const auto judge = [&] {
      EXPECT_TRUE(seen->operation == kSecond + kOtherAhead || seen->operation == secondOfTheHandler + kOtherAhead);
      EXPECT_TRUE(seen->handler == secondOfTheHandler + kAhead || seen->handler == secondOfTheHandler + kOtherAhead);
      EXPECT_EQ(seen->later, secondOfTheHandler + kMinute + kOtherAhead);
    };
    Meet(
        kOtherZone, kSecond, secondOfTheHandler, [this] { seen->operation = Told(); }, judge);
  }
}

// The library has a lock for the zone, which the interrupted thread may hold: in a minute whose distance is known
// it is not needed.
TEST_F(LocalTimeMoments, AskedForInAHandlerWhileTheZoneChanges_IsThatOfTheOldZone) {
  const auto change = [] {
    Zone(kOtherZone);
    ::tzset();
  };
  const auto judge = [&] {
    EXPECT_EQ(seen->handler, 5 + kAhead);
    EXPECT_EQ(seen->later, kMinute + 5 + kOtherAhead);
  };
  Meet(kZone, 5, 5, change, judge);
}

}  // namespace
