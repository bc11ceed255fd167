// SPDX-License-Identifier: MIT
// A signal arrives after any one instruction of the timers' operations: of the current arming, of the one before, of
// one that never was. And the other way round: an operation, or another signal, comes between two instructions of the
// handler, as another thread's may. Afterwards the kernel holds a timer for each active cell, and no other.

#include <devsupport/ipc/Timer.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "tests/support/Moments.h"
#include "tests/support/SharedBlock.h"

namespace {

using namespace devsupport::test;

constexpr std::uint32_t kHourMs = 3'600'000;  // only signals that are queued by hand arrive
constexpr std::uint32_t kNeighbour = 0;
constexpr std::uint32_t kCell = 1;
constexpr std::uint32_t kCells = 3;
constexpr int kArmings = 2;  // of the cell, before the operation

int TimerSignal() { return SIGRTMIN + 1; }

std::atomic<int> g_callbacks;
void CountCallback(std::uint32_t /*index*/) { ++g_callbacks; }

const std::function<void()> *g_meanwhile;
void DoMeanwhile(int /*signal*/) { (*g_meanwhile)(); }

// How many timers each cell has, one digit a cell: those that the kernel holds, by what their signals carry.
unsigned CellsOfTheKernel() {
  char text[4096] = "";
  const int fd = ::open("/proc/self/timers", O_RDONLY);
  EXPECT_GE(::read(fd, text, sizeof text - 1), 0);
  ::close(fd);
  unsigned cells = 0;
  for (const char *line = text; (line = std::strstr(line, "signal: ")) != nullptr; ++line)
    cells += 1u << 4 * (std::strtoul(std::strchr(line, '/') + 1, nullptr, 16) & 0x3FFFF);
  return cells;
}

unsigned ActiveCells(const std::uint16_t &array) {
  unsigned cells = 0;
  for (std::uint32_t i = 0; i < kCells; ++i)
    if (Timer_IsActive(&array, i) == 1) cells += 1u << 4 * i;
  return cells;
}

struct Seen {
  std::atomic<bool> agree;
  std::atomic<bool> neighbourActive;
  std::atomic<int> callbacks;
};

struct Signal {
  const char *name;
  int generation;

  // What the cell's timer carries after so many armings.
  int Value() const { return static_cast<int>(kCell | static_cast<unsigned>(generation) << 24); }
};
constexpr Signal kCurrent{"the current arming", kArmings};
constexpr Signal kBefore{"the one before", kArmings - 1};
constexpr Signal kSignals[] = {kCurrent, kBefore, {"the next one", kArmings + 1}, {"no arming", kArmings + 100}};

class TimerMoments : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    if (::access("/proc/self/timers", R_OK) != 0) GTEST_SKIP() << "the kernel does not show a process's timers";
    // The emulator's children need not translate again what it has translated here.
    MakeArray(0);
    Handle(kCurrent);
    Look();
    Timer_DestroyAry(&array);
    g_callbacks = 0;
  }

  void MakeArray(int oneShot) {
    Timer_CreateAry(kCells, oneShot, CountCallback, 0, &array);
    Timer_Set(&array, kNeighbour, kHourMs, nullptr);
    for (int i = 0; i < kArmings; ++i) Timer_Set(&array, kCell, kHourMs, nullptr);
  }

  void Look() {
    seen->agree = CellsOfTheKernel() == ActiveCells(array);
    seen->neighbourActive = Timer_IsActive(&array, kNeighbour) == 1;
    seen->callbacks = g_callbacks.load();
  }

  // Stops a process at each moment of the operation, lets another thing happen there, and calls judge at its end.
  void AtEachMomentOf(const std::function<void()> &preparation, const std::function<void()> &operation,
                      const std::function<void(Traced &)> &happen, const std::function<void()> &judge) {
    const TestSeed seed;
    const auto begin = [&] { return std::make_unique<Traced>(preparation, operation, [this] { Look(); }); };
    const auto act = [&](Traced &process) {
      seen->agree = false;
      happen(process);
      EXPECT_EQ(process.Finish(), 0);
      EXPECT_TRUE(seen->agree);
      judge();
    };
    EXPECT_GT(AtEachMoment(seed, begin, act), 0);
  }

  // Calls with each kind of array, by its one-shot flag, and each signal.
  static void ForEach(const std::function<void(int, const Signal &)> &act) {
    for (const int oneShot : {0, 1}) {
      for (const Signal &signal : kSignals) {
        SCOPED_TRACE(std::string(oneShot != 0 ? "one-shot, " : "repeating, ") + signal.name);
        act(oneShot, signal);
      }
    }
  }

  // Each signal meets each moment of the operation, in both kinds of arrays.
  void ExpectTimersOfActiveCells(const std::function<void()> &preparation, const std::function<void()> &operation,
                                 bool neighbourStays) {
    ForEach([&](int oneShot, const Signal &signal) {
      const auto prepare = [&] {
        MakeArray(oneShot);
        preparation();
      };
      const auto deliver = [&](Traced &process) { process.Queue(TimerSignal(), signal.Value()); };
      AtEachMomentOf(prepare, operation, deliver, [&] { EXPECT_EQ(seen->neighbourActive, neighbourStays); });
    });
  }

  // The handler, as another thread runs it.
  static void Handle(const Signal &signal) {
    siginfo_t info{};
    info.si_value.sival_int = signal.Value();
    Timer_OnSignal(TimerSignal(), &info, nullptr);
  }
  // The operation comes between any two instructions of the handler of each signal.
  void ExpectTimersOfActiveCellsWithin(const std::function<void()> &operation, bool neighbourStays = true) {
    ForEach([&](int oneShot, const Signal &signal) {
      MeetHandler(oneShot, signal, operation, [&] { EXPECT_EQ(seen->neighbourActive, neighbourStays); });
    });
  }
  void MeetHandler(int oneShot, const Signal &signal, const std::function<void()> &meanwhile,
                   const std::function<void()> &judge) {
    const auto prepare = [&] {
      MakeArray(oneShot);
      g_meanwhile = &meanwhile;
      std::signal(SIGUSR1, DoMeanwhile);
    };
    AtEachMomentOf(
        prepare, [&] { Handle(signal); }, [](Traced &process) { process.Queue(SIGUSR1, 0); }, judge);
  }

  std::uint16_t array = 0;
  SharedBlock<Seen> seen;
};

void Nothing() {}

TEST_F(TimerMoments, Arming_LeavesTheTimersOfTheActiveCells) {
  ExpectTimersOfActiveCells([this] { Timer_Del(&array, kCell); },
                            [this] { Timer_Set(&array, kCell, kHourMs, nullptr); }, true);
}

TEST_F(TimerMoments, ArmingAgain_LeavesTheTimersOfTheActiveCells) {
  ExpectTimersOfActiveCells(
      Nothing, [this] { Timer_Set(&array, kCell, kHourMs, nullptr); }, true);
}

TEST_F(TimerMoments, Disarming_LeavesTheTimersOfTheActiveCells) {
  ExpectTimersOfActiveCells(
      Nothing, [this] { Timer_Del(&array, kCell); }, true);
}

TEST_F(TimerMoments, Clearing_LeavesNoTimer) {
  ExpectTimersOfActiveCells(
      Nothing, [this] { Timer_DelAll(&array); }, false);
}

TEST_F(TimerMoments, Destroying_LeavesNoTimer) {
  ExpectTimersOfActiveCells(
      Nothing, [this] { Timer_DestroyAry(&array); }, false);
}

TEST_F(TimerMoments, ArmingWithinTheHandler_LeavesTheTimersOfTheActiveCells) {
  ExpectTimersOfActiveCellsWithin([this] { Timer_Set(&array, kCell, kHourMs, nullptr); });
}

TEST_F(TimerMoments, DisarmingWithinTheHandler_LeavesTheTimersOfTheActiveCells) {
  ExpectTimersOfActiveCellsWithin([this] { Timer_Del(&array, kCell); });
}

TEST_F(TimerMoments, ClearingWithinTheHandler_LeavesNoTimer) {
  ExpectTimersOfActiveCellsWithin([this] { Timer_DelAll(&array); }, false);
}

TEST_F(TimerMoments, TwoHandlersOfOneArming_CallBackOnceIfTheCellIsOneShot) {
  for (const int oneShot : {0, 1})
    MeetHandler(
        oneShot, kCurrent, [] { Handle(kCurrent); }, [&] { EXPECT_EQ(seen->callbacks, oneShot != 0 ? 1 : 2); });
}

TEST_F(TimerMoments, HandlersOfTwoArmings_CallBackForTheCurrentOneOnly) {
  for (const int oneShot : {0, 1}) {
    const auto judge = [&] { EXPECT_LE(seen->callbacks, 1); };
    MeetHandler(
        oneShot, kCurrent, [] { Handle(kBefore); }, judge);
    MeetHandler(
        oneShot, kBefore, [] { Handle(kCurrent); }, judge);
  }
}

}  // namespace
