// SPDX-License-Identifier: MIT
// A process is killed after any one instruction of its way through the store's gate, or meets another one there.
// One process at a time is inside. The next one is told of a death inside, and only of that. The gate still works.

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <functional>
#include <memory>

#include "db/for_project/StoreGate.h"
#include "db/for_project/StoreSemaphores.h"
#include "tests/db/Store.h"
#include "tests/support/Moments.h"
#include "tests/support/SharedBlock.h"

namespace {

bool g_almostOver = false;

}  // namespace

// A deadline that begins now is over after some milliseconds.
extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  const int result = __real_clock_gettime(clock, now);
  if (g_almostOver) {
    now->tv_sec -= devsupport::store::Deadline::kLimitMs / 1000;
    now->tv_nsec = std::min(now->tv_nsec + 20'000'000L, 999'999'999L);
  }
  g_almostOver = false;
  return result;
}

namespace {

using namespace devsupport::test;
using devsupport::store::Deadline;
using devsupport::store::g_gate;
using devsupport::store::g_semaphores;

enum class Lock { kMutex, kSemaphore };
enum Where { kBefore, kOnTheWay, kInside, kAfter };

struct Seen {
  std::atomic<int> where;
  std::atomic<int> visits;  // not counted in one step: visits that overlap lose one
  std::atomic<int> refusals;
};

class GateMoments : public StoreTest, public ::testing::WithParamInterface<Lock> {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    struct stat home = {};
    ::stat(home_.c_str(), &home);
    ASSERT_EQ(g_semaphores.Attach(home), 0);
    ASSERT_EQ(g_gate.Attach(home), 0);
    if (GetParam() == Lock::kSemaphore) g_gate.Record().bSemaphore = 1;
    ASSERT_EQ(g_gate.Record().bSemaphore, GetParam() == Lock::kSemaphore ? 1u : 0u);
    g_gate.BeginGeneration();
  }
  void TearDown() override {
    g_gate.Detach();
    g_semaphores.Detach();
    StoreTest::TearDown();
  }

  // Goes in and out.
  void Visit() {
    Deadline deadline;
    deadline.LeftMs();  // it begins here
    seen->where = kOnTheWay;
    if (g_gate.Enter(deadline) != 0) {
      ++seen->refusals;
      return;
    }
    seen->where = kInside;
    const int visits = seen->visits;
    seen->visits = visits + 1;
    seen->where = kOnTheWay;
    g_gate.Leave();
    seen->where = kAfter;
  }
  // A visitor that comes now gets in, and so does the next one. True when the first one has to make the regions anew.
  bool NextOneMustRebuild() {
    Deadline deadline;
    EXPECT_EQ(g_gate.Enter(deadline), 0);
    const bool mustRebuild = g_gate.NeedsRebuild();
    if (mustRebuild) g_gate.BeginGeneration();
    g_gate.Leave();
    const int before = seen->visits;
    EXPECT_EQ(Child([this] {
                Visit();
                return 0;
              }).Wait(),
              0);
    EXPECT_EQ(seen->visits, before + 1);
    EXPECT_FALSE(g_gate.NeedsRebuild());
    EXPECT_EQ(g_gate.Record().dwQueued, 0u);
    EXPECT_EQ(g_gate.Record().nInside, 0);
    return mustRebuild;
  }

  SharedBlock<Seen> seen;
};

TEST_P(GateMoments, Death_IsToldToTheNextOneIfItWasInside) {
  const TestSeed seed;
  const auto begin = [this] {
    seen->where = kBefore;
    return std::make_unique<Traced>([this] { Visit(); });
  };
  const auto die = [this](Traced &visitor) {
    visitor.Kill();
    const int where = seen->where;
    const bool mustRebuild = NextOneMustRebuild();
    EXPECT_TRUE(mustRebuild || where != kInside);
    EXPECT_TRUE(!mustRebuild || where == kOnTheWay || where == kInside);
  };
  EXPECT_GT(AtEachMoment(seed, begin, die), 1);
}

TEST_P(GateMoments, DeathOfOneThatWaits_IsNoNews) {
  const TestSeed seed;
  const auto begin = [this] {
    Deadline deadline;
    EXPECT_EQ(g_gate.Enter(deadline), 0);
    return std::make_unique<Traced>([] { g_almostOver = true; }, [this] { Visit(); });
  };
  const auto die = [this](Traced &visitor) {
    visitor.Kill();
    g_gate.Leave();
    EXPECT_FALSE(NextOneMustRebuild());
  };
  EXPECT_GT(AtEachMoment(seed, begin, die), 1);
}

TEST_P(GateMoments, TwoAtOnce_AreInsideOneAfterTheOther) {
  const TestSeed seed;
  const auto begin = [this] {
    seen->visits = seen->refusals = 0;
    return std::make_unique<Traced>([this] { Visit(); });
  };
  const auto meet = [this](Traced &one) {
    Traced other([this] { Visit(); });
    one.FinishInTurn(other);
    EXPECT_EQ(seen->visits, 2);
    EXPECT_EQ(seen->refusals, 0);
    EXPECT_FALSE(NextOneMustRebuild());
  };
  EXPECT_GT(AtEachMoment(seed, begin, meet), 1);
}

INSTANTIATE_TEST_SUITE_P(By, GateMoments, ::testing::Values(Lock::kMutex, Lock::kSemaphore),
                         [](const auto &lock) { return lock.param == Lock::kMutex ? "Mutex" : "Semaphore"; });

}  // namespace
