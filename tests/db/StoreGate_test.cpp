// The lock around the store's shared memory: who gets in, and what the others learn when somebody died inside.

#include <db.h>
#include <devsupport/ipc/ShareMem.h>
#include <pthread.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "db/for_project/StoreGate.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

// A system without robust mutexes. Other mutexes can be made: a statically linked Berkeley DB is wrapped too.
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

// Apart from the fault points, of which one can be armed at a time.
bool g_noSemaphores = false;

}  // namespace

extern "C" int __real_semget(key_t key, int count, int flags);
extern "C" int __wrap_semget(key_t key, int count, int flags);
extern "C" int __wrap_semget(key_t key, int count, int flags) {
  if (!g_noSemaphores) return __real_semget(key, count, flags);
  errno = ENOSPC;
  return -1;
}

namespace {

using namespace devsupport::test;
using devsupport::store::g_gate;
using devsupport::store::GateRecord;
using devsupport::store::Inside;
using devsupport::store::Patience;
using devsupport::store::StoreGate;

enum class Lock { kMutex, kSemaphore };

// The gate's segment, as another process sees it.
class Record {
 public:
  Record() {
    int bCreated = 0;
    pRecord_ =
        static_cast<const GateRecord *>(ShareMem_Create(StoreGate::kKey, sizeof(GateRecord), &segment_, &bCreated));
  }
  ~Record() {
    int bWasLast = 0;
    ShareMem_Close(&segment_, 0, &bWasLast);
  }
  Record(const Record &) = delete;
  Record &operator=(const Record &) = delete;

  bool HasSemaphore() const { return pRecord_->nSemId != GateRecord::kNoSemaphore; }
  bool SomebodyWaits() const {
    return HasSemaphore() ? ::semctl(pRecord_->nSemId, 0, GETNCNT) > 0 : pRecord_->dwQueued != 0;
  }

 private:
  TShareMem segment_{};
  const GateRecord *pRecord_ = nullptr;
};

// Attaches the gate with or without robust mutexes in the system.
bool Attach(Lock lock, bool bFirst) {
  if (lock == Lock::kMutex) return g_gate.Attach(bFirst);
  const FailCall noRobustMutexes("pthread_mutex_init", FailCall::kEvery);
  return g_gate.Attach(bFirst);
}
bool AttachFirst(Lock lock) { return Attach(lock, true); }

class Gate : public StoreTest, public ::testing::WithParamInterface<Lock> {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(AttachFirst(GetParam()));
    ASSERT_EQ(Record().HasSemaphore(), GetParam() == Lock::kSemaphore);
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

TEST_P(Gate, WhenFree_LetsIn) {
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, WhenDetached_IsNoObstacle) {
  g_gate.Detach();
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, WhenSomebodyDiedInside_StaysShutForAll) {
  DieInside();
  EXPECT_EQ(Enter(), DB_RUNRECOVERY);
  EXPECT_EQ(Enter(), DB_RUNRECOVERY);
  Child other([] { return Enter() == DB_RUNRECOVERY ? 0 : 1; });
  EXPECT_EQ(other.Wait(), 0);
}

TEST_P(Gate, WhenSomebodyDiesInside_LetsTheWaitingKnow) {
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

TEST_P(Gate, AttachedAgainByALaterOne_StaysShut) {
  DieInside();
  Child later([] { return g_gate.Attach(false) && Enter() == DB_RUNRECOVERY ? 0 : 1; });
  EXPECT_EQ(later.Wait(), 0);
}

TEST_P(Gate, AttachedByTheFirstOne_IsNew) {
  DieInside();
  g_gate.Detach();
  ASSERT_TRUE(AttachFirst(GetParam()));
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, AttachedByALaterOneWhereThereIsNone_IsNew) {
  g_gate.Detach();
  ASSERT_EQ(::shmctl(::shmget(StoreGate::kKey, 0, 0), IPC_RMID, nullptr), 0);
  ASSERT_TRUE(Attach(GetParam(), false));
  EXPECT_EQ(Record().HasSemaphore(), GetParam() == Lock::kSemaphore);
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, WhenSomebodyDiesWaiting_StillLetsIn) {
  Patience patience;
  ASSERT_EQ(g_gate.Enter(patience), 0);
  const Record record;
  Child victim([] { return Enter(); });
  while (!record.SomebodyWaits()) std::this_thread::yield();
  victim.Signal(SIGKILL);
  victim.Wait();
  g_gate.Leave();
  EXPECT_EQ(Enter(), 0);
  EXPECT_EQ(Enter(), 0);
}

TEST_P(Gate, WhenTheWaitingHaveBeenIn_CountsNobodyAsWaiting) {
  Patience patience;
  ASSERT_EQ(g_gate.Enter(patience), 0);
  const Record record;
  Child waiting([] { return Enter(); });
  while (!record.SomebodyWaits()) std::this_thread::yield();
  g_gate.Leave();
  EXPECT_EQ(waiting.Wait(), 0);
  EXPECT_FALSE(record.SomebodyWaits()) << "all who come later would have to queue";
}

TEST_P(Gate, WaitThatASignalInterrupts_GoesOn) {
  Patience patience;
  ASSERT_EQ(g_gate.Enter(patience), 0);
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

TEST_P(Gate, LetsOneInAtATime) {
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

TEST_P(Gate, WhenSomebodyDoesNotLeave_LetsTheOthersGiveUpWhenTheirPatienceIsOver) {
  Patience patience;
  ASSERT_EQ(g_gate.Enter(patience), 0);
  const auto begin = std::chrono::steady_clock::now();
  std::thread([] { EXPECT_EQ(Enter(), DB_LOCK_NOTGRANTED); }).join();
  constexpr std::chrono::milliseconds kPatience(Patience::kLimitMs);
  constexpr std::chrono::milliseconds kRounding(2);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, kPatience - kRounding);
  g_gate.Leave();
  EXPECT_EQ(Enter(), 0);
}

INSTANTIATE_TEST_SUITE_P(By, Gate, ::testing::Values(Lock::kMutex, Lock::kSemaphore),
                         [](const auto &lock) { return lock.param == Lock::kMutex ? "Mutex" : "Semaphore"; });

class NoRobustMutexes : public StoreTest {};

TEST_F(NoRobustMutexes, Store_WorksForAllAndOutlivesANeighbour) {
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
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  {
    const FailCall noRobustMutexes("pthread_mutex_init", FailCall::kEvery);
    g_noSemaphores = true;
    EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, &result), 0);
    g_noSemaphores = false;
  }
  EXPECT_EQ(result, BERKDB_OPEN_ENVIRONMENT);
  EXPECT_EQ(err.Take(), "FAIL to open environment " + home_ + ": Cannot allocate memory" + kSourceLine);
  BerkDb_Close();
  Open();
  EXPECT_FALSE(Record().HasSemaphore());
}

}  // namespace
