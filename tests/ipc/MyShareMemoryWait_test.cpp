// SPDX-License-Identifier: MIT
// How the ring's operations wait for the semaphore: first some attempts, then sleep. A real-time process sleeps at
// once. A signal interrupts the plain lock only.

#include <sched.h>
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "tests/ipc/RingFixture.h"
#include "tests/support/Child.h"

namespace {

// The calls of the kernel in their order: "try", "wait", "give", "yield".
std::vector<std::string> g_calls;
// The number of attempts that find the semaphore held, and the error after them; with 0 the kernel answers.
int g_held = 0;
int g_thenError = 0;

std::string CallName(const sembuf &operation) {
  if (operation.sem_op > 0) return "give";
  return (operation.sem_flg & IPC_NOWAIT) != 0 ? "try" : "wait";
}

}  // namespace

extern "C" int __real_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count) {
  g_calls.push_back(CallName(*operations));
  if (g_calls.back() == "try" && g_held > 0) {
    --g_held;
    errno = EAGAIN;
    return -1;
  }
  if (g_thenError != 0) {
    errno = g_thenError;
    return -1;
  }
  return __real_semop(id, operations, count);
}

extern "C" int __wrap_sched_yield();
extern "C" int __wrap_sched_yield() {
  g_calls.emplace_back("yield");
  return 0;
}

namespace {

using devsupport::test::AwaitWaiter;
using devsupport::test::Child;
using devsupport::test::Event;
using Calls = std::vector<std::string>;

class RingWait : public devsupport::test::RingFixture {
 protected:
  void SetUp() override {
    ASSERT_EQ(Create(ring, 3, 8), 1);
    g_calls.clear();
    g_held = 0;
    g_thenError = 0;
  }
  void TearDown() override {
    g_held = 0;
    g_thenError = 0;
    RingFixture::TearDown();
  }

  // Whether a push by a process of this scheduling policy sleeps at once when the semaphore is held.
  static int SleepsAtOnce(int policy, TShmQueue &que) {
    sched_param parameters{};
    parameters.sched_priority = ::sched_get_priority_min(policy);
    if (::sched_setscheduler(0, policy, &parameters) != 0) return kMayNot;
    g_calls.clear();
    g_held = 1000;
    PushText(que, "a");
    return g_calls == Calls{"try", "wait", "give"} ? kSlept : kTriedAgain;
  }
  enum Outcome { kSlept, kTriedAgain, kMayNot };
};

TEST_F(RingWait, Push_ToAFreeRing_MakesTwoCalls) {
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_EQ(g_calls, (Calls{"try", "give"}));
}

TEST_F(RingWait, Push_ToAHeldRing_LetsOthersRunAndTriesAgain) {
  g_held = 2;
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_EQ(g_calls, (Calls{"try", "yield", "try", "yield", "try", "give"}));
}

TEST_F(RingWait, Push_ToARingThatIsHeldForLong_SleepsAfterAWhile) {
  g_held = 1000;
  EXPECT_EQ(PushText(ring, "a"), 1);
  ASSERT_GE(g_calls.size(), 2u);
  EXPECT_EQ(Calls(g_calls.end() - 2, g_calls.end()), (Calls{"wait", "give"}));
  EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), "wait"), 1);
  EXPECT_LE(std::count(g_calls.begin(), g_calls.end(), "try"), 21);
  EXPECT_EQ(std::count(g_calls.begin(), g_calls.end(), "yield") + 1,
            std::count(g_calls.begin(), g_calls.end(), "try"));
}

TEST_F(RingWait, Push_ToAHeldRingWhoseSemaphoreGoes_RunsUnlocked) {
  g_held = 2;
  g_thenError = EIDRM;
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_EQ(g_calls, (Calls{"try", "yield", "try", "yield", "try"}));
  g_thenError = 0;
  EXPECT_EQ(GetText(ring), "a");
}

TEST_F(RingWait, Push_OfARealTimeProcess_SleepsAtOnce) {
  for (const int policy : {SCHED_FIFO, SCHED_RR}) {
    Child child([&] { return SleepsAtOnce(policy, ring); });
    const int outcome = child.Wait();
    if (outcome == kMayNot) GTEST_SKIP() << "needs the right to real-time priorities";
    EXPECT_EQ(outcome, kSlept) << "policy " << policy;
  }
}

TEST_F(RingWait, Lock_MakesOneCallThatWaits) {
  EXPECT_EQ(TShmQueue_Lock(&ring), 1);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  EXPECT_EQ(g_calls, (Calls{"wait", "give"}));
}

TEST_F(RingWait, SleepingProcess_GetsTheLockBeforeThoseThatTry) {
  constexpr int kTurns = 200;
  std::vector<Child> tryingAllTheTime;
  for (int i = 0; i < 4; ++i) {
    tryingAllTheTime.emplace_back([&] {
      for (;; g_calls.clear()) OverwriteText(ring, "a");
      return 0;
    });
  }
  Child sleeping([&] {
    for (int turn = 0; turn < kTurns; ++turn)
      if (TShmQueue_Lock(&ring) != 1 || TShmQueue_Unlock(&ring) != 1) return 1;
    return 0;
  });
  EXPECT_EQ(sleeping.Wait(), 0);
}

void CountSignal(int /*signal*/) {}

void CatchAlarms() {
  struct sigaction action {};
  action.sa_handler = CountSignal;
  ::sigaction(SIGALRM, &action, nullptr);
}

TEST_F(RingWait, InterruptedWait_IsTakenUpAgainAndGivenBackOnce) {
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  Event done;
  Child child([&] {
    CatchAlarms();
    // Every 100 us until the lock is taken, so that the wait below is interrupted repeatedly.
    const itimerval often{{0, 100}, {0, 100}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    const int pushed = PushText(ring, "a");
    done.Announce();
    return pushed;
  });
  for (int i = 0; i < 100; ++i) AwaitWaiter(ring.semid);
  EXPECT_FALSE(done.TryWait());
  EXPECT_EQ(SemValue(), 0);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  EXPECT_EQ(child.Wait(), 1);
  EXPECT_EQ(SemValue(), 1);
  EXPECT_EQ(GetText(ring), "a");
}

TEST_F(RingWait, Lock_InterruptedByASignal_Returns0) {
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  Child child([&] {
    CatchAlarms();
    const int result = TShmQueue_Lock(&ring);
    EXPECT_EQ(errno, EINTR);
    return result;
  });
  AwaitWaiter(ring.semid);
  child.Signal(SIGALRM);
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(SemValue(), 0);
}

}  // namespace
