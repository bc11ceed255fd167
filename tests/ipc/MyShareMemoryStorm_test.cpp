// SPDX-License-Identifier: MIT
// Four processes push and take while a timer signal hits each of them a thousand times a second.

#include <devsupport/ipc/MyShareMemory.h>
#include <sys/sem.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>

#include "tests/ipc/RingFixture.h"
#include "tests/ipc/RingMessage.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace {

using devsupport::test::Child;
using devsupport::test::kMessageBytes;
using devsupport::test::Message;
using devsupport::test::SharedBlock;

constexpr int kProcesses = 4;
constexpr std::uint32_t kMostMessages = 1u << 20;  // of one process
constexpr auto kDuration = std::chrono::seconds(3);
constexpr std::uint32_t kEnoughInterruptions = 20;

struct Storm {
  std::atomic<std::uint32_t> pushed[kProcesses];
  std::atomic<std::uint32_t> broken;
  std::atomic<std::uint32_t> signals;
  std::atomic<std::uint32_t> interruptions;
  std::atomic<std::uint8_t> seen[kProcesses][kMostMessages];
};

SharedBlock<Storm> *g_storm = nullptr;

void CountAlarm(int /*signal*/) { (*g_storm)->signals.fetch_add(1); }

}  // namespace

// Counts the waits that a signal really interrupted: without any, the storm would prove nothing.
extern "C" int __real_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count) {
  const int result = __real_semop(id, operations, count);
  if (result == -1 && errno == EINTR && g_storm != nullptr) (*g_storm)->interruptions.fetch_add(1);
  return result;
}

namespace {

class RingStorm : public devsupport::test::RingFixture {
 protected:
  void SetUp() override {
    g_storm = &storm;
    ASSERT_EQ(Create(ring, 16, kMessageBytes), 1);
  }
  void TearDown() override {
    g_storm = nullptr;
    RingFixture::TearDown();
  }

  bool TakeOne() {
    std::uint8_t buffer[kMessageBytes];
    std::uint32_t length = 0;
    if (TShmQueue_Get(&ring, buffer, &length, 0) == 0) return false;
    std::uint32_t identity = 0;
    if (!Message::Read(buffer, length, &identity) || identity >= kProcesses * kMostMessages)
      storm->broken.fetch_add(1);
    else
      storm->seen[identity / kMostMessages][identity % kMostMessages].fetch_add(1);
    return true;
  }

  // A walk in brackets, as people who look at the ring do it: a longer hold for the others to wait for.
  void Look() {
    if (TShmQueue_Lock(&ring) == 0) return;
    void *slot = nullptr;
    TShmQueue_PeekInit(&ring, 0);
    while (TShmQueue_PeekNext(&ring, &slot) != nullptr) ::sched_yield();
    TShmQueue_Unlock(&ring);
  }

  int Weather(int process) {
    struct sigaction action {};
    action.sa_handler = CountAlarm;
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 1000}, {0, 1000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);

    const auto end = std::chrono::steady_clock::now() + kDuration;
    std::uint32_t next = 0;
    const auto first = static_cast<std::uint32_t>(process) * kMostMessages;
    for (std::uint32_t turn = 0;
         std::chrono::steady_clock::now() < end || storm->interruptions < kEnoughInterruptions; ++turn) {
      if (next < kMostMessages) {
        const Message message = Message::Of(first + next);
        if (TShmQueue_Push(&ring, message.bytes.data(), message.length) == 1) ++next;
      }
      if (turn % 2 == 0 || next == kMostMessages) TakeOne();
      if (turn % 3 == 0) TakeOne();
      if (turn % 64 == 0) Look();
      if (turn % 256 == 0 && TShmQueue_GetCount(&ring) > 16) storm->broken.fetch_add(1);
    }
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    storm->pushed[process] = next;
    return 0;
  }

  SharedBlock<Storm> storm;
};

TEST_F(RingStorm, EveryMessageArrivesOnceAndWholeAndTheSemaphoreIsFree) {
  {
    std::vector<Child> processes;
    for (int i = 0; i < kProcesses; ++i) processes.emplace_back([this, i] { return Weather(i); });
    for (Child &process : processes) EXPECT_EQ(process.Wait(), 0);
  }
  EXPECT_EQ(SemValue(), 1);
  while (TakeOne()) continue;

  EXPECT_EQ(storm->broken, 0u);
  std::uint32_t messages = 0;
  for (int process = 0; process < kProcesses; ++process) {
    messages += storm->pushed[process];
    std::uint32_t wrong = 0;
    for (std::uint32_t i = 0; i < kMostMessages; ++i)
      if (storm->seen[process][i] != (i < storm->pushed[process] ? 1 : 0)) ++wrong;
    EXPECT_EQ(wrong, 0u) << "of process " << process;
  }
  EXPECT_EQ(SemValue(), 1);
  RecordProperty("messages", static_cast<int>(messages));
  RecordProperty("signals", static_cast<int>(storm->signals));
  RecordProperty("interruptions", static_cast<int>(storm->interruptions));
  std::printf("%u messages, %u signals, %u interrupted waits\n", messages, storm->signals.load(),
              storm->interruptions.load());
}

}  // namespace
