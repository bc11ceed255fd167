// SPDX-License-Identifier: MIT
// Any process can overwrite a ring's segment. With any content, no operation reads or writes outside the segment or
// the caller's buffer, and a ring with invalid indexes behaves like an empty one.
//
// The ring is between inaccessible pages, once next to the page before and once next to the page after, so that an
// access outside stops the test also without a sanitizer.

#include <devsupport/ipc/MyShareMemory.h>

#include <array>
#include <cstdint>

#include "tests/ipc/FencedMemory.h"
#include "tests/ipc/RingFixture.h"
#include "tests/ipc/Scribbler.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

constexpr RingMeasures kRing{5, 20, 8};

/// Runs single operations with buffers that end at an inaccessible page.
class Victim {
 public:
  explicit Victim(std::uint8_t *segment)
      : ring(kRing.RingIn(segment)), buffer_(kRing.cellSize, FencedMemory::Against::Back) {}

  // One random operation. An invalid result fails the test.
  void Operate(Scribbler &choice) {
    std::uint32_t stored = 4711;
    switch (choice.Below(9)) {
      case 0:
        Expect01(TShmQueue_Push(&ring, buffer_.Start(), Length(choice)));
        break;
      case 1:
        Expect01(TShmQueue_PushOverwrite(&ring, buffer_.Start(), Length(choice)));
        break;
      case 2:
        Expect01(TShmQueue_Get(&ring, buffer_.Start(), &stored, 0));
        break;
      case 3: {
        const auto room = static_cast<std::uint16_t>(1 + choice.Below(kRing.cellSize));
        Expect01(TShmQueue_Get(&ring, buffer_.Start() + kRing.cellSize - room, nullptr, room));
        break;
      }
      case 4: {
        const int count = TShmQueue_GetCount(&ring);
        EXPECT_GE(count, 0);
        EXPECT_LE(count, static_cast<int>(kRing.cells));
        break;
      }
      case 5:
        Expect01(TShmQueue_PeekInit(&ring, static_cast<int>(choice.Word())));
        break;
      case 6:
        ExpectSlot(TShmQueue_PeekNext);
        break;
      case 7:
        ExpectSlot(TShmQueue_PeekPrev);
        break;
      default:
        if (choice.Below(16) == 0) TShmQueue_Clear(&ring);
    }
  }

  TShmQueue ring;

 private:
  static std::uint16_t Length(Scribbler &choice) {
    return static_cast<std::uint16_t>(choice.Below(kRing.cellSize + 1U));
  }
  static void Expect01(int result) { EXPECT_TRUE(result == 0 || result == 1) << result; }
  void ExpectSlot(void *(*step)(TShmQueue *, void **)) {
    void *slot = nullptr;
    const void *payload = step(&ring, &slot);
    if (payload == nullptr) return;
    const auto *place = static_cast<const std::uint8_t *>(slot);
    EXPECT_GE(place, ring.cells);
    EXPECT_LE(place, ring.cells + kRing.cells * kRing.Stride());
    EXPECT_EQ(payload, place + 4);
  }

  FencedMemory buffer_;
};

class RingGarbage : public ::testing::TestWithParam<FencedMemory::Against> {
 protected:
  FencedMemory memory{kRing.Size(), GetParam()};
};

TEST_P(RingGarbage, NoOperation_StepsOutsideTheSegmentOrTheBuffer) {
  const TestSeed seed;
  Scribbler scribbler(kRing, seed);
  Victim victim(memory.Start());
  for (int round = 0; round < 400000 && !HasFailure(); ++round) {
    scribbler.Scribble(memory.Start());
    victim.Operate(scribbler);
  }
}

TEST_P(RingGarbage, ScribbledWhileOperationsRun_StillStaysInside) {
  const TestSeed seed;
  const Child vandal = StartScribbling(Scribbler(kRing, seed), memory.Start());
  Scribbler choice(kRing, seed + 1);
  Victim victim(memory.Start());
  for (int round = 0; round < 400000 && !HasFailure(); ++round) victim.Operate(choice);
}

TEST_P(RingGarbage, UserAreaAndHeadersRest_AreNeverWritten) {
  const TestSeed seed;
  Scribbler scribbler(kRing, seed);
  Victim victim(memory.Start());
  std::vector<std::uint8_t> rest(256 - 32 + kRing.userBytes, 0x5A);
  std::memcpy(memory.Start() + 32, rest.data(), rest.size());
  for (int round = 0; round < 50000; ++round) {
    const std::uint32_t word = scribbler.Word();
    std::memcpy(memory.Start() + 12 + 4 * scribbler.Below(5), &word, sizeof word);
    victim.Operate(scribbler);
  }
  EXPECT_EQ(std::memcmp(memory.Start() + 32, rest.data(), rest.size()), 0);
}

INSTANTIATE_TEST_SUITE_P(FencedAt, RingGarbage,
                         ::testing::Values(FencedMemory::Against::Front, FencedMemory::Against::Back));

// --- what the ring answers ------------------------------------------------------------------------------------

class ScribbledRing : public RingFixture {
 protected:
  void SetUp() override {
    ASSERT_EQ(Create(ring, 3, 8), 1);
    for (const char *text : {"a", "b"}) PushText(ring, text);
  }
};

TEST_F(ScribbledRing, WithIndexThatIsNoSlot_CountsAsEmpty) {
  for (std::uint32_t _U_ShmQueue_SHM_VARI::*index :
       {&_U_ShmQueue_SHM_VARI::dwReadIdx, &_U_ShmQueue_SHM_VARI::dwWriteIdx}) {
    for (const std::uint32_t garbage : {4u, 5u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
      const std::uint32_t good = ring.header->*index;
      ring.header->*index = garbage;
      const auto before = Bytes(ring);
      EXPECT_EQ(GetText(ring), "<empty>");
      EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
      EXPECT_EQ(TShmQueue_PeekInit(&ring, 0), 0);
      EXPECT_EQ(TShmQueue_PeekInit(&ring, -1), 0);
      EXPECT_EQ(Bytes(ring), before);
      EXPECT_EQ(SemValue(), 1);
      ring.header->*index = good;
    }
  }
  EXPECT_EQ(GetText(ring), "a");
}

TEST_F(ScribbledRing, Push_StartsAnUnusableRingAfresh) {
  for (const auto &[read, write] : {std::pair(4u, 2u), std::pair(0u, 4u), std::pair(~0u, ~0u)}) {
    ring.header->dwReadIdx = read;
    ring.header->dwWriteIdx = write;
    for (const char *text : {"p", "q", "r"}) EXPECT_EQ(PushText(ring, text), 1);
    EXPECT_EQ(PushText(ring, "s"), 0);
    for (const char *text : {"p", "q", "r", "<empty>"}) EXPECT_EQ(GetText(ring), text);
  }
}

TEST_F(ScribbledRing, WithWriteIndexThatIsNoSlot_EndsAForwardWalk) {
  ring.header->dwWriteIdx = 4;
  EXPECT_EQ(PeekNextText(ring), "<end>");
}

TEST_F(ScribbledRing, WithReadIndexThatIsNoSlot_EndsABackwardWalk) {
  TShmQueue_PeekInit(&ring, -1);
  ring.header->dwReadIdx = 4;
  EXPECT_EQ(PeekPrevText(ring), "<end>");
}

TEST_F(ScribbledRing, PushOverwrite_ClearsAnUnusableRingAndReturnsThatCellsAreLost) {
  for (const auto &[read, write] : {std::pair(4u, 2u), std::pair(0u, 4u), std::pair(~0u, ~0u)}) {
    ring.header->dwReadIdx = read;
    ring.header->dwWriteIdx = write;
    EXPECT_EQ(OverwriteText(ring, "new"), 0);
    EXPECT_EQ(TShmQueue_GetCount(&ring), 1);
    EXPECT_EQ(GetText(ring), "new");
    EXPECT_EQ(OverwriteText(ring, "next"), 1);
    EXPECT_EQ(GetText(ring), "next");
  }
}

TEST_F(ScribbledRing, Clear_MakesAnUnusableRingUsable) {
  ring.header->dwReadIdx = 77;
  EXPECT_EQ(TShmQueue_Clear(&ring), 1);
  EXPECT_EQ(PushText(ring, "new"), 1);
  EXPECT_EQ(GetText(ring), "new");
}

TEST_F(ScribbledRing, WithAnOffsetThatDoesNotFitTheIndex_UsesTheIndex) {
  for (const std::uint32_t garbage : {0u, 5u, 12u, 37u, 48u, 0x80000000u, 0xFFFFFFFFu}) {
    ring.header->dwReadOffset = garbage;
    EXPECT_EQ(GetText(ring), "a");
    ring.header->dwWriteOffset = garbage;
    EXPECT_EQ(PushText(ring, "c"), 1);
    ring.header->dwWriteOffset = garbage;
    EXPECT_EQ(OverwriteText(ring, "d"), 1);
    EXPECT_EQ(ring.header->dwReadOffset, ring.header->dwReadIdx * ring.dwStride);
    EXPECT_EQ(ring.header->dwWriteOffset, ring.header->dwWriteIdx * ring.dwStride);
    for (const char *text : {"b", "c", "d", "<empty>"}) EXPECT_EQ(GetText(ring), text);
    for (const char *text : {"a", "b"}) PushText(ring, text);
  }
}

TEST_F(ScribbledRing, WithLengthBeyondTheCell_ReportsItAndCopiesNoMoreThanTheCell) {
  for (const std::uint32_t garbage : {9u, 0x10000u, 0x10003u, 0xFFFFFFFFu}) {
    TShmQueue_Clear(&ring);
    PushText(ring, "12345678");
    std::memcpy(ring.cells, &garbage, sizeof garbage);
    char buffer[13] = "############";
    std::uint32_t stored = 4711;
    EXPECT_EQ(TShmQueue_Get(&ring, buffer, &stored, 0), 1);
    EXPECT_EQ(stored, garbage);
    // Without a limit, the low 16 bits of the length count.
    const std::size_t copied = std::min<std::size_t>(garbage & 0xFFFF, 8);
    EXPECT_EQ(std::string(buffer), std::string("12345678").substr(0, copied) + std::string(12 - copied, '#'));
  }
}

TEST_F(ScribbledRing, Geometry_IsTheRecordsOwnAfterAttaching) {
  ring.header->dwCellCount = 1000000;
  ring.header->wCellSize = 60000;
  ring.header->dwUserBytes = 0xFFFFFFF0;
  ring.header->dwLastSlotOffset = 0xFFFFFF00;
  EXPECT_EQ(PushText(ring, "0123456789"), 1);
  EXPECT_EQ(PushText(ring, "d"), 0);
  for (const char *text : {"a", "b", "01234567", "<empty>"}) EXPECT_EQ(GetText(ring), text);
  std::int32_t idx = 0;
  std::uint32_t offset = 0;
  _TShmQueue_GetPrevIdx(&idx, &offset, &ring);
  EXPECT_EQ(offset, 36u);
}

TEST_F(ScribbledRing, WithOtherGeometryInTheHeader_CannotBeAttachedWithEither) {
  ring.header->dwCellCount = 1000000;
  TShmQueue second{};
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(second, 3, 8), 0);
  EXPECT_EQ(err.Take(), MatchMessage(shareKey, semKey));
  ::shmdt(second.header);

  // The sizes in the header do not fit the segment: the system refuses them.
  CapturedOutput larger(stderr);
  EXPECT_EQ(Create(second, 1000000, 8), 0);
  EXPECT_NE(larger.Take().find(CreateMessage(shareKey, semKey)), std::string::npos);
}

}  // namespace
