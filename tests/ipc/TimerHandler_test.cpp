// SPDX-License-Identifier: MIT
// The signal handler of the timers: the effects of an expiry, of a late signal and of another program's signal, also
// at critical moments.

#include <devsupport/ipc/Timer.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <random>

#include "tests/ipc/TimerCallbacks.h"
#include "tests/ipc/TimerCalls.h"
#include "tests/ipc/TimerFixture.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

using TimerHandler = TimerCallbackTest;

// For the callbacks below: the array that they use, and its results.
std::atomic<std::uint16_t> g_array{0};
std::atomic<int> g_activeInCallback{-1};
std::atomic<int> g_delInCallback{-1};

void SpoilErrno(std::uint32_t /*cell*/) {
  ++g_calls;
  errno = ENOTTY;
}

void LookAtOwnCell(std::uint32_t cell) {
  ++g_calls;
  const std::uint16_t array = g_array;
  g_activeInCallback = Timer_IsActive(&array, cell);
}

void DisarmOwnCell(std::uint32_t cell) {
  ++g_calls;
  const std::uint16_t array = g_array;
  g_delInCallback = Timer_Del(&array, cell);
}

TEST_F(TimerHandler, OneShotCell_FiresOnceWithItsIndexAndIsInactiveAfterwards) {
  const std::uint16_t array = Make(5, kOneShot, Count);
  ASSERT_EQ(Timer_Set(&array, 3, 1, nullptr), 1);
  event_.Wait();
  EXPECT_EQ(Timer_IsActive(&array, 3), 0);
  EXPECT_EQ(g_lastCell, 3u);
  EXPECT_EQ(Calls().deleted, 1);  // no timer is left that could expire again
  EXPECT_EQ(g_calls, 1);
}

TEST_F(TimerHandler, OneShotCell_CanBeArmedAgain) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  for (int round = 1; round <= 3; ++round) {
    ASSERT_EQ(Timer_Set(&array, 0, 1, nullptr), 1);
    event_.Wait();
    EXPECT_EQ(g_calls, round);
  }
}

TEST_F(TimerHandler, RepeatingCell_FiresEveryPeriodUntilDel) {
  const std::uint16_t array = Make(1, kRepeating, Count);
  ASSERT_EQ(Timer_Set(&array, 0, 1, nullptr), 1);
  for (int expiry = 0; expiry < 5; ++expiry) event_.Wait();
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  EXPECT_EQ(Timer_Del(&array, 0), 1);
  const int calls = g_calls;
  // Signals of one number arrive in order. When the other cell's signal has arrived, no older one is pending.
  const std::uint16_t other = Make(1, kOneShot, CountOther);
  Timer_Set(&other, 0, 5, nullptr);
  while (g_otherCalls == 0) event_.Wait();
  EXPECT_EQ(g_calls, calls);
}

TEST_F(TimerHandler, Cell_CallsItsOwnCallbackInsteadOfTheDefault) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, 1, CountOther);
  event_.Wait();
  EXPECT_EQ(g_calls, 0);
  EXPECT_EQ(g_otherCalls, 1);
  Timer_Set(&array, 0, 1, nullptr);  // the other callback was only for that arming
  event_.Wait();
  EXPECT_EQ(g_calls, 1);
  EXPECT_EQ(g_otherCalls, 1);
}

TEST_F(TimerHandler, Cell_WithoutAnyCallback_ExpiresSilently) {
  const std::uint16_t array = Make(1, kOneShot, nullptr);
  ASSERT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  Deliver(SignalValue(0, array, 1));
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
}

TEST_F(TimerHandler, Arrays_WithDifferentSignals_ShareHandlerAndTable) {
  const std::uint16_t first = Make(2, kOneShot, Count, SIGRTMIN + 2);
  const std::uint16_t second = Make(2, kRepeating, CountOther, SIGUSR1);
  Timer_Set(&first, 1, 1, nullptr);
  Timer_Set(&second, 0, 1, nullptr);
  while (g_calls == 0 || g_otherCalls < 2) event_.Wait();
  EXPECT_EQ(g_calls, 1);
  EXPECT_EQ(Timer_IsActive(&first, 1), 0);
  EXPECT_EQ(Timer_IsActive(&second, 0), 1);
}

TEST_F(TimerHandler, LateSignal_DisarmsTheCellThatWasArmedAgainAndCallsNothing) {
  for (const int oneShot : {kOneShot, kRepeating}) {
    const std::uint16_t array = Make(1, oneShot, Count);
    Timer_Set(&array, 0, kHourMs, nullptr);
    Timer_Set(&array, 0, kHourMs, nullptr);
    Deliver(SignalValue(0, array, 1));
    EXPECT_EQ(Timer_IsActive(&array, 0), 0);
    EXPECT_EQ(Calls().created, Calls().deleted);
  }
  EXPECT_EQ(g_calls, 0);
}

TEST_F(TimerHandler, LateSignal_ForAnInactiveCell_DoesNothing) {
  const std::uint16_t array = Make(2, kOneShot, Count);
  Deliver(SignalValue(0, array, 0));  // never armed
  Timer_Set(&array, 1, kHourMs, nullptr);
  Timer_Del(&array, 1);
  Deliver(SignalValue(1, array, 1));
  EXPECT_EQ(Timer_IsActive(&array, 1), 0);
  EXPECT_EQ(g_calls, 0);
  EXPECT_EQ(Calls().deleted, 1);
  EXPECT_EQ(Timer_Set(&array, 1, kHourMs, nullptr), 1);
  EXPECT_EQ(Timer_IsActive(&array, 1), 1);
}

TEST_F(TimerHandler, LateSignal_DeletesATimerThatCouldNotBeStarted) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  CapturedOutput err(stderr);
  {
    FailCall fail("timer_settime", 1);
    EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
  }
  err.Take();
  Deliver(SignalValue(0, array, 1));
  EXPECT_EQ(Calls().deleted, 1);
  EXPECT_EQ(g_calls, 0);
}

TEST_F(TimerHandler, SignalQueuedByHand_WithTheCurrentGeneration_IsAnExpiry) {
  const std::uint16_t once = Make(1, kOneShot, Count);
  const std::uint16_t often = Make(1, kRepeating, CountOther);
  Timer_Set(&once, 0, kHourMs, nullptr);
  Timer_Set(&often, 0, kHourMs, nullptr);
  Deliver(SignalValue(0, once, 1));
  Deliver(SignalValue(0, often, 1));
  Deliver(SignalValue(0, often, 1));
  EXPECT_EQ(g_calls, 1);
  EXPECT_EQ(g_otherCalls, 2);
  EXPECT_EQ(Timer_IsActive(&once, 0), 0);
  EXPECT_EQ(Timer_IsActive(&often, 0), 1);
}

TEST_F(TimerHandler, GenerationThatWrapped_StillMatches) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  for (int arming = 0; arming < 256; ++arming) Timer_Set(&array, 0, kHourMs, nullptr);
  Deliver(SignalValue(0, array, 0));
  EXPECT_EQ(g_calls, 1);
}

TEST_F(TimerHandler, SignalForAnArrayThatIsNotThere_DoesNothing) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  for (std::uint32_t number = 1; number < 64; ++number) Deliver(SignalValue(0, number, 1));
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  EXPECT_EQ(g_calls, 0);
}

TEST_F(TimerHandler, SignalForADestroyedArray_DoesNothing) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  Timer_DestroyAry(&array);
  Deliver(SignalValue(0, array, 1));
  EXPECT_EQ(g_calls, 0);
}

TEST_F(TimerHandler, SignalForACellOutOfRange_DoesNothing) {
  const std::uint16_t array = Make(300, kOneShot, Count);  // 44 cells can be used
  Timer_Set(&array, 43, kHourMs, nullptr);
  for (const std::uint32_t cell : {44u, 45u, 255u, 256u, 299u, 300u, 0x1FFFFu, 0x3FFFFu})
    for (const std::uint32_t generation : {0u, 1u, 255u}) Deliver(SignalValue(cell, array, generation));
  EXPECT_EQ(Timer_IsActive(&array, 43), 1);
  EXPECT_EQ(g_calls, 0);
  EXPECT_EQ(Calls().deleted, 0);
}

TEST_F(TimerHandler, AnyValue_StaysWithinTheArrays) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  for (int made = 0; made < 5; ++made) Make(200, made % 2, Count);
  for (int n = 0; n < 20'000; ++n) {
    siginfo_t info{};
    info.si_code = SI_QUEUE;
    info.si_value.sival_int = static_cast<int>(random() & (n % 2 != 0 ? 0xFFFFFFFFu : 0x031C00FFu));
    Timer_OnSignal(TimerSignal(), &info, nullptr);
    const auto array = static_cast<std::uint16_t>(random() % 5);
    if (n % 4 == 0) Timer_Set(&array, static_cast<std::uint32_t>(random() % 200), kHourMs, nullptr);
  }
}

TEST_F(TimerHandler, Handler_LeavesErrnoAsItWas) {
  const std::uint16_t array = Make(1, kRepeating, SpoilErrno);
  Timer_Set(&array, 0, kHourMs, nullptr);
  siginfo_t info{};
  info.si_value.sival_int = SignalValue(0, array, 1);
  errno = EXDEV;
  Timer_OnSignal(TimerSignal(), &info, nullptr);
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(g_calls, 1);
}

TEST_F(TimerHandler, Callback_SeesAOneShotCellInactiveAndARepeatingOneActive) {
  for (const int oneShot : {kOneShot, kRepeating}) {
    const std::uint16_t array = Make(1, oneShot, LookAtOwnCell);
    g_array = array;
    g_activeInCallback = -1;
    Timer_Set(&array, 0, kHourMs, nullptr);
    Deliver(SignalValue(0, array, 1));
    EXPECT_EQ(g_activeInCallback, oneShot == kOneShot ? 0 : 1);
  }
}

TEST_F(TimerHandler, Callback_MayDisarmItsOwnCell) {
  const std::uint16_t array = Make(1, kRepeating, DisarmOwnCell);
  g_array = array;
  g_delInCallback = -1;
  Timer_Set(&array, 0, kHourMs, nullptr);
  Deliver(SignalValue(0, array, 1));
  EXPECT_EQ(g_delInCallback, 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(Calls().deleted, 1);
}

// Critical moments: the signal arrives inside one of the system calls of Timer_Set, Timer_Del or Timer_DestroyAry.

TEST_F(TimerHandler, ExpiryBeforeSetReturns_RunsTheCallbackAndEndsAOneShotCell) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Calls().afterSettime = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(g_calls, 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(Calls().deleted, 1);
}

TEST_F(TimerHandler, ExpiryBeforeSetReturns_LeavesARepeatingCellActive) {
  const std::uint16_t array = Make(1, kRepeating, Count);
  Calls().afterSettime = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(g_calls, 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
}

TEST_F(TimerHandler, LateSignalBeforeTheTimerStarts_DisarmsTheCellAndIsNoFailure) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  CapturedOutput err(stderr);
  Calls().beforeSettime = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(g_calls, 0);
}

TEST_F(TimerHandler, LateSignalBeforeAStartThatFails_LeavesNoTimer) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  CapturedOutput err(stderr);
  const FailCall fail("timer_settime", 1);
  Calls().failingSettime = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
  EXPECT_EQ(err.Take(), "Timer_Set: timer_settime() failed! [Invalid argument]\n");
  EXPECT_EQ(Calls().deleted, 2);
}

TEST_F(TimerHandler, CallbackBeforeSetReturns_MayDisarmItsOwnCell) {
  const std::uint16_t array = Make(1, kRepeating, DisarmOwnCell);
  g_array = array;
  g_delInCallback = -1;
  Calls().afterSettime = [array] {
    Deliver(SignalValue(0, array, 1));
    Deliver(SignalValue(0, array, 1));
  };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(g_calls, 1);
  EXPECT_EQ(g_delInCallback, 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(Calls().deleted, 1);
}

TEST_F(TimerHandler, LateSignalWhileTheTimerIsMade_FindsTheCellInactive) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  Calls().afterCreate = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  Deliver(SignalValue(0, array, 2));
  EXPECT_EQ(g_calls, 1);
}

TEST_F(TimerHandler, ExpiryWhileTheCellIsArmedAgain_DeletesNoTimerTwice) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  Calls().beforeDelete = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  EXPECT_EQ(g_calls, 0);
  EXPECT_EQ(Calls().deleted, 1);
}

TEST_F(TimerHandler, ExpiryDuringDel_CallsNothingAndIsNoFailure) {
  const std::uint16_t array = Make(1, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  CapturedOutput err(stderr);
  Calls().beforeDelete = [array] { Deliver(SignalValue(0, array, 1)); };
  EXPECT_EQ(Timer_Del(&array, 0), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(g_calls, 0);
}

TEST_F(TimerHandler, ExpiryDuringDestroy_FindsNoArray) {
  const std::uint16_t array = Make(2, kOneShot, Count);
  Timer_Set(&array, 0, kHourMs, nullptr);
  Timer_Set(&array, 1, kHourMs, nullptr);
  Calls().beforeDelete = [array] { Deliver(SignalValue(1, array, 1)); };
  Timer_DestroyAry(&array);
  EXPECT_EQ(g_calls, 0);
  EXPECT_EQ(Calls().deleted, 2);
}

}  // namespace
