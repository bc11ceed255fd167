// SPDX-License-Identifier: MIT
// The timers' cells in all schedules that a few switches make of an arming thread and two handlers, whatever a
// processor's loads may see of other threads' stores. Every timer is deleted once, and those that are left belong to
// cells.

#include <csignal>
#include <cstdint>
#include <ctime>

#include "tests/support/Model.h"

// The kernel's timers.
static int g_madeTimers;
static bool g_timerLives[16];
static int ModelTimerCreate(clockid_t /*clock*/, sigevent * /*event*/, timer_t *timer) {
  g_timerLives[++g_madeTimers] = true;
  *timer = reinterpret_cast<timer_t>(static_cast<std::intptr_t>(g_madeTimers));
  return 0;
}
static bool &Lives(timer_t timer) { return g_timerLives[reinterpret_cast<std::intptr_t>(timer)]; }
static int ModelTimerSettime(timer_t timer, int /*flags*/, const itimerspec * /*times*/, itimerspec * /*before*/) {
  RL_ASSERT(Lives(timer));
  return 0;
}
static int ModelTimerDelete(timer_t timer) {
  RL_ASSERT(Lives(timer));
  Lives(timer) = false;
  return 0;
}

#define atomic ModelAtomic
#define timer_create ModelTimerCreate
#define timer_settime ModelTimerSettime
#define timer_delete ModelTimerDelete
#define Timer_CreateAry ModelTimer_CreateAry
#define Timer_Set ModelTimer_Set
#define Timer_Del ModelTimer_Del
#define Timer_IsActive ModelTimer_IsActive
#define Timer_DelAll ModelTimer_DelAll
#define Timer_DestroyAry ModelTimer_DestroyAry
#define Timer_OnSignal ModelTimer_OnSignal
#include "lib/ipc/Timer.cpp"
#undef atomic
#undef timer_create
#undef timer_settime
#undef timer_delete

namespace {

using namespace devsupport::test;

int g_callbacks[3];  // in each thread
void Count(std::uint32_t /*cell*/) { ++g_callbacks[rl::thread_index()]; }

int Living() {
  int living = 0;
  for (const bool lives : g_timerLives) living += lives ? 1 : 0;
  return living;
}

// The cell is armed once before. Thread 0 does something with it, the others handle signals of the first arming and
// of the given one.
enum class Deed { kNothing, kArm, kDisarm, kClear };
template <Deed kDeed, int kOneShot, unsigned kGeneration>
struct TimerModel : rl::test_suite<TimerModel<kDeed, kOneShot, kGeneration>, 3> {
  std::uint16_t array = 0;

  void before() {
    g_modelWords.Begin();
    g_madeTimers = g_callbacks[1] = g_callbacks[2] = 0;
    for (bool &lives : g_timerLives) lives = false;
    g_apArray[0].Begin();
    Timer_CreateAry(1, kOneShot, Count, 0, &array);
    Timer_Set(&array, 0, 1000, nullptr);
  }
  void thread(unsigned index) {
    if (index != 0) {
      siginfo_t info{};
      info.si_value.sival_int = static_cast<int>((index == 1 ? 1 : kGeneration) << 24);
      Timer_OnSignal(0, &info, nullptr);
    } else if (kDeed == Deed::kArm) {
      Timer_Set(&array, 0, 1000, nullptr);
    } else if (kDeed == Deed::kDisarm) {
      Timer_Del(&array, 0);
    } else if (kDeed == Deed::kClear) {
      Timer_DelAll(&array);
    }
  }
  void after() {
    RL_ASSERT(Living() == Timer_IsActive(&array, 0));
    const int armings = kDeed == Deed::kArm ? 2 : 1;
    RL_ASSERT(kOneShot == 0 || g_callbacks[1] + g_callbacks[2] <= armings);
    const bool hasExpired = kGeneration == armings && g_callbacks[2] != 0;
    RL_ASSERT(kOneShot == 0 || !hasExpired || Timer_IsActive(&array, 0) == 0);
    Timer_DestroyAry(&array);
    RL_ASSERT(Living() == 0);
    g_modelWords.End();
  }
};

template <Deed kDeed>
void ExpectNoWrongScheduleOf() {
  constexpr unsigned kStops = 3;
  ExpectNoWrongSchedule<TimerModel<kDeed, 0, 1>>(kStops);
  ExpectNoWrongSchedule<TimerModel<kDeed, 0, 2>>(kStops);
  ExpectNoWrongSchedule<TimerModel<kDeed, 1, 1>>(kStops);
  ExpectNoWrongSchedule<TimerModel<kDeed, 1, 2>>(kStops);
}

TEST(TimerModel, Handlers_EndACellOnce) { ExpectNoWrongScheduleOf<Deed::kNothing>(); }
TEST(TimerModel, ArmingAmongHandlers_LeavesATimerForAnActiveCell) { ExpectNoWrongScheduleOf<Deed::kArm>(); }
TEST(TimerModel, DisarmingAmongHandlers_LeavesNoTimer) { ExpectNoWrongScheduleOf<Deed::kDisarm>(); }
TEST(TimerModel, ClearingAmongHandlers_LeavesNoTimer) { ExpectNoWrongScheduleOf<Deed::kClear>(); }

}  // namespace
