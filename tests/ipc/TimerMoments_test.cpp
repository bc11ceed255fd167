// SPDX-License-Identifier: MIT
// A signal arrives after any one instruction of the timers' operations: of the current arming, of the one before, of
// one that never was. Afterwards the kernel holds a timer for each active cell, and no other.

#include <devsupport/ipc/Timer.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
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

void Ignore(std::uint32_t /*index*/) {}

// The cells that the kernel holds timers for, by what their signals carry.
std::multiset<std::uint32_t> CellsOfTheKernel() {
  std::multiset<std::uint32_t> cells;
  std::ifstream timers("/proc/self/timers");
  for (std::string line; std::getline(timers, line);) {
    const std::size_t slash = line.find('/');
    if (line.rfind("signal: ", 0) == 0) cells.insert(std::stoul(line.substr(slash + 1), nullptr, 16) & 0x3FFFF);
  }
  return cells;
}

std::multiset<std::uint32_t> ActiveCells(const std::uint16_t &array) {
  std::multiset<std::uint32_t> cells;
  for (std::uint32_t i = 0; i < kCells; ++i)
    if (Timer_IsActive(&array, i) == 1) cells.insert(i);
  return cells;
}

struct Seen {
  std::atomic<bool> agree;
  std::atomic<bool> neighbourActive;
};

struct Signal {
  const char *name;
  int generation;
};

class TimerMoments : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    if (!std::ifstream("/proc/self/timers")) GTEST_SKIP() << "the kernel does not show a process's timers";
  }

  void MakeArray(int oneShot) {
    Timer_CreateAry(kCells, oneShot, Ignore, 0, &array);
    Timer_Set(&array, kNeighbour, kHourMs, nullptr);
    for (int i = 0; i < kArmings; ++i) Timer_Set(&array, kCell, kHourMs, nullptr);
  }

  // Each signal meets each moment of the operation, in both kinds of arrays.
  void ExpectTimersOfActiveCells(const std::function<void()> &preparation, const std::function<void()> &operation,
                                 bool neighbourStays) {
    const TestSeed seed;
    for (const int oneShot : {0, 1}) {
      for (const Signal &signal : {Signal{"the current arming", kArmings}, Signal{"the one before", kArmings - 1},
                                   Signal{"the next one", kArmings + 1}, Signal{"no arming", kArmings + 100}}) {
        SCOPED_TRACE(std::string(oneShot != 0 ? "one-shot, " : "repeating, ") + signal.name);
        const auto begin = [&] {
          return std::make_unique<Traced>(
              [&] {
                MakeArray(oneShot);
                preparation();
              },
              operation,
              [&] {
                seen->agree = CellsOfTheKernel() == ActiveCells(array);
                seen->neighbourActive = Timer_IsActive(&array, kNeighbour) == 1;
              });
        };
        const auto deliver = [&](Traced &process) {
          seen->agree = false;
          process.Queue(TimerSignal(), static_cast<int>(kCell | static_cast<unsigned>(signal.generation) << 24));
          EXPECT_EQ(process.Finish(), 0);
          EXPECT_TRUE(seen->agree);
          EXPECT_EQ(seen->neighbourActive, neighbourStays);
        };
        EXPECT_GT(AtEachMoment(seed, begin, deliver), 0);
      }
    }
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

}  // namespace
