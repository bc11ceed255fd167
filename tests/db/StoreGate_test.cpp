// SPDX-License-Identifier: MIT
// The lock of the store's shared memory: which process may enter, and what the others learn after a death of its
// holder.

#include <db.h>
#include <pthread.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "db/for_project/StoreGate.h"
#include "db/for_project/StoreKeys.h"
#include "db/for_project/StoreSemaphores.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

// A system without robust mutexes. Other mutexes still work, because a statically linked Berkeley DB is wrapped too.
extern "C" {
int __real_pthread_mutex_init(pthread_mutex_t *pMutex, const pthread_mutexattr_t *pAttributes);
int __wrap_pthread_mutex_init(pthread_mutex_t *pMutex, const pthread_mutexattr_t *pAttributes);

int __wrap_pthread_mutex_init(pthread_mutex_t *pMutex, const pthread_mutexattr_t *pAttributes) {
  int robust = PTHREAD_MUTEX_STALLED;
  if (pAttributes != nullptr) pthread_mutexattr_getrobust(pAttributes, &robust);
  if (robust == PTHREAD_MUTEX_ROBUST && devsupport::test::MustFail("pthread_mutex_init")) return ENOTSUP;
  return __real_pthread_mutex_init(pMutex, pAttributes);
}
}

namespace {

// Not a fault point, because only one of those can be active at a time.
bool g_noSemaphores = false;

std::atomic<long> g_aheadMs{0};  // of the steady clock

}  // namespace

extern "C" int __real_semget(key_t key, int count, int flags);
extern "C" int __wrap_semget(key_t key, int count, int flags);
extern "C" int __wrap_semget(key_t key, int count, int flags) {
  if (!g_noSemaphores) return __real_semget(key, count, flags);
  errno = ENOSPC;
  return -1;
}

extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  const int result = __real_clock_gettime(clock, now);
  const long ns = now->tv_nsec + g_aheadMs % 1000 * 1'000'000;
  now->tv_sec += g_aheadMs / 1000 + ns / 1'000'000'000;
  now->tv_nsec = ns % 1'000'000'000;
  return result;
}

namespace {

using namespace devsupport::test;
using devsupport::store::Deadline;
using devsupport::store::g_gate;
using devsupport::store::g_semaphores;
using devsupport::store::GateLock;
using devsupport::store::GateRecord;
using devsupport::store::kGateKey;
using devsupport::store::StoreSemaphores;

enum class Lock { Mutex, Semaphore };

// The gate's segment, as another process sees it.
class Record {
 public:
  Record()
      : pRecord_(static_cast<const GateRecord *>(::shmat(::shmget(kGateKey, 0, 0), nullptr, SHM_RDONLY))),
        semaphores_(::semget(kGateKey, 0, 0)) {}
  ~Record() { ::shmdt(pRecord_); }
  Record(const Record &) = delete;
  Record &operator=(const Record &) = delete;

  bool HasSemaphore() const { return pRecord_->bSemaphore != 0; }
  bool SomebodyQueues() const { return ::semctl(semaphores_, StoreSemaphores::kQueue, GETZCNT) > 0; }
  bool SomebodyWaits() const { return HasSemaphore() ? SomebodyQueues() : pRecord_->dwQueued != 0; }
  void RemoveSemaphores() const { ::semctl(semaphores_, 0, IPC_RMID); }

 private:
  const GateRecord *pRecord_;
  int semaphores_;
};

class Gate : public StoreTest, public ::testing::WithParamInterface<Lock> {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(Attach(), 0);
    ASSERT_EQ(Record().HasSemaphore(), GetParam() == Lock::Semaphore);
    g_gate.BeginGeneration();
    g_gate.Adopt();
  }
  void TearDown() override {
    g_gate.Detach();
    g_semaphores.Detach();
    StoreTest::TearDown();
  }

  // Attaches the gate with or without robust mutexes in the system.
  int Attach() const {
    struct stat home = {};
    ::stat(home_.c_str(), &home);
    if (const int error = g_semaphores.Attach(home); error != 0) return error;
    if (GetParam() == Lock::Mutex) return g_gate.Attach(home);
    const FailCall noRobustMutexes("pthread_mutex_init", FailCall::kEvery);
    return g_gate.Attach(home);
  }

  // Enters and leaves. Returns the result of entering, or kBroken when the regions must be rebuilt.
  static constexpr int kBroken = 4711;
  static int Enter() {
    Deadline deadline;
    const int result = g_gate.Enter(deadline);
    if (result != 0) return result;
    const bool broken = g_gate.IsAttached() && g_gate.NeedsRebuild();
    g_gate.Leave();
    return broken ? kBroken : 0;
  }

  static void DieInside() {
    Child victim([] {
      Deadline deadline;
      if (g_gate.Enter(deadline) != 0) return 1;
      ::raise(SIGKILL);
      return 1;
    });
    ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  }
};

TEST_P(Gate, WhenFree_LetsIn) {
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, WhenDetached_IsNoObstacle) {
  g_gate.Detach();
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, AfterADeathInside_AdmitsTheNextAndAsksForNewRegions) {
  DieInside();
  EXPECT_EQ(Enter(), kBroken);
  EXPECT_EQ(Enter(), kBroken);
  Child other([] { return Enter() == kBroken ? 0 : 1; });
  EXPECT_EQ(other.Wait(), 0);
}

TEST_P(Gate, WhenAProcessDiesInside_TellsTheWaitingOnes) {
  Event inside;
  Child victim([&] {
    Deadline deadline;
    g_gate.Enter(deadline);
    inside.Announce();
    ::pause();
    return 1;
  });
  inside.Wait();
  std::vector<Child> waiting;
  for (int i = 0; i < 3; ++i) waiting.emplace_back([] { return Enter() == kBroken ? 0 : 1; });
  victim.Signal(SIGKILL);
  victim.Wait();
  for (Child &child : waiting) EXPECT_EQ(child.Wait(), 0);
}

TEST_P(Gate, WithNewRegionsAfterADeath_TellsAllOthersToChange) {
  DieInside();
  Event made;
  Child healer([&] {
    Deadline deadline;
    const GateLock lock(deadline);
    g_gate.BeginGeneration();
    g_gate.Adopt();
    made.Announce();
    return g_gate.IsCurrent() ? 0 : 1;
  });
  made.Wait();
  EXPECT_EQ(healer.Wait(), 0);
  Deadline deadline;
  const GateLock lock(deadline);
  EXPECT_FALSE(g_gate.NeedsRebuild());
  EXPECT_FALSE(g_gate.IsCurrent()) << "these regions are not the ones that this process uses";
}

TEST_P(Gate, AttachedAgain_StillAsksForNewRegions) {
  DieInside();
  Child later([this] { return Attach() == 0 && Enter() == kBroken ? 0 : 1; });
  EXPECT_EQ(later.Wait(), 0);
}

TEST_P(Gate, Reset_MakesANewLockAfterADeath) {
  DieInside();
  {
    const FailCall noRobustMutexes("pthread_mutex_init", GetParam() == Lock::Mutex ? 0 : FailCall::kEvery);
    g_gate.Reset();
  }
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, WhoseSegmentIsGone_IsMadeAnewAndHasNoRegionsYet) {
  g_gate.Detach();
  ASSERT_EQ(::shmctl(::shmget(kGateKey, 0, 0), IPC_RMID, nullptr), 0);
  ASSERT_EQ(Attach(), 0);
  EXPECT_EQ(Record().HasSemaphore(), GetParam() == Lock::Semaphore);
  EXPECT_EQ(Enter(), kBroken);
}

TEST_P(Gate, OfAnotherBuild_IsRefused) {
  ++g_gate.Record().dwBytes;
  g_gate.Detach();
  CapturedOutput err(stderr);
  EXPECT_EQ(Attach(), EACCES);
  EXPECT_EQ(err.Take(),
            "the segment at key 0x12345677 does not hold this library's gate; remove it with ipcrm" + kSourceLine);
  EXPECT_FALSE(g_gate.IsAttached());
}

TEST_P(Gate, AfterTheLastNumberOfAGeneration_HasNewRegions) {
  g_gate.Record().dwLastGeneration = UINT32_MAX - 1;
  g_gate.BeginGeneration();
  g_gate.Adopt();
  g_gate.BeginGeneration();
  EXPECT_FALSE(g_gate.NeedsRebuild());
  EXPECT_FALSE(g_gate.IsCurrent());
}

TEST_P(Gate, WhenAWaitingProcessDies_AdmitsTheNext) {
  Deadline deadline;
  ASSERT_EQ(g_gate.Enter(deadline), 0);
  const Record record;
  Child victim([] { return Enter(); });
  while (!record.SomebodyWaits()) std::this_thread::yield();
  victim.Signal(SIGKILL);
  victim.Wait();
  g_gate.Leave();
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, AfterTheWaitingHaveEntered_CountsNoneAsWaiting) {
  Deadline deadline;
  ASSERT_EQ(g_gate.Enter(deadline), 0);
  const Record record;
  Child waiting([] { return Enter(); });
  while (!record.SomebodyWaits()) std::this_thread::yield();
  g_gate.Leave();
  EXPECT_EQ(waiting.Wait(), 0);
  EXPECT_FALSE(record.SomebodyWaits()) << "all who come later would have to queue";
}

TEST_P(Gate, WaitThatASignalInterrupts_GoesOn) {
  Deadline deadline;
  ASSERT_EQ(g_gate.Enter(deadline), 0);
  static const Event *s_pInterrupted;
  const Event interrupted;
  s_pInterrupted = &interrupted;
  Child waiting([] {
    struct sigaction action = {};
    action.sa_handler = [](int) { s_pInterrupted->Announce(); };
    ::sigaction(SIGUSR1, &action, nullptr);
    return Enter();
  });
  const Record record;
  while (!record.SomebodyWaits()) std::this_thread::yield();
  waiting.Signal(SIGUSR1);
  interrupted.Wait();
  g_gate.Leave();
  EXPECT_EQ(waiting.Wait(), 0);
}

TEST_P(Gate, AdmitsOneAtATime) {
  int inside = 0;
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        Deadline deadline;
        const GateLock gate(deadline);
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

TEST_P(Gate, WhenAProcessDoesNotLeave_TheOthersGiveUpAtTheirDeadline) {
  Deadline deadline;
  ASSERT_EQ(g_gate.Enter(deadline), 0);
  const auto begin = std::chrono::steady_clock::now();
  std::thread([] { EXPECT_EQ(Enter(), DB_LOCK_NOTGRANTED); }).join();
  constexpr std::chrono::milliseconds kLimit(Deadline::kLimitMs);
  constexpr std::chrono::milliseconds kRounding(2);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, kLimit - kRounding);
  g_gate.Leave();
  EXPECT_EQ(Enter(), 0);
}

class GateWithHeldQueue : public Gate {
 protected:
  void SetUp() override {
    Gate::SetUp();
    if (IsSkipped()) return;
    Deadline deadline;
    if (GetParam() == Lock::Mutex) {
      ASSERT_EQ(g_gate.Enter(deadline), 0);
    }
    ASSERT_TRUE(g_semaphores.Take(StoreSemaphores::kQueue, deadline));
  }
  static void Leave() {
    g_semaphores.Release(StoreSemaphores::kQueue);
    if (GetParam() == Lock::Mutex) g_gate.Leave();
  }
};

TEST_P(GateWithHeldQueue, IsWaitedForUntilTheDeadline) {
  std::thread([] {
    Deadline deadline;
    deadline.LeftMs();  // it begins here
    g_aheadMs = Deadline::kLimitMs - 50;
    EXPECT_EQ(g_gate.Enter(deadline), DB_LOCK_NOTGRANTED);
    EXPECT_LE(deadline.LeftMs(), 0);
  }).join();
  g_aheadMs = 0;
  Leave();
  EXPECT_EQ(Enter(), 0);
}

TEST_P(GateWithHeldQueue, RemovedDuringAWait_LeavesTheMutexAsTheLock) {
  const Record record;
  Child waiting([] { return Enter() == (GetParam() == Lock::Mutex ? 0 : DB_LOCK_NOTGRANTED) ? 0 : 1; });
  while (!record.SomebodyQueues()) std::this_thread::yield();
  record.RemoveSemaphores();
  Leave();
  EXPECT_EQ(waiting.Wait(), 0);
}

constexpr auto kNameOf = [](const auto &lock) { return lock.param == Lock::Mutex ? "Mutex" : "Semaphore"; };
INSTANTIATE_TEST_SUITE_P(By, Gate, ::testing::Values(Lock::Mutex, Lock::Semaphore), kNameOf);
INSTANTIATE_TEST_SUITE_P(By, GateWithHeldQueue, ::testing::Values(Lock::Mutex, Lock::Semaphore), kNameOf);

class NoRobustMutexes : public StoreTest {};

TEST_F(NoRobustMutexes, Store_WorksForAllAfterADeath) {
  Event stored;
  Child neighbour([&] {
    const FailCall noRobustMutexes("pthread_mutex_init", FailCall::kEvery);
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 1;
    if (BerkDb_Set(g_uDb.tb_tone, "k", "theirs") != BERKDB_OK) return 2;
    stored.Announce();
    ::pause();
    return 3;
  });
  stored.Wait();
  Open();
  EXPECT_TRUE(Record().HasSemaphore());
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "theirs");
  neighbour.Signal(SIGKILL);
  neighbour.Wait();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "ours"), BERKDB_OK);
  Reopen();
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "ours");
  EXPECT_FALSE(Record().HasSemaphore()) << "the next first opener has them again";
}

TEST_F(NoRobustMutexes, NorASemaphore_OpeningIsCode1AndTheNextOneIsTheFirst) {
  {
    const FailCall noRobustMutexes("pthread_mutex_init", FailCall::kEvery);
    g_noSemaphores = true;
    EXPECT_EQ(TryToOpen(home_), RefusedOpening(home_, "No space left on device"));
    g_noSemaphores = false;
  }
  BerkDb_Close();
  Open();
  EXPECT_FALSE(Record().HasSemaphore());
}

}  // namespace
