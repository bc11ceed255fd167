// SPDX-License-Identifier: MIT
// Processes are killed at random moments inside the ring's operations. The others continue at once, the ring stays
// usable, and the messages taken are those pushed.

#include <devsupport/ipc/MyShareMemory.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <random>

#include "tests/ipc/RingFixture.h"
#include "tests/ipc/RingMessage.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

constexpr std::uint32_t kRingCells = 8;
constexpr std::uint32_t kMostMessages = 1u << 22;

struct Books {
  std::atomic<std::uint32_t> nextIdentity;
  std::atomic<std::uint32_t> stored;
  std::atomic<std::uint32_t> dropped;
  std::atomic<std::uint32_t> taken;   // whole messages
  std::atomic<std::uint32_t> hollow;  // cells of length 0: their writer died in the copy
  std::atomic<std::uint32_t> broken;
  std::atomic<std::uint32_t> writerTurns;
  std::atomic<std::uint32_t> readerTurns;
  std::atomic<bool> stop;
  std::atomic<std::uint8_t> seen[kMostMessages];
};

class RingKill : public RingFixture {
 protected:
  // --- operations of the processes, each followed by an entry in the books ---

  void Push() {
    const std::uint32_t identity = books->nextIdentity.fetch_add(1);
    if (identity >= kMostMessages) return;
    const Message message = Message::Of(identity);
    if (TShmQueue_Push(&ring, message.bytes.data(), message.length) == 1) books->stored.fetch_add(1);
  }
  void Overwrite() {
    const std::uint32_t identity = books->nextIdentity.fetch_add(1);
    if (identity >= kMostMessages) return;
    const Message message = Message::Of(identity);
    const int kept = TShmQueue_PushOverwrite(&ring, message.bytes.data(), message.length);
    books->stored.fetch_add(1);
    if (kept == 0) books->dropped.fetch_add(1);
  }
  bool Get() {
    std::uint8_t buffer[kMessageBytes];
    std::uint32_t length = 4711;
    if (TShmQueue_Get(&ring, buffer, &length, 0) == 0) return false;
    std::uint32_t identity = 0;
    if (length == 0)
      books->hollow.fetch_add(1);
    else if (!Message::Read(buffer, length, &identity) || books->seen[identity].fetch_add(1) != 0)
      books->broken.fetch_add(1);
    else
      books->taken.fetch_add(1);
    return true;
  }
  void AttachAndLeave() {
    TShmQueue mine{};
    if (Create(mine, kRingCells, kMessageBytes) != 1) books->broken.fetch_add(1);
    TShmQueue_Close(&mine, 1);
  }

  // --- killing ---

  // Starts a process that repeats the operation, and kills it at a random moment.
  template <typename Operation>
  void KillInside(const Operation &operation) {
    const Event running;
    Child victim([&]() -> int {
      operation();
      running.Announce();
      for (;;) operation();
    });
    running.Wait();
    const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(random_() % 100000);
    while (std::chrono::steady_clock::now() < end) continue;
    victim.Signal(SIGKILL);
    ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
    ++kills;
  }

  void AwaitTurnsOf(const std::atomic<std::uint32_t> &turns) {
    for (const std::uint32_t before = turns; turns == before;) ::sched_yield();
  }

  // Kills while a writer and a reader work. They must make progress after each kill.
  template <typename Operation>
  void KillAmongOthers(int times, const Operation &operation) {
    ASSERT_EQ(Create(ring, kRingCells, kMessageBytes), 1);
    Child writer([this] {
      for (; !books->stop; books->writerTurns.fetch_add(1)) Push();
      return 0;
    });
    Child reader([this] {
      for (; !books->stop; books->readerTurns.fetch_add(1)) Get();
      return 0;
    });
    for (int i = 0; i < times && !HasFatalFailure(); ++i) {
      KillInside(operation);
      AwaitTurnsOf(books->writerTurns);
      AwaitTurnsOf(books->readerTurns);
      EXPECT_LE(TShmQueue_GetCount(&ring), static_cast<int>(kRingCells));
    }
    books->stop = true;
    EXPECT_EQ(writer.Wait(), 0);
    EXPECT_EQ(reader.Wait(), 0);
    CloseTheBooks();
  }

  // The last operation of each killed process may be missing in the books; everything else must agree.
  void CloseTheBooks() {
    EXPECT_EQ(SemValue(), 1);
    while (Get()) continue;
    const std::int64_t in = books->stored;
    const std::int64_t out = std::int64_t{books->taken} + books->hollow + books->dropped;
    EXPECT_LE(std::abs(in - out), kills) << in << " in, " << out << " out";
    EXPECT_EQ(books->broken, 0u);
    EXPECT_LE(books->hollow, static_cast<std::uint32_t>(kills));
    ExpectUsable();
  }

  // The ring is empty. It takes exactly its number of cells, and gives them back in order.
  void ExpectUsable() {
    EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
    for (std::uint32_t i = 0; i < kRingCells; ++i) EXPECT_EQ(PushText(ring, std::to_string(i)), 1);
    EXPECT_EQ(PushText(ring, "one too many"), 0);
    for (std::uint32_t i = 0; i < kRingCells; ++i) EXPECT_EQ(GetText(ring), std::to_string(i));
    EXPECT_EQ(GetText(ring), "<empty>");
    EXPECT_EQ(ring.header->dwReadOffset, ring.header->dwReadIdx * ring.dwStride);
    EXPECT_EQ(ring.header->dwWriteOffset, ring.header->dwWriteIdx * ring.dwStride);
  }

  SharedBlock<Books> books;
  int kills = 0;

 private:
  const TestSeed seed_;
  std::mt19937_64 random_{seed_};
};

TEST_F(RingKill, InPush_TheOthersContinueAndTheCountsAgree) {
  KillAmongOthers(130, [this] { Push(); });
  EXPECT_EQ(books->hollow, 0u);
}

TEST_F(RingKill, InPushOverwrite_TheOthersContinueAndTheCountsAgree) {
  KillAmongOthers(130, [this] { Overwrite(); });
}

TEST_F(RingKill, InGet_TheOthersContinueAndTheCountsAgree) {
  KillAmongOthers(130, [this] { Get(); });
  EXPECT_EQ(books->hollow, 0u);
}

TEST_F(RingKill, InCreateOfARingInUse_TheOthersContinueAndTheCountsAgree) {
  KillAmongOthers(130, [this] { AttachAndLeave(); });
  EXPECT_EQ(Attachments(), 1u);
}

TEST_F(RingKill, InOverwriteOfAFullRing_LosesNoMoreThanTheOldestCell) {
  ASSERT_EQ(Create(ring, kRingCells, kMessageBytes), 1);
  for (int i = 0; i < 60; ++i) {
    for (std::uint32_t cell = 0; cell < kRingCells; ++cell) PushText(ring, "x");
    KillInside([this] { Overwrite(); });
    EXPECT_GE(TShmQueue_GetCount(&ring), static_cast<int>(kRingCells) - 1);
    EXPECT_LE(TShmQueue_GetCount(&ring), static_cast<int>(kRingCells));
  }
}

TEST_F(RingKill, InTheWholeLifeOfARing_TheNextCreatorHasAWorkingRing) {
  for (int i = 0; i < 130 && !HasFailure(); ++i) {
    KillInside([this] {
      TShmQueue mine{};
      TShmQueueOpt opt{36, 1, 0};
      if (Create(mine, kRingCells, kMessageBytes, &opt) != 1) return;
      if (opt.bNewCreated != 0) TShmQueue_Unlock(&mine);
      PushText(mine, "x");
      GetText(mine);
      TShmQueue_Close(&mine, 1);
    });
    TShmQueueOpt opt{36, 0, 0};
    ASSERT_EQ(Create(ring, kRingCells, kMessageBytes, &opt), 1);
    EXPECT_EQ(SemValue(), 1);
    const std::string left = GetText(ring);
    EXPECT_TRUE(left == "x" || left == "<empty>") << left;
    ExpectUsable();
    EXPECT_EQ(TShmQueue_Close(&ring, 1), 1);
    ring.header = nullptr;
    EXPECT_FALSE(SegmentExists());
    EXPECT_FALSE(SemExists());
  }
}

}  // namespace
