// SPDX-License-Identifier: MIT
// Four processes push and take while a timer signal interrupts each of them a thousand times a second.

#include <devsupport/ipc/MyShareMemory.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdint>

#include "tests/ipc/RingFixture.h"
#include "tests/ipc/RingMessage.h"
#include "tests/ipc/SignalStorm.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;

constexpr int kProcesses = 4;
constexpr std::uint32_t kMostMessages = 1u << 20;  // of one process

struct Books {
  std::atomic<std::uint32_t> pushed[kProcesses];
  std::atomic<std::uint32_t> broken;
  std::atomic<std::uint8_t> seen[kProcesses][kMostMessages];
};

class RingStorm : public RingFixture {
 protected:
  void SetUp() override { ASSERT_EQ(Create(ring, 16, kMessageBytes), 1); }

  bool TakeOne() {
    std::uint8_t buffer[kMessageBytes];
    std::uint32_t length = 0;
    if (TShmQueue_Get(&ring, buffer, &length, 0) == 0) return false;
    std::uint32_t identity = 0;
    if (!Message::Read(buffer, length, &identity) || identity >= kProcesses * kMostMessages)
      books->broken.fetch_add(1);
    else
      books->seen[identity / kMostMessages][identity % kMostMessages].fetch_add(1);
    return true;
  }

  // A walk under the lock, as in programs that show the ring. It holds the lock longer than a push.
  void Look() {
    if (TShmQueue_Lock(&ring) == 0) return;
    void *slot = nullptr;
    TShmQueue_PeekInit(&ring, 0);
    while (TShmQueue_PeekNext(&ring, &slot) != nullptr) ::sched_yield();
    TShmQueue_Unlock(&ring);
  }

  int Weather(int process) {
    storm.Begin();
    std::uint32_t next = 0;
    const auto first = static_cast<std::uint32_t>(process) * kMostMessages;
    for (std::uint32_t turn = 0; storm.GoesOn(); ++turn) {
      if (next < kMostMessages) {
        const Message message = Message::Of(first + next);
        if (TShmQueue_Push(&ring, message.bytes.data(), message.length) == 1) ++next;
      }
      if (turn % 2 == 0 || next == kMostMessages) TakeOne();
      if (turn % 3 == 0) TakeOne();
      if (turn % 64 == 0) Look();
      if (turn % 256 == 0 && TShmQueue_GetCount(&ring) > 16) books->broken.fetch_add(1);
    }
    SignalStorm::End();
    books->pushed[process] = next;
    return 0;
  }

  SignalStorm storm{std::chrono::seconds(3)};
  SharedBlock<Books> books;
};

TEST_F(RingStorm, EveryMessageArrivesOnceAndWholeAndTheSemaphoreIsFree) {
  {
    std::vector<Child> processes;
    for (int i = 0; i < kProcesses; ++i) processes.emplace_back([this, i] { return Weather(i); });
    for (Child &process : processes) EXPECT_EQ(process.Wait(), 0);
  }
  EXPECT_EQ(SemValue(), 1);
  while (TakeOne()) continue;

  EXPECT_EQ(books->broken, 0u);
  std::uint32_t messages = 0;
  for (int process = 0; process < kProcesses; ++process) {
    messages += books->pushed[process];
    std::uint32_t wrong = 0;
    for (std::uint32_t i = 0; i < kMostMessages; ++i)
      if (books->seen[process][i] != (i < books->pushed[process] ? 1 : 0)) ++wrong;
    EXPECT_EQ(wrong, 0u) << "of process " << process;
  }
  EXPECT_EQ(SemValue(), 1);
  RecordProperty("messages", static_cast<int>(messages));
  RecordProperty("signals", static_cast<int>(storm.Signals()));
  RecordProperty("interruptions", static_cast<int>(storm.Interruptions()));
  std::printf("%u messages, %u signals, %u interrupted waits\n", messages, storm.Signals(), storm.Interruptions());
}

}  // namespace
