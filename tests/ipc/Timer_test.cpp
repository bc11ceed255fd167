// SPDX-License-Identifier: MIT
// The timers' operations: making arrays, arming and disarming cells, failures and their messages.

#include <devsupport/ipc/Timer.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/ipc/TimerCallbacks.h"
#include "tests/ipc/TimerCalls.h"
#include "tests/ipc/TimerFixture.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;

using Timers = TimerTest;

TEST_F(Timers, CreateAry_WithSignal0OrLess_UsesTheFirstRealTimeSignalPlus1) {
  for (const int number : {0, -5}) {
    const std::uint16_t array = Make(1, kOneShot, Ignore, number);
    EXPECT_EQ(Calls().actionSignal, SIGRTMIN + 1);
    ASSERT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
    EXPECT_EQ(Calls().event.sigev_signo, SIGRTMIN + 1);
  }
}

TEST_F(Timers, CreateAry_InstallsTheHandlerWithoutRestartAndWithAnEmptyMaskEachTime) {
  for (const int number : {SIGRTMIN + 3, SIGRTMIN + 3}) {
    Calls().actionSignal = -1;
    Make(1, kOneShot, Ignore, number);
    EXPECT_EQ(Calls().actionSignal, number);
    EXPECT_EQ(Calls().action.sa_flags, SA_SIGINFO);
    EXPECT_EQ(Calls().action.sa_sigaction, &Timer_OnSignal);
    for (int other = 1; other <= SIGRTMAX; ++other) EXPECT_NE(sigismember(&Calls().action.sa_mask, other), 1);
  }
}

TEST_F(Timers, CreateAry_WithASignalThatCannotBeCaught_PrintsPerrorsTextAndEntersNothing) {
  CapturedOutput err(stderr);
  std::uint16_t array = 7;
  EXPECT_EQ(Timer_CreateAry(1, kOneShot, Ignore, SIGKILL, &array), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(err.Take(), "sigaction: Invalid argument\n");
  EXPECT_EQ(array, kNoArray);
  EXPECT_EQ(Make(1, kOneShot), 0);
}

TEST_F(Timers, CreateAry_TakesTheFirstFreeNumber) {
  EXPECT_EQ(Make(1, kOneShot), 0);
  const std::uint16_t second = Make(1, kOneShot);
  EXPECT_EQ(second, 1);
  EXPECT_EQ(Make(1, kOneShot), 2);
  Timer_DestroyAry(&second);
  EXPECT_EQ(Make(1, kOneShot), 1);
  EXPECT_EQ(Make(1, kOneShot), 3);
}

TEST_F(Timers, CreateAry_WhenThereAre64_Returns0SilentlyWithTheHandlerInstalled) {
  for (std::uint16_t number = 0; number < 64; ++number) ASSERT_EQ(Make(1, kOneShot), number);
  CapturedOutput err(stderr);
  std::uint16_t array = 7;
  EXPECT_EQ(Timer_CreateAry(1, kOneShot, Ignore, SIGRTMIN + 4, &array), 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(array, kNoArray);
  EXPECT_EQ(Calls().actionSignal, SIGRTMIN + 4);
}

TEST_F(Timers, CreateAry_WithoutMemory_Returns0SilentlyAndEntersNothing) {
  CapturedOutput err(stderr);
  std::uint16_t array = 7;
  int made = -1;
  {
    FailCall fail("malloc", 1);
    made = Timer_CreateAry(1, kOneShot, Ignore, 0, &array);
    EXPECT_TRUE(fail.Happened());
  }
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(made, 0);
  EXPECT_EQ(array, kNoArray);
  const std::uint16_t first = 0;
  EXPECT_EQ(Timer_Set(&first, 0, kHourMs, nullptr), 0);
  EXPECT_EQ(Make(1, kOneShot), 0);
}

TEST_F(Timers, CreateAry_WithANegativeCount_Returns0Silently) {
  CapturedOutput err(stderr);
  std::uint16_t array = 7;
  EXPECT_EQ(Timer_CreateAry(-1, kOneShot, Ignore, 0, &array), 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(array, kNoArray);
}

TEST_F(Timers, CreateAry_Of300Cells_Stores44) {
  const std::uint16_t array = Make(300, kOneShot);
  CapturedOutput err(stderr);
  EXPECT_EQ(Timer_Set(&array, 43, kHourMs, nullptr), 1);
  EXPECT_EQ(Timer_Set(&array, 44, kHourMs, nullptr), 0);
  EXPECT_EQ(err.Take(), "Timer_Set: nAryIdx=44 out range, MaxAryCnt=44\n");
}

TEST_F(Timers, CreateAry_Of300Cells_AllocatesAllOfThem) {
  const auto bytesFor = [](std::int32_t count) {
    Make(count, kOneShot);
    return Calls().allocated.load();
  };
  const std::size_t head = bytesFor(0);
  const std::size_t cell = bytesFor(1) - head;
  EXPECT_GT(cell, 0u);
  EXPECT_EQ(bytesFor(255), head + 255 * cell);
  EXPECT_EQ(bytesFor(300), head + 300 * cell);
}

TEST_F(Timers, CreateAry_Of256Or0Cells_HasNoneToArm) {
  for (const std::int32_t count : {256, 0}) {
    const std::uint16_t array = Make(count, kOneShot);
    CapturedOutput err(stderr);
    EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
    EXPECT_EQ(err.Take(), "Timer_Set: nAryIdx=0 out range, MaxAryCnt=0\n");
    Timer_DelAll(&array);
  }
}

TEST_F(Timers, CreateAry_InManyThreads_GivesEachNumberOnce) {
  std::vector<std::vector<std::uint16_t>> numbers(4);
  std::vector<std::thread> threads;
  for (std::vector<std::uint16_t> &mine : numbers) {
    threads.emplace_back([&mine] {
      std::uint16_t array = 0;
      while (Timer_CreateAry(1, kOneShot, Ignore, 0, &array) == 1) mine.push_back(array);
    });
  }
  for (std::thread &thread : threads) thread.join();
  int seen[64] = {};
  for (const std::vector<std::uint16_t> &mine : numbers)
    for (const std::uint16_t array : mine) ++seen[array];
  for (const int times : seen) EXPECT_EQ(times, 1);
}

TEST_F(Timers, CreateAry_WhenAnotherThreadTakesTheLastNumber_Returns0AndKeepsNoMemory) {
  for (int i = 0; i < 63; ++i) Make(1, kOneShot);
  const int blocks = Calls().blocks;
  Calls().beforeMalloc = [] { EXPECT_EQ(Make(1, kOneShot), 63); };
  std::uint16_t array = 7;
  EXPECT_EQ(Timer_CreateAry(1, kOneShot, Ignore, 0, &array), 0);
  EXPECT_EQ(array, kNoArray);
  EXPECT_EQ(Calls().blocks, blocks + 1) << "that of the other thread";
}

TEST_F(Timers, Set_OutOfRange_PrintsIndexAndCountAndReturns0) {
  const std::uint16_t array = Make(3, kOneShot);
  CapturedOutput err(stderr);
  EXPECT_EQ(Timer_Set(&array, 3, kHourMs, nullptr), 0);
  EXPECT_EQ(Timer_Set(&array, 0xFFFFFFFFu, kHourMs, nullptr), 0);
  EXPECT_EQ(err.Take(),
            "Timer_Set: nAryIdx=3 out range, MaxAryCnt=3\n"
            "Timer_Set: nAryIdx=-1 out range, MaxAryCnt=3\n");
  EXPECT_EQ(Calls().created, 0);
}

TEST_F(Timers, Del_OutOfRange_PrintsIndexAndCountAndReturns0) {
  const std::uint16_t array = Make(3, kOneShot);
  CapturedOutput err(stderr);
  EXPECT_EQ(Timer_Del(&array, 3), 0);
  EXPECT_EQ(err.Take(), "Timer_Del: nAryIdx=3 out range, MaxAryCnt=3\n");
}

TEST_F(Timers, IsActive_FollowsTheCellAndIs0OutOfRange) {
  const std::uint16_t array = Make(2, kRepeating);
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  Timer_Set(&array, 0, kHourMs, nullptr);
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  EXPECT_EQ(Timer_IsActive(&array, 1), 0);
  CapturedOutput err(stderr);
  EXPECT_EQ(Timer_IsActive(&array, 2), 0);
  EXPECT_EQ(err.Take(), "");
  Timer_Del(&array, 0);
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
}

TEST_F(Timers, Set_Of1500Ms_StartsAndRepeatsAfterOneSecondAndAHalf) {
  for (const int oneShot : {kOneShot, kRepeating}) {
    const std::uint16_t array = Make(1, oneShot);
    ASSERT_EQ(Timer_Set(&array, 0, 1500, nullptr), 1);
    EXPECT_EQ(Calls().clock, CLOCK_REALTIME);
    EXPECT_EQ(Calls().settimeFlags, 0);
    EXPECT_FALSE(Calls().wantedOldTimes);
    EXPECT_EQ(Calls().times.it_value.tv_sec, 1);
    EXPECT_EQ(Calls().times.it_value.tv_nsec, 500'000'000);
    EXPECT_EQ(Calls().times.it_interval.tv_sec, 1);
    EXPECT_EQ(Calls().times.it_interval.tv_nsec, 500'000'000);
  }
}

TEST_F(Timers, Set_OfTheLongestPeriod_IsNotNegative) {
  const std::uint16_t array = Make(1, kOneShot);
  ASSERT_EQ(Timer_Set(&array, 0, 0xFFFFFFFFu, nullptr), 1);
  EXPECT_EQ(Calls().times.it_value.tv_sec, 4'294'967);
  EXPECT_EQ(Calls().times.it_value.tv_nsec, 295'000'000);
}

TEST_F(Timers, Set_OfPeriod0_MarksTheCellActiveWithATimerThatDoesNotRun) {
  const std::uint16_t array = Make(1, kOneShot);
  ASSERT_EQ(Timer_Set(&array, 0, 0, nullptr), 1);
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  EXPECT_EQ(Calls().times.it_value.tv_sec, 0);
  EXPECT_EQ(Calls().times.it_value.tv_nsec, 0);
  EXPECT_EQ(Timer_Del(&array, 0), 1);
}

TEST_F(Timers, Set_SignalsWithIndexArrayAndGenerationOfTheCell) {
  Make(1, kOneShot);
  const std::uint16_t array = Make(255, kOneShot, Ignore, SIGRTMIN + 5);
  ASSERT_EQ(Timer_Set(&array, 254, kHourMs, nullptr), 1);
  EXPECT_EQ(Calls().event.sigev_notify, SIGEV_SIGNAL);
  EXPECT_EQ(Calls().event.sigev_signo, SIGRTMIN + 5);
  EXPECT_EQ(Calls().SignalValue(), 0x010400FEu);
}

TEST_F(Timers, Set_OfAnActiveCell_ReplacesItsTimerAndRaisesTheGeneration) {
  const std::uint16_t array = Make(2, kOneShot);
  Timer_Set(&array, 1, kHourMs, nullptr);
  ASSERT_EQ(Timer_Set(&array, 1, kHourMs, nullptr), 1);
  EXPECT_EQ(Calls().created, 2);
  EXPECT_EQ(Calls().deleted, 1);
  EXPECT_EQ(Calls().SignalValue(), 0x02000001u);
  EXPECT_EQ(Timer_IsActive(&array, 1), 1);
  Timer_Set(&array, 0, kHourMs, nullptr);
  EXPECT_EQ(Calls().SignalValue(), 0x01000000u);  // each cell has its own generation
}

TEST_F(Timers, Set_ForThe256thTime_WrapsTheGenerationTo0) {
  const std::uint16_t array = Make(1, kOneShot);
  for (std::uint32_t arming = 1; arming <= 600; ++arming) {
    ASSERT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
    ASSERT_EQ(Calls().SignalValue(), arming % 256 << 24);
    ASSERT_EQ(Timer_IsActive(&array, 0), 1);
  }
}

TEST_F(Timers, Set_WhereNoTimerCanBeMade_PrintsSoAndLeavesTheCellInactive) {
  const std::uint16_t array = Make(1, kOneShot);
  Timer_Set(&array, 0, kHourMs, nullptr);
  CapturedOutput err(stderr);
  {
    FailCall fail("timer_create", 1);
    EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
    EXPECT_EQ(errno, EAGAIN);
  }
  EXPECT_EQ(err.Take(), "Timer_Set: timer_create() failed! [Resource temporarily unavailable]\n");
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(Calls().deleted, 1);  // the previous one
  ASSERT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(Calls().SignalValue(), 0x02000000u);  // the failed arming has used up no generation
}

TEST_F(Timers, Set_WhereTheTimerCannotBeStarted_PrintsSoAndKeepsItInTheInactiveCell) {
  const std::uint16_t array = Make(1, kOneShot);
  CapturedOutput err(stderr);
  {
    FailCall fail("timer_settime", 1);
    EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
  EXPECT_EQ(Timer_Del(&array, 0), 1);
  EXPECT_EQ(err.Take(), "Timer_Set: timer_settime() failed! [Invalid argument]\n");
  EXPECT_EQ(Calls().created, 1);
  EXPECT_EQ(Calls().deleted, 0);
}

TEST_F(Timers, Set_AfterAFailedStart_DropsTheTimerThatWasKept) {
  const std::uint16_t array = Make(1, kOneShot);
  CapturedOutput err(stderr);
  {
    FailCall fail("timer_settime", 1);
    EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
  }
  err.Take();
  ASSERT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 1);
  EXPECT_EQ(Calls().SignalValue(), 0x02000000u);
  EXPECT_EQ(Calls().created, 2);
  EXPECT_EQ(Calls().deleted, 1);
}

TEST_F(Timers, Del_OfAnInactiveCell_Returns1WithoutDeletingATimer) {
  const std::uint16_t array = Make(1, kOneShot);
  CapturedOutput err(stderr);
  bool called = false;
  Calls().beforeDelete = [&called] { called = true; };
  EXPECT_EQ(Timer_Del(&array, 0), 1);
  EXPECT_FALSE(called);
  Calls().beforeDelete = nullptr;
  Timer_Set(&array, 0, kHourMs, nullptr);
  EXPECT_EQ(Timer_Del(&array, 0), 1);
  EXPECT_EQ(Timer_Del(&array, 0), 1);
  EXPECT_EQ(Calls().deleted, 1);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Timers, Del_WhereTheTimerCannotBeDeleted_PrintsSoAndLeavesTheCellActive) {
  const std::uint16_t array = Make(1, kOneShot);
  Timer_Set(&array, 0, kHourMs, nullptr);
  CapturedOutput err(stderr);
  {
    FailCall fail("timer_delete", 1);
    EXPECT_EQ(Timer_Del(&array, 0), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(err.Take(), "Timer_Del: timer_delete() failed! [Invalid argument]\n");
  EXPECT_EQ(Timer_IsActive(&array, 0), 1);
  EXPECT_EQ(Timer_Del(&array, 0), 1);
}

TEST_F(Timers, DelAll_DisarmsEveryActiveCellAndKeepsTheArray) {
  const std::uint16_t array = Make(5, kOneShot);
  for (const std::uint32_t cell : {0u, 2u, 4u}) Timer_Set(&array, cell, kHourMs, nullptr);
  Timer_DelAll(&array);
  EXPECT_EQ(Calls().deleted, 3);
  for (std::uint32_t cell = 0; cell < 5; ++cell) EXPECT_EQ(Timer_IsActive(&array, cell), 0);
  EXPECT_EQ(Timer_Set(&array, 4, kHourMs, nullptr), 1);
  EXPECT_EQ(Calls().SignalValue(), 0x02000004u);
}

TEST_F(Timers, DestroyAry_DeletesTheTimersAndFreesTheNumberButNotTheCallersCopy) {
  const std::uint16_t array = Make(2, kOneShot);
  Timer_Set(&array, 1, kHourMs, nullptr);
  Timer_DestroyAry(&array);
  EXPECT_EQ(Calls().deleted, 1);
  EXPECT_EQ(array, 0);
  Timer_DestroyAry(&array);  // the entry is empty
  EXPECT_EQ(Calls().deleted, 1);
  EXPECT_EQ(Make(1, kOneShot), 0);
}

TEST_F(Timers, WithoutAnArray_EveryOperationAnswers0Silently) {
  CapturedOutput err(stderr);
  for (const std::uint16_t array :
       {std::uint16_t{0}, std::uint16_t{63}, std::uint16_t{64}, std::uint16_t{0x7FFF}, kNoArray}) {
    EXPECT_EQ(Timer_Set(&array, 0, kHourMs, nullptr), 0);
    EXPECT_EQ(Timer_Del(&array, 0), 0);
    EXPECT_EQ(Timer_IsActive(&array, 0), 0);
    Timer_DelAll(&array);
    Timer_DestroyAry(&array);
  }
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
