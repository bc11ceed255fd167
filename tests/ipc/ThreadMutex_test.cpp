// SPDX-License-Identifier: MIT
// The mutex operations: mutual exclusion, and the unchanged results of the thread library.

#include <devsupport/ipc/ThreadMutex.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(int, pthread_mutex_init, (pthread_mutex_t * p, const pthread_mutexattr_t *pAttributes),
                       (p, pAttributes), ENOMEM, 0)
DEVSUPPORT_FAULT_POINT(int, pthread_mutex_destroy, (pthread_mutex_t * p), (p), EBUSY, 0)
DEVSUPPORT_FAULT_POINT(int, pthread_mutex_lock, (pthread_mutex_t * p), (p), EDEADLK, 0)
DEVSUPPORT_FAULT_POINT(int, pthread_mutex_unlock, (pthread_mutex_t * p), (p), EPERM, 0)
DEVSUPPORT_FAULT_POINT(int, pthread_mutex_trylock, (pthread_mutex_t * p), (p), EINVAL, 0)

namespace {

using namespace devsupport::test;

TEST(ThreadMutex, EveryOperationOnAHealthyMutex_Returns0AndPrintsNothing) {
  CapturedOutput err(stderr);
  pthread_mutex_t uMutex;
  EXPECT_EQ(ThreadMutex_Create(&uMutex), 0);
  EXPECT_EQ(ThreadMutex_Lock(&uMutex), 0);
  EXPECT_EQ(ThreadMutex_UnLock(&uMutex), 0);
  EXPECT_EQ(ThreadMutex_TryLock(&uMutex), 0);
  EXPECT_EQ(ThreadMutex_UnLock(&uMutex), 0);
  EXPECT_EQ(ThreadMutex_Close(&uMutex), 0);
  EXPECT_EQ(err.Take(), "");
}

TEST(ThreadMutex, TryLock_OnAHeldMutex_ReturnsTheBusyNumber) {
  pthread_mutex_t uMutex;
  ThreadMutex_Create(&uMutex);
  ThreadMutex_Lock(&uMutex);
  int nResult = -1;
  std::thread([&] { nResult = ThreadMutex_TryLock(&uMutex); }).join();
  EXPECT_EQ(nResult, EBUSY);
  EXPECT_EQ(ThreadMutex_TryLock(&uMutex), EBUSY);
  ThreadMutex_UnLock(&uMutex);
  ThreadMutex_Close(&uMutex);
}

TEST(ThreadMutex, Lock_LetsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 5000;
  pthread_mutex_t uMutex;
  ThreadMutex_Create(&uMutex);
  int nCount = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < kRounds; ++n) {
        ThreadMutex_Lock(&uMutex);
        ++nCount;
        ThreadMutex_UnLock(&uMutex);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(nCount, kThreads * kRounds);
  ThreadMutex_Close(&uMutex);
}

int ResultOfFailing(const char *function, int (*fnOperation)(pthread_mutex_t *)) {
  pthread_mutex_t uMutex = PTHREAD_MUTEX_INITIALIZER;
  FailCall fail(function, 1);
  const int nResult = fnOperation(&uMutex);
  EXPECT_TRUE(fail.Happened()) << function;
  return nResult;
}

TEST(ThreadMutex, FailingOperations_ReturnTheThreadLibrarysNumberAndPrintNothing) {
  CapturedOutput err(stderr);
  EXPECT_EQ(ResultOfFailing("pthread_mutex_init", ThreadMutex_Create), ENOMEM);
  EXPECT_EQ(ResultOfFailing("pthread_mutex_destroy", ThreadMutex_Close), EBUSY);
  EXPECT_EQ(ResultOfFailing("pthread_mutex_lock", ThreadMutex_Lock), EDEADLK);
  EXPECT_EQ(ResultOfFailing("pthread_mutex_unlock", ThreadMutex_UnLock), EPERM);
  EXPECT_EQ(ResultOfFailing("pthread_mutex_trylock", ThreadMutex_TryLock), EINVAL);
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
