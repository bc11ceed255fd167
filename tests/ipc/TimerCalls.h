// SPDX-License-Identifier: MIT
// Wraps the system calls of the timers: counts them, keeps their arguments, makes them fail, and runs code of a test
// at moments when a signal can arrive.
#pragma once

#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace devsupport::test {

struct TimerCalls {
  std::atomic<int> created{0};            // timer_create that succeeded
  std::atomic<int> deleted{0};            // timer_delete that succeeded
  std::atomic<int> deleteErrors{0};       // timer_delete that the kernel refused: of an already deleted timer
  std::atomic<int> settimeErrors{0};      // timer_settime that the kernel refused: of an already deleted timer
  std::atomic<std::size_t> allocated{0};  // bytes asked of malloc last
  std::atomic<int> blocks{0};             // malloc less free
  clockid_t clock = -1;
  sigevent event{};
  int settimeFlags = -1;
  itimerspec times{};
  bool wantedOldTimes = false;
  int actionSignal = -1;
  struct sigaction action {};

  // Each runs once, at the next call.
  std::function<void()> afterCreate;
  std::function<void()> beforeSettime;
  std::function<void()> afterSettime;
  std::function<void()> failingSettime;  // at one that FailCall makes fail
  std::function<void()> beforeDelete;
  std::function<void()> beforeMalloc;

  std::uint32_t SignalValue() const { return static_cast<std::uint32_t>(event.sigev_value.sival_int); }
};

/// The calls since the last ForgetTimerCalls().
TimerCalls &Calls();
void ForgetTimerCalls();

}  // namespace devsupport::test
