// SPDX-License-Identifier: MIT
// Threads of one process write to the channel and ask its filter at the same time.

#include <devsupport/detail/logmgr/LogInfoShm.h>

#include <array>
#include <atomic>
#include <thread>

#include "tests/logmgr/LogRing.h"
#include "tests/logmgr/Talk.h"

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

// Tells the thread sanitizer, which does not know System V semaphores, that a semaphore protects the ring.
extern "C" int __real_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count) {
#ifdef __SANITIZE_THREAD__
  static char semaphores[64];
  char *semaphore = &semaphores[id % 64];
  if (operations->sem_op > 0) __tsan_release(semaphore);
  const int result = __real_semop(id, operations, count);
  if (operations->sem_op < 0 && result == 0) __tsan_acquire(semaphore);
  return result;
#else
  return __real_semop(id, operations, count);
#endif
}

namespace {

using namespace devsupport::test;

constexpr int kThreads = 4;
constexpr unsigned kMessages = 50;  // for each thread; with at most five records, so that none is lost
constexpr unsigned kRounds = 40;

using LogThreads = OpenChannelTest;

TEST_F(LogThreads, EveryMessage_ArrivesOnceInOrderAndWhole) {
  for (unsigned round = 0; round < kRounds && !HasFailure(); ++round) {
    TShmQueue_Clear(&_g_uLogInfoShmData.uLogQue);
    std::array<std::thread, kThreads> writers;
    for (int writer = 0; writer < kThreads; ++writer) {
      writers[static_cast<std::size_t>(writer)] = std::thread([writer, round] {
        for (unsigned i = 0; i < kMessages; ++i) {
          const std::string text = NameOf(writer) + MessageOf(writer, round * kMessages + i);
          TLogInfoShm_Write(text.c_str(), writer, 0);
        }
      });
    }
    for (std::thread &writer : writers) writer.join();

    Listener listener;
    for (const Record &record : RawRing(kLogRing).Records()) listener.Hear(record);
    listener.End();
    EXPECT_EQ(listener.findings.broken, 0u) << listener.findings.complaint;
    EXPECT_EQ(listener.findings.gaps, 0u);
    EXPECT_EQ(listener.findings.whole, kThreads * kMessages);
    std::array<unsigned, kThreads> next{};
    next.fill(round * kMessages);
    for (const auto &[writer, number] : listener.numbers)
      EXPECT_EQ(number, next.at(static_cast<std::size_t>(writer))++);
  }
  EXPECT_EQ(SemValue(kLogRing), 1);
}

TEST_F(LogThreads, Filter_CanBeAskedWhileItChanges) {
  TLogInfoShm_ChangeFilter(4, 7);
  std::atomic<bool> stop{false};
  std::atomic<unsigned> wrong{0};
  std::thread asking([&] {
    while (!stop) {
      if (TLogInfoShm_IsEnabled(4, 1) != 1) ++wrong;  // in both filters
      if (TLogInfoShm_IsEnabled(6, 8) != 0) ++wrong;  // in neither
    }
  });
  for (int i = 0; i < 100'000; ++i) {
    TLogInfoShm_ChangeFilter(5, 3);
    TLogInfoShm_ChangeFilter(4, 7);
  }
  stop = true;
  asking.join();
  EXPECT_EQ(wrong, 0u);
}

}  // namespace
