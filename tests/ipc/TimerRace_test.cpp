// SPDX-License-Identifier: MIT
// Timers and their handler in the same thread and in others: long random scripts, and handlers that run permanently.

#include <devsupport/ipc/Timer.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <random>
#include <thread>
#include <vector>

#include "tests/ipc/TimerCallbacks.h"
#include "tests/ipc/TimerFixture.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

using TimerRace = TimerCallbackTest;

// Blocks the timers' signals in this thread, so that callbacks run in other threads.
class BlockedSignal {
 public:
  BlockedSignal() {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, TimerSignal());
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
  }
  ~BlockedSignal() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignal(const BlockedSignal &) = delete;
  BlockedSignal &operator=(const BlockedSignal &) = delete;

 private:
  sigset_t before_{};
};

// Threads that only receive signals.
class Receivers {
 public:
  explicit Receivers(int count) {
    for (int n = 0; n < count; ++n) {
      threads_.emplace_back([this] {
        while (!stop_) ::usleep(50);
      });
    }
  }
  ~Receivers() {
    stop_ = true;
    for (std::thread &thread : threads_) thread.join();
  }
  Receivers(const Receivers &) = delete;
  Receivers &operator=(const Receivers &) = delete;

 private:
  std::atomic<bool> stop_{false};
  std::vector<std::thread> threads_;
};

std::atomic<pthread_t> g_thread;

void NoteThread(std::uint32_t /*cell*/) {
  g_thread = ::pthread_self();
  Announce();
}

TEST_F(TimerRace, Callback_RunsInAnotherThreadThanTheOneThatArms) {
  g_thread = ::pthread_self();
  const std::uint16_t array = Make(1, kOneShot, NoteThread);
  const Receivers receivers(1);
  const BlockedSignal blocked;
  ASSERT_EQ(Timer_Set(&array, 0, 1, nullptr), 1);
  event_.Wait();
  EXPECT_EQ(::pthread_equal(g_thread, ::pthread_self()), 0);
  EXPECT_EQ(Timer_IsActive(&array, 0), 0);
}

// Arms and disarms at random while 1 kHz timers expire, then checks that each cell still works. The fixture adds that
// every timer was deleted exactly once.
void RunScript(std::uint16_t once, std::uint16_t often, int steps, bool withLateSignals) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  int armed[kMaxCells] = {};
  CapturedOutput err(stderr);
  for (int step = 0; step < steps; ++step) {
    const std::uint16_t array = random() % 2 != 0 ? once : often;
    const auto cell = static_cast<std::uint32_t>(random() % kMaxCells);
    switch (random() % 16) {
      default:
        ASSERT_EQ(Timer_Set(&array, cell, 1, array == once ? Count : CountOther), 1);
        if (array == once) ++armed[cell];
        break;
      case 9:
      case 10:
      case 11:
        ASSERT_EQ(Timer_Del(&array, cell), 1);
        break;
      case 12:
        Timer_IsActive(&array, cell);
        break;
      case 13:
        if (random() % 8 == 0) Timer_DelAll(&array);
        break;
      case 14:
        ::usleep(static_cast<useconds_t>(random() % 300));
        break;
      case 15:
        if (withLateSignals) Deliver(SignalValue(cell, array, static_cast<std::uint32_t>(random() % 256)));
        break;
    }
  }
  Timer_DelAll(&once);
  Timer_DelAll(&often);
  EXPECT_EQ(err.Take(), "");
  for (std::uint32_t cell = 0; cell < kMaxCells; ++cell) {
    EXPECT_EQ(Timer_IsActive(&once, cell), 0);
    EXPECT_EQ(Timer_IsActive(&often, cell), 0);
    EXPECT_TRUE(withLateSignals || g_perCell[cell] <= armed[cell]) << cell;
  }
  for (std::uint32_t cell = 0; cell < kMaxCells; ++cell) {
    const int before = g_perCell[cell];
    ASSERT_EQ(Timer_Set(&once, cell, 1, Count), 1);
    while (g_perCell[cell] == before || Timer_IsActive(&once, cell) == 1) {
      // A late, still pending signal of the script may disarm the cell. A cell that stays active must expire.
      if (Timer_IsActive(&once, cell) == 0 && g_perCell[cell] == before) Timer_Set(&once, cell, 1, Count);
      ::usleep(100);
    }
  }
}

TEST_F(TimerRace, RandomScript_InterruptedByItsTimers) {
  const std::uint16_t once = Make(kMaxCells, kOneShot);
  const std::uint16_t often = Make(kMaxCells, kRepeating);
  RunScript(once, often, 20'000, false);
}

TEST_F(TimerRace, RandomScript_InterruptedByLateSignalsToo) {
  const std::uint16_t once = Make(kMaxCells, kOneShot);
  const std::uint16_t often = Make(kMaxCells, kRepeating);
  RunScript(once, often, 20'000, true);
}

TEST_F(TimerRace, RandomScript_WithItsTimersInOtherThreads) {
  const std::uint16_t once = Make(kMaxCells, kOneShot);
  const std::uint16_t often = Make(kMaxCells, kRepeating);
  const Receivers receivers(3);
  const BlockedSignal blocked;
  RunScript(once, often, 20'000, false);
}

TEST_F(TimerRace, RandomScript_WithItsTimersAndLateSignalsInOtherThreads) {
  const std::uint16_t once = Make(kMaxCells, kOneShot);
  const std::uint16_t often = Make(kMaxCells, kRepeating);
  const Receivers receivers(3);
  const BlockedSignal blocked;
  RunScript(once, often, 20'000, true);
}

// The scripts above reach critical moments by chance. Here handlers run permanently, with few cells, and with signals
// of the current arming and of the previous one.
TEST_F(TimerRace, RandomScript_AgainstHandlersThatNeverRest) {
  constexpr std::uint32_t kCells = 2;
  const TestSeed seed;
  const std::uint16_t arrays[] = {Make(kCells, kOneShot), Make(kCells, kRepeating)};
  std::atomic<std::uint32_t> newest[2][kCells] = {};
  std::atomic<unsigned> lateEvery{4};
  std::atomic<int> running{0};
  std::atomic<bool> stop{false};
  const auto handle = [&](std::uint64_t ownSeed) {
    ++running;
    std::mt19937_64 random(ownSeed);
    while (!stop) {
      const std::size_t array = random() % 2;
      const std::size_t cell = random() % kCells;
      const std::uint32_t generation = newest[array][cell] - (random() % lateEvery == 0 ? 1u : 0u);
      siginfo_t info{};
      info.si_value.sival_int = SignalValue(static_cast<std::uint32_t>(cell), arrays[array], generation & 0xFFu);
      Timer_OnSignal(TimerSignal(), &info, nullptr);
    }
  };
  CapturedOutput err(stderr);
  std::thread first(handle, seed + 1);
  std::thread second(handle, seed + 2);
  while (running < 2) std::this_thread::yield();
  std::mt19937_64 random(seed);
  for (int step = 0; step < 100'000; ++step) {
    if (step == 50'000) lateEvery = 64;
    const std::size_t array = random() % 2;
    const auto cell = static_cast<std::uint32_t>(random() % kCells);
    if (random() % 4 == 0) {
      EXPECT_EQ(Timer_Del(&arrays[array], cell), 1);
      continue;
    }
    const std::uint32_t generation = (newest[array][cell] + 1) & 0xFFu;
    // At first the signals arrive during Timer_Set; later also after it, when they race with each other.
    const bool early = step < 50'000 || random() % 2 == 0;
    if (early) newest[array][cell] = generation;
    EXPECT_EQ(Timer_Set(&arrays[array], cell, kHourMs, Count), 1);
    newest[array][cell] = generation;
  }
  stop = true;
  first.join();
  second.join();
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
