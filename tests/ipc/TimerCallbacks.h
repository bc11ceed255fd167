// SPDX-License-Identifier: MIT
// For tests with expiring timers: callbacks that count their calls, and a fixture that waits for them.
#pragma once

#include <atomic>
#include <cstdint>

#include "tests/ipc/TimerFixture.h"
#include "tests/support/Child.h"

namespace devsupport::test {

constexpr int kOneShot = 1;
constexpr int kRepeating = 0;
constexpr std::uint32_t kMaxCells = 16;
constexpr std::uint32_t kNever = 0xFFFFFFFFu;

// Results of the callbacks. Since these run in signal handlers, they are atomics and an event.
inline std::atomic<int> g_calls{0};
inline std::atomic<int> g_otherCalls{0};
inline std::atomic<std::uint32_t> g_lastCell{kNever};
inline std::atomic<int> g_perCell[kMaxCells];
inline std::atomic<const Event *> g_event{nullptr};

inline void Announce() {
  if (const Event *event = g_event) event->Announce();
}

inline void Count(std::uint32_t cell) {
  ++g_calls;
  g_lastCell = cell;
  if (cell < kMaxCells) ++g_perCell[cell];
  Announce();
}

inline void CountOther(std::uint32_t cell) {
  ++g_otherCalls;
  g_lastCell = cell;
  Announce();
}

class TimerCallbackTest : public TimerTest {
 protected:
  void SetUp() override {
    TimerTest::SetUp();
    g_calls = 0;
    g_otherCalls = 0;
    g_lastCell = kNever;
    for (std::atomic<int> &calls : g_perCell) calls = 0;
    g_event = &event_;
  }

  void TearDown() override {
    TimerTest::TearDown();
    g_event = nullptr;
  }

  Event event_;
};

}  // namespace devsupport::test
