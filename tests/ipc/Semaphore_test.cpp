// SPDX-License-Identifier: MIT
// The lock between processes: creation, order, and the effects of signals, removal and death.

#include <devsupport/ipc/Semaphore.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <csignal>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/IpcKey.h"

DEVSUPPORT_FAULT_POINT(int, semget, (key_t key, int count, int flags), (key, count, flags), -1, ENOSPC)
DEVSUPPORT_FAULT_POINT(int, semctl, (int id, int number, int command, void *argument),
                       (id, number, command, argument), -1, ERANGE)

namespace {

using namespace devsupport::test;

int ValueOf(int id) { return ::semctl(id, 0, GETVAL); }

bool Exists(int key) { return ::semget(key, 0, 0) != -1; }

// Returns once a process waits in the semaphore.
void AwaitWaiter(int id) {
  while (::semctl(id, 0, GETNCNT) != 1) ::sched_yield();
}

void IgnoreAlarm(int /*signal*/) {}

/// A key with a new semaphore.
class Semaphore : public ::testing::Test {
 protected:
  const IpcKey key;
  const int id = Semaphore_Create(key);
};

TEST_F(Semaphore, Create_OfNewKey_MakesOneFreeSemaphoreForEverybody) {
  ASSERT_NE(id, -1);
  EXPECT_EQ(id, ::semget(key, 0, 0));
  semid_ds status{};
  ASSERT_EQ(::semctl(id, 0, IPC_STAT, &status), 0);
  EXPECT_EQ(status.sem_nsems, 1u);
  EXPECT_EQ(status.sem_perm.mode & 0777, 0666);
  EXPECT_EQ(ValueOf(id), 1);
}

TEST_F(Semaphore, Create_OfExistingKey_ReturnsTheSameSetAndLeavesItHeld) {
  ASSERT_EQ(Semaphore_Lock(id), 1);
  EXPECT_EQ(Semaphore_Create(key), id);
  EXPECT_EQ(ValueOf(id), 0);
}

TEST(SemaphoreKey, Create_WhenTheValueCannotBeSet_RemovesTheSetAgain) {
  const IpcKey key;
  {
    FailCall fail("semctl", 1);
    EXPECT_EQ(Semaphore_Create(key), -1);
    EXPECT_TRUE(fail.Happened());
  }
  EXPECT_FALSE(Exists(key));
}

TEST(SemaphoreKey, Create_WhenBothRequestsFail_ReturnsMinus1AndMakesNothing) {
  const IpcKey key;
  {
    FailCall fail("semget", FailCall::kEvery);
    EXPECT_EQ(Semaphore_Create(key), -1);
  }
  EXPECT_FALSE(Exists(key));
}

TEST(SemaphoreKey, Create_WhenOnlyThePlainRequestMakesTheSet_LeavesItsValueAt0) {
  const IpcKey key;
  FailCall fail("semget", 1);
  const int id = Semaphore_Create(key);
  EXPECT_TRUE(fail.Happened());
  ASSERT_NE(id, -1);
  EXPECT_EQ(ValueOf(id), 0);
}

TEST_F(Semaphore, LockAndUnlock_MoveTheValueBetween1And0) {
  EXPECT_EQ(Semaphore_Lock(id), 1);
  EXPECT_EQ(ValueOf(id), 0);
  EXPECT_EQ(Semaphore_Unlock(id), 1);
  EXPECT_EQ(ValueOf(id), 1);
}

TEST_F(Semaphore, Lock_OfHeldSemaphore_WaitsForTheUnlock) {
  ASSERT_EQ(Semaphore_Lock(id), 1);
  Event taken;
  Child child([&] {
    const int result = Semaphore_Lock(id);
    taken.Announce();
    return result;
  });
  AwaitWaiter(id);
  EXPECT_FALSE(taken.TryWait());
  EXPECT_EQ(Semaphore_Unlock(id), 1);
  EXPECT_EQ(child.Wait(), 1);
}

TEST_F(Semaphore, Lock_InterruptedByASignal_Returns0AndTakesNothing) {
  ASSERT_EQ(Semaphore_Lock(id), 1);
  Child child([&] {
    struct sigaction action {};
    action.sa_handler = IgnoreAlarm;
    action.sa_flags = SA_RESTART;  // does not restart the wait for a semaphore
    ::sigaction(SIGALRM, &action, nullptr);
    EXPECT_EQ(Semaphore_Lock(id), 0);
    EXPECT_EQ(errno, EINTR);
    return 0;
  });
  AwaitWaiter(id);
  child.Signal(SIGALRM);
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(ValueOf(id), 0);
  EXPECT_EQ(Semaphore_Unlock(id), 1);
  EXPECT_EQ(ValueOf(id), 1);
}

TEST_F(Semaphore, Lock_OfASetRemovedMeanwhile_Returns0) {
  ASSERT_EQ(Semaphore_Lock(id), 1);
  Child child([&] { return Semaphore_Lock(id); });
  AwaitWaiter(id);
  EXPECT_EQ(Semaphore_Close(id), 1);
  EXPECT_EQ(child.Wait(), 0);
}

TEST_F(Semaphore, LockAndUnlock_OfRemovedSetOrNoSet_Return0AtOnce) {
  ASSERT_EQ(Semaphore_Close(id), 1);
  for (const int gone : {id, -1}) {
    EXPECT_EQ(Semaphore_Lock(gone), 0);
    EXPECT_EQ(Semaphore_Unlock(gone), 0);
    EXPECT_EQ(Semaphore_Close(gone), 0);
  }
}

TEST_F(Semaphore, Unlock_WithoutLock_IsNotPrevented) {
  EXPECT_EQ(Semaphore_Unlock(id), 1);
  EXPECT_EQ(ValueOf(id), 2);
}

TEST_F(Semaphore, HolderThatIsKilled_GivesTheSemaphoreBack) {
  Event held;
  Child child([&] {
    Semaphore_Lock(id);
    held.Announce();
    for (;;) ::pause();
    return 0;
  });
  held.Wait();
  EXPECT_EQ(ValueOf(id), 0);
  child.Signal(SIGKILL);
  EXPECT_EQ(Semaphore_Lock(id), 1);
  EXPECT_EQ(child.Wait(), 1000 + SIGKILL);
}

TEST(SemaphoreKey, Create_ByManyProcessesAtOnce_MakesOneSetAndEachGetsItsTurn) {
  const IpcKey key;
  Event go;
  std::vector<Child> children;
  for (int i = 0; i < 20; ++i) {
    children.emplace_back([&] {
      go.Wait();
      const int id = Semaphore_Create(key);
      const bool turn = Semaphore_Lock(id) == 1 && Semaphore_Unlock(id) == 1;
      return turn && id == ::semget(key, 0, 0) ? 0 : 1;
    });
  }
  for (int i = 0; i < 20; ++i) go.Announce();
  for (Child &child : children) EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(ValueOf(::semget(key, 0, 0)), 1);
}

TEST(SemaphoreKey, NoOperation_Prints) {
  const IpcKey key;
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  {
    FailCall fail("semget", FailCall::kEvery);
    Semaphore_Create(key);
  }
  Semaphore_Lock(-1);
  Semaphore_Unlock(-1);
  Semaphore_Close(-1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(out.Take(), "");
}

}  // namespace
