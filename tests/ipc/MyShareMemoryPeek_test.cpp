// SPDX-License-Identifier: MIT
// Peeking into the shared ring: positions from both ends, walks in both directions, and where they stop.

#include <devsupport/ipc/MyShareMemory.h>

#include "tests/ipc/RingFixture.h"

#include <cstdint>

namespace {

class RingPeek : public devsupport::test::RingFixture {
 protected:
  // 3 cells in 4 slots, wrapped: "c" in slot 2, "d" in slot 3, "e" in slot 0.
  void SetUp() override {
    ASSERT_EQ(Create(ring, 3, 8), 1);
    for (const char *text : {"a", "b", "c"}) PushText(ring, text);
    GetText(ring);
    GetText(ring);
    for (const char *text : {"d", "e"}) PushText(ring, text);
  }
};

TEST_F(RingPeek, FromPosition0_VisitsOldestToNewest) {
  EXPECT_EQ(TShmQueue_PeekInit(&ring, 0), 1);
  for (const char *text : {"c", "d", "e", "<end>", "<end>"}) EXPECT_EQ(PeekNextText(ring), text);
}

TEST_F(RingPeek, FromPositionMinus1_VisitsNewestToOldest) {
  EXPECT_EQ(TShmQueue_PeekInit(&ring, -1), 1);
  for (const char *text : {"e", "d", "c", "<end>", "<end>"}) EXPECT_EQ(PeekPrevText(ring), text);
}

TEST_F(RingPeek, EveryPosition_NamesItsCell) {
  const char *texts[] = {"c", "d", "e"};
  for (int position = -3; position < 3; ++position) {
    EXPECT_EQ(TShmQueue_PeekInit(&ring, position), 1) << position;
    EXPECT_EQ(ring.dwPeekOffset, static_cast<std::uint32_t>(ring.nPeekIdx) * ring.dwStride) << position;
    EXPECT_EQ(PeekNextText(ring), texts[(position + 3) % 3]) << position;
  }
}

TEST_F(RingPeek, PositionAtTheCount_Returns0AndIsAtTheOldest) {
  for (const int position : {3, 4, INT32_MAX}) {
    EXPECT_EQ(TShmQueue_PeekInit(&ring, position), 0);
    EXPECT_EQ(PeekNextText(ring), "c");
  }
}

TEST_F(RingPeek, OnEmptyRing_FindsNothing) {
  TShmQueue_Clear(&ring);
  EXPECT_EQ(TShmQueue_PeekInit(&ring, 0), 0);
  EXPECT_EQ(PeekNextText(ring), "<end>");
  TShmQueue_PeekInit(&ring, -1);
  EXPECT_EQ(PeekPrevText(ring), "<end>");
}

TEST_F(RingPeek, PositionBelowMinusTheCount_StaysInTheRing) {
  for (const int position : {-4, -5, -7, -8, -100, INT32_MIN}) {
    TShmQueue_PeekInit(&ring, position);
    EXPECT_GE(ring.nPeekIdx, 0) << position;
    EXPECT_LT(ring.nPeekIdx, ring.nSlotCount) << position;
    EXPECT_EQ(ring.dwPeekOffset, static_cast<std::uint32_t>(ring.nPeekIdx) * ring.dwStride) << position;
  }
}

TEST_F(RingPeek, AtTheEnd_LeavesTheSlotPointerAlone) {
  void *slot = &ring;
  TShmQueue_PeekInit(&ring, 2);
  PeekNextText(ring);
  EXPECT_EQ(TShmQueue_PeekNext(&ring, &slot), nullptr);
  EXPECT_EQ(slot, &ring);
  TShmQueue_PeekInit(&ring, 0);
  PeekPrevText(ring);
  EXPECT_EQ(TShmQueue_PeekPrev(&ring, &slot), nullptr);
  EXPECT_EQ(slot, &ring);
}

TEST_F(RingPeek, Next_GivesTheSlotAndThePayloadAfterIt) {
  TShmQueue_PeekInit(&ring, 0);
  void *slot = nullptr;
  void *payload = TShmQueue_PeekNext(&ring, &slot);
  EXPECT_EQ(slot, ring.cells + 2 * ring.dwStride);
  EXPECT_EQ(payload, ring.cells + 2 * ring.dwStride + 4);
}

TEST_F(RingPeek, PrevAfterTheEndOfARingThatIsNotFull_ShowsTheFreeSlotFirst) {
  TShmQueue_Clear(&ring);
  for (const char *text : {"x", "y"}) PushText(ring, text);  // slot 2 is free and still holds "c"
  TShmQueue_PeekInit(&ring, 0);
  while (PeekNextText(ring) != "<end>") continue;
  for (const char *text : {"c", "y", "x", "<end>"}) EXPECT_EQ(PeekPrevText(ring), text);
}

TEST_F(RingPeek, PrevAfterTheEndOfAFullRing_StopsAtOnce) {
  TShmQueue_PeekInit(&ring, 0);
  while (PeekNextText(ring) != "<end>") continue;
  EXPECT_EQ(PeekPrevText(ring), "<end>");
}

TEST_F(RingPeek, Steps_TakeNoLockAndNoCells) {
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  TShmQueue_PeekInit(&ring, 0);
  PeekNextText(ring);
  PeekPrevText(ring);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 3);
}

TEST_F(RingPeek, EachRecord_HasItsOwnCursor) {
  TShmQueue second{};
  ASSERT_EQ(Create(second, 3, 8), 1);
  TShmQueue_PeekInit(&ring, 0);
  PeekNextText(ring);
  EXPECT_EQ(PeekNextText(second), "c");
  EXPECT_EQ(PeekNextText(ring), "d");
  ::shmdt(second.header);
}

}  // namespace
