// SPDX-License-Identifier: MIT
// Twenty processes start at the same time with new keys: one makes the ring, all see it initialised, and no process
// sees the user area before its creator has released the lock.

#include <devsupport/ipc/MyShareMemory.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>

#include "tests/ipc/RingFixture.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace {

using namespace devsupport::test;

constexpr int kStarters = 20;
constexpr int kRounds = 15;
constexpr int kUserBytes = 36;
constexpr std::uint8_t kInitialised = 0xA5;

struct Start {
  std::atomic<int> ready;
  std::atomic<bool> go;
  std::atomic<int> creators;
  std::atomic<int> leave;
};

bool IsInitialised(const TShmQueue &que) {
  return std::all_of(que.pUserArea, que.pUserArea + kUserBytes,
                     [](std::uint8_t byte) { return byte == kInitialised; });
}

int StartUp(const SharedBlock<Start> &start, int shareKey, int semKey, bool lockIfNew) {
  start->ready.fetch_add(1);
  while (!start->go) ::sched_yield();

  TShmQueue que{};
  TShmQueueOpt opt{kUserBytes, lockIfNew ? 1 : 0, kNever};
  if (TShmQueue_Create(shareKey, semKey, 100, 16, &opt, &que) != 1) return 1;
  if (opt.bNewCreated != 0) start->creators.fetch_add(1);
  if (lockIfNew) {
    if (opt.bNewCreated != 0) {
      for (int i = 0; i < kUserBytes; ++i) {  // slowly
        ::sched_yield();
        que.pUserArea[i] = kInitialised;
      }
      if (TShmQueue_Unlock(&que) != 1) return 2;
    } else if (!IsInitialised(que)) {
      return 3;
    }
  }
  const int pid = ::getpid();
  if (TShmQueue_Push(&que, &pid, sizeof pid) != 1) return 4;

  // All leave together, because the last one to leave would remove the semaphore that a late process needs.
  start->leave.fetch_add(1);
  while (start->leave < kStarters) ::sched_yield();
  TShmQueue_Close(&que, 0);
  return 0;
}

class RingRace : public ::testing::TestWithParam<bool> {};

TEST_P(RingRace, OneCreates_AllSeeAnInitialisedRing) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    const IpcKey shareKey;
    const IpcKey semKey;
    const SharedBlock<Start> start;
    std::vector<Child> starters;
    for (int i = 0; i < kStarters; ++i)
      starters.emplace_back([&] { return StartUp(start, shareKey, semKey, GetParam()); });
    while (start->ready < kStarters) ::sched_yield();
    start->go = true;
    std::vector<int> pids;
    for (Child &starter : starters) {
      pids.push_back(starter.Pid());
      EXPECT_EQ(starter.Wait(), 0);
    }
    EXPECT_EQ(start->creators, 1);

    TShmQueue que{};
    TShmQueueOpt opt{kUserBytes, 0, kNever};
    ASSERT_EQ(TShmQueue_Create(shareKey, semKey, 100, 16, &opt, &que), 1);
    std::vector<int> pushed;
    for (int pid = 0; TShmQueue_Get(&que, &pid, nullptr, sizeof pid) == 1;) pushed.push_back(pid);
    std::sort(pids.begin(), pids.end());
    std::sort(pushed.begin(), pushed.end());
    EXPECT_EQ(pushed, pids);
    TShmQueue_Close(&que, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(LockIfNew, RingRace, ::testing::Bool());

}  // namespace
