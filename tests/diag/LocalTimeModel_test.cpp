// SPDX-License-Identifier: MIT
// The words of the local time in all schedules of three threads that a few switches make, whatever a processor's
// loads may see of other threads' stores.

#include <cstdint>
#include <ctime>

#include "tests/support/Model.h"

// The zone has another distance in each minute.
static int ModelDistance(std::uint32_t minute) { return 60 * static_cast<int>(minute % 1000); }
static tm *ModelLocaltime(const time_t *now, tm *local) {
  const int second = static_cast<int>(*now % 86400) + ModelDistance(static_cast<std::uint32_t>(*now / 60));
  local->tm_hour = second / 3600 % 24;
  local->tm_min = second / 60 % 60;
  local->tm_sec = second % 60;
  return local;
}
static void ModelTzset() {}

#define atomic ModelAtomic
#define tzset ModelTzset
#define localtime_r ModelLocaltime
#define LocalTimeNow ModelLocalTimeNow
#include "lib/diag/LocalTime.cpp"
#undef atomic
#undef tzset
#undef localtime_r
#undef LocalTimeNow

namespace {

using namespace devsupport::test;

// A thread that has not tried to ask the library has the distance of its own minute.
void AskFor(unsigned thread, std::uint32_t minute) {
  const int before = g_exchanges[thread];
  const std::uint32_t distance = devsupport::Distance(minute * 60 + 5);
  const bool isOwn = distance == static_cast<std::uint32_t>(ModelDistance(minute));
  RL_ASSERT(isOwn || g_exchanges[thread] != before);
  RL_ASSERT(isOwn || distance == 60 || distance == 120 || distance == 180);
}

struct LocalTimeModel : rl::test_suite<LocalTimeModel, 3> {
  void before() {
    g_modelWords.Begin();
    devsupport::g_dwMinute.Begin();
    devsupport::g_dwDistance.Begin();
    devsupport::g_bRefreshing.Begin();
    devsupport::Distance(1 * 60);
  }
  void thread(unsigned index) {
    if (index == 2) {
      AskFor(index, 1);
      AskFor(index, 2);
    } else {
      AskFor(index, 2 + index);
    }
  }
  void after() {
    for (const std::uint32_t minute : {2u, 3u, 1u})
      RL_ASSERT(devsupport::Distance(minute * 60) == static_cast<std::uint32_t>(ModelDistance(minute)));
    g_modelWords.End();
  }
};

TEST(LocalTimeModel, DistanceThatIsNotAskedFor_IsThatOfTheMinute) { ExpectNoWrongSchedule<LocalTimeModel>(3); }

}  // namespace
