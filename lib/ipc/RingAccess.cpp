// SPDX-License-Identifier: MIT
// What the ring's operations share and seldom do: waiting for a held semaphore, emptying the ring.

#include "lib/ipc/RingAccess.h"

#include <sched.h>

namespace devsupport {

namespace {

// How often a held semaphore is tried before the process sleeps. A holder that runs is through after one or two; more
// attempts than these gain nothing (docs/decisions/ring-contention.md).
constexpr int kAttempts = 20;

// Giving up the processor helps when the holder may then have it. Next to a real-time process only its equals may.
bool YieldingHelps() { return (::sched_getscheduler(0) & ~SCHED_RESET_ON_FORK) == SCHED_OTHER; }

}  // namespace

// A process that sleeps in the semaphore is handed it by the kernel, and all others wait until it has woken up:
// from then on each operation costs a change of processes. So a short while is spent on attempts first. Nobody
// starves: those who sleep are served first, in the order in which they came.
bool WaitForSemaphore(std::int32_t nSemId) {
  if (YieldingHelps()) {
    for (int nAttempt = 0; nAttempt < kAttempts; ++nAttempt) {
      ::sched_yield();
      if (OperateSemaphore(nSemId, kTakeSemaphore, kDoNotWait)) return true;
      if (errno != EAGAIN) return false;
    }
  }
  while (!OperateSemaphore(nSemId, kTakeSemaphore))
    if (errno != EINTR) return false;
  return true;
}

void EmptyRing(const TShmQueue &que) {
  // Between the two indexes' steps the ring would show cells that were taken long ago; with a write index that is no
  // slot it counts as empty, also for those who come after a process that died here.
  StoreInOrder(SharedIndex(que, RingEnd::Write), kNoSlot);
  StoreIndex(que, RingEnd::Read, 0);
  StoreIndex(que, RingEnd::Write, 0);
}

}  // namespace devsupport
