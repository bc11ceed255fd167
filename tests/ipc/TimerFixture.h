// SPDX-License-Identifier: MIT
// Fixture of the tests of the timers: destroys the arrays after each test, and checks that each timer was deleted
// once.
#pragma once

#include <devsupport/ipc/Timer.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>

#include "tests/ipc/TimerCalls.h"

namespace devsupport::test {

constexpr std::uint32_t kHourMs = 3'600'000;  // longer than any test: only signals queued by hand arrive
constexpr std::uint16_t kNoArray = 0xFFFF;

inline void Ignore(std::uint32_t /*nAryIdx*/) {}

inline int TimerSignal() { return SIGRTMIN + 1; }

inline int SignalValue(std::uint32_t nAryIdx, std::uint32_t nAryNo, std::uint32_t nGeneration) {
  return static_cast<int>(nAryIdx | nAryNo << 18 | nGeneration << 24);
}

/// Queues a signal with the value, as an expiry of that arming would; returns after the handler ran.
inline void Deliver(int value, int number = TimerSignal()) {
  sigval queued{};
  queued.sival_int = value;
  ASSERT_EQ(::sigqueue(::getpid(), number, queued), 0);
  ::usleep(1);  // the thread sanitizer delivers signals at calls that may block
}

class TimerTest : public ::testing::Test {
 protected:
  void SetUp() override { ForgetTimerCalls(); }

  void TearDown() override {
    for (std::uint16_t number = 0; number < 64; ++number) Timer_DestroyAry(&number);
    EXPECT_EQ(Calls().created, Calls().deleted) << "a timer was left over";
    EXPECT_EQ(Calls().deleteErrors, 0) << "a timer was deleted twice";
    EXPECT_EQ(Calls().settimeErrors, 0) << "a timer was started after it had been deleted";
  }

  static std::uint16_t Make(std::int32_t count, int oneShot, TTimerFunc fallback = Ignore, int number = 0) {
    std::uint16_t array = 0x1234;
    EXPECT_EQ(Timer_CreateAry(count, oneShot, fallback, number, &array), 1);
    return array;
  }
};

}  // namespace devsupport::test
