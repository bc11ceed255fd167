// The lock around the store's shared memory: who gets in, and what the others learn when somebody died inside.

#include <db.h>
#include <devsupport/ipc/ShareMem.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "db/Store.h"
#include "db/for_project/StoreGate.h"
#include "support/Child.h"

namespace {

using namespace devsupport::test;
using devsupport::store::g_gate;
using devsupport::store::GateRecord;
using devsupport::store::Inside;
using devsupport::store::Patience;
using devsupport::store::StoreGate;

class Gate : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(g_gate.Attach(true));
  }
  void TearDown() override {
    g_gate.Detach();
    StoreTest::TearDown();
  }

  static int Enter() {
    Patience patience;
    const int result = g_gate.Enter(patience);
    if (result == 0) g_gate.Leave();
    return result;
  }

  static void DieInside() {
    Child victim([] {
      Patience patience;
      if (g_gate.Enter(patience) != 0) return 1;
      ::raise(SIGKILL);
      return 1;
    });
    ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  }
};

TEST_F(Gate, WhenFree_LetsIn) {
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Enter(), 0);
}

TEST_F(Gate, WhenDetached_IsNoObstacle) {
  g_gate.Detach();
  EXPECT_EQ(Enter(), 0);
}

TEST_F(Gate, WhenSomebodyDiedInside_StaysShutForAll) {
  DieInside();
  EXPECT_EQ(Enter(), DB_RUNRECOVERY);
  EXPECT_EQ(Enter(), DB_RUNRECOVERY);
  Child other([] { return Enter() == DB_RUNRECOVERY ? 0 : 1; });
  EXPECT_EQ(other.Wait(), 0);
}

TEST_F(Gate, WhenSomebodyDiesInside_LetsTheWaitingKnow) {
  Event inside;
  Child victim([&] {
    Patience patience;
    g_gate.Enter(patience);
    inside.Announce();
    ::pause();
    return 1;
  });
  inside.Wait();
  std::vector<Child> waiting;
  for (int i = 0; i < 3; ++i) waiting.emplace_back([] { return Enter() == DB_RUNRECOVERY ? 0 : 1; });
  victim.Signal(SIGKILL);
  victim.Wait();
  for (Child &child : waiting) EXPECT_EQ(child.Wait(), 0);
}

TEST_F(Gate, AttachedAgainByALaterOne_StaysShut) {
  DieInside();
  Child later([] { return g_gate.Attach(false) && Enter() == DB_RUNRECOVERY ? 0 : 1; });
  EXPECT_EQ(later.Wait(), 0);
}

TEST_F(Gate, AttachedByTheFirstOne_IsNew) {
  DieInside();
  g_gate.Detach();
  ASSERT_TRUE(g_gate.Attach(true));
  EXPECT_EQ(Enter(), 0);
}

TEST_F(Gate, WhenSomebodyDiesWaiting_StillLetsIn) {
  Patience patience;
  ASSERT_EQ(g_gate.Enter(patience), 0);
  int bCreated = 0;
  TShareMem segment{};
  const auto *pRecord =
      static_cast<const GateRecord *>(ShareMem_Create(StoreGate::kKey, sizeof(GateRecord), &segment, &bCreated));
  Child victim([] { return Enter(); });
  while (pRecord->dwQueued == 0) std::this_thread::yield();
  victim.Signal(SIGKILL);
  victim.Wait();
  g_gate.Leave();
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Enter(), 0);
  ShareMem_Close(&segment, 0, &bCreated);
}

TEST_F(Gate, LetsOneInAtATime) {
  int inside = 0;
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        Patience patience;
        const Inside gate(patience);
        if (gate.Result() != 0) return;
        const int now = ++inside;
        if (now > most) most = now;
        if (i % 64 == 0) std::this_thread::yield();
        --inside;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(most, 1);
}

TEST_F(Gate, WhenSomebodyDoesNotLeave_LetsTheOthersGiveUp) {
  Patience patience;
  ASSERT_EQ(g_gate.Enter(patience), 0);
  std::thread([] { EXPECT_EQ(Enter(), DB_LOCK_NOTGRANTED); }).join();
  g_gate.Leave();
  EXPECT_EQ(Enter(), 0);
}

}  // namespace
