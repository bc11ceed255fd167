// SPDX-License-Identifier: MIT
// The shared ring's cells: store, overwrite, take, count, clear, lock.

#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/ipc/Semaphore.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <thread>

#include "tests/ipc/RingFixture.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(int, semop, (int id, sembuf *operations, std::size_t count), (id, operations, count), -1,
                       ENOMEM)

namespace {

using namespace devsupport::test;

/// A ring of 3 cells of 8 bytes.
class Ring : public RingFixture {
 protected:
  void SetUp() override { ASSERT_EQ(Create(ring, 3, 8), 1); }
};

/// Tests that choose the size of the ring.
class AnyRing : public RingFixture {};

TEST_F(Ring, Push_FillsExactlyTheCellsAskedFor) {
  for (const char *text : {"a", "b", "c"}) EXPECT_EQ(PushText(ring, text), 1);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 3);
}

TEST_F(Ring, Push_WhenTheSemaphoreCannotBeTaken_RunsUnlockedAndDoesNotGiveItBack) {
  const FailCall noRoomForTheUndo("semop", 1);
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_TRUE(noRoomForTheUndo.Happened());
  EXPECT_EQ(SemValue(), 1) << "two processes could enter at the same time";
  EXPECT_EQ(GetText(ring), "a");
}

TEST_F(Ring, Push_OnFullRing_Returns0AndStoresNothing) {
  for (const char *text : {"a", "b", "c"}) PushText(ring, text);
  const auto before = Bytes(ring);
  EXPECT_EQ(PushText(ring, "d"), 0);
  EXPECT_EQ(Bytes(ring), before);
  EXPECT_EQ(GetText(ring), "a");
}

TEST_F(Ring, PushOverwrite_WithRoom_Returns1) {
  for (const char *text : {"a", "b", "c"}) EXPECT_EQ(OverwriteText(ring, text), 1);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 3);
}

TEST_F(Ring, PushOverwrite_OnFullRing_Returns0AndDropsTheOldestCell) {
  for (const char *text : {"a", "b", "c"}) PushText(ring, text);
  EXPECT_EQ(OverwriteText(ring, "d"), 0);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 3);
  for (const char *text : {"b", "c", "d", "<empty>"}) EXPECT_EQ(GetText(ring), text);
}

TEST_F(Ring, PushOverwrite_ManyTimesRound_KeepsTheNewestCells) {
  for (int i = 0; i < 100; ++i) EXPECT_EQ(OverwriteText(ring, std::to_string(i)), i < 3 ? 1 : 0);
  for (const char *text : {"97", "98", "99", "<empty>"}) EXPECT_EQ(GetText(ring), text);
}

TEST_F(Ring, Push_OfLength0_Returns0WithoutLocking) {
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);  // another lock would wait for ever
  EXPECT_EQ(TShmQueue_Push(&ring, "x", 0), 0);
  EXPECT_EQ(TShmQueue_PushOverwrite(&ring, "x", 0), 0);
  EXPECT_EQ(TShmQueue_Push(&ring, nullptr, 0), 0);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
}

TEST_F(Ring, Push_OfMoreThanACell_StoresTheCellSizeAndThatLength) {
  EXPECT_EQ(PushText(ring, "0123456789"), 1);
  EXPECT_EQ(OverwriteText(ring, "ABCDEFGHIJ"), 1);
  PushText(ring, "next");
  char buffer[16] = "###############";
  std::uint32_t stored = 4711;
  EXPECT_EQ(TShmQueue_Get(&ring, buffer, &stored, 0), 1);
  EXPECT_EQ(stored, 8u);
  EXPECT_STREQ(buffer, "01234567#######");
  EXPECT_EQ(GetText(ring), "ABCDEFGH");
  EXPECT_EQ(GetText(ring), "next");
}

TEST_F(Ring, Get_OnEmptyRing_Returns0AndLength0AndLeavesTheBuffer) {
  char buffer[9] = "########";
  std::uint32_t stored = 4711;
  EXPECT_EQ(TShmQueue_Get(&ring, buffer, &stored, 0), 0);
  EXPECT_EQ(stored, 0u);
  EXPECT_STREQ(buffer, "########");
  EXPECT_EQ(TShmQueue_Get(&ring, buffer, nullptr, 0), 0);
}

struct Taken {
  const char *name;
  const char *text;
  std::uint16_t room;
  const char *copied;
};
class RingGet : public Ring, public ::testing::WithParamInterface<Taken> {};

TEST_P(RingGet, CopiesWhatFitsAndReportsTheWholeLength) {
  const auto [name, text, room, copied] = GetParam();
  PushText(ring, text);
  char buffer[9] = "########";
  std::uint32_t stored = 4711;
  EXPECT_EQ(TShmQueue_Get(&ring, buffer, &stored, room), 1);
  EXPECT_EQ(stored, std::strlen(text));
  EXPECT_STREQ(buffer, copied);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
}

INSTANTIATE_TEST_SUITE_P(, RingGet,
                         ::testing::Values(Taken{"SmallBuffer", "0123456", 3, "012#####"},
                                           Taken{"LargeBuffer", "012", 9, "012#####"},
                                           Taken{"NoLimit", "01234", 0, "01234###"}),
                         [](const auto &given) { return given.param.name; });

TEST_F(Ring, GetCount_AfterWrapAround_CountsAcrossTheEnd) {
  for (const char *text : {"a", "b", "c"}) PushText(ring, text);
  GetText(ring);
  GetText(ring);
  for (const char *text : {"d", "e"}) EXPECT_EQ(PushText(ring, text), 1);
  EXPECT_LT(ring.header->dwWriteIdx, ring.header->dwReadIdx);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 3);
  EXPECT_EQ(_TShmQueue_CurrentCellCount(&ring), 3);
  for (const char *text : {"c", "d", "e", "<empty>"}) EXPECT_EQ(GetText(ring), text);
}

TEST_F(Ring, CurrentCellCount_TakesNoLock) {
  PushText(ring, "a");
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  EXPECT_EQ(_TShmQueue_CurrentCellCount(&ring), 1);
  TShmQueue_Unlock(&ring);
}

TEST_F(Ring, Clear_PutsBothCursorsToSlot0AndLeavesTheCellsBytes) {
  for (const char *text : {"a", "b", "c"}) PushText(ring, text);
  GetText(ring);
  auto expected = Bytes(ring);
  std::fill(expected.begin() + 12, expected.begin() + 28, std::uint8_t{0});
  EXPECT_EQ(TShmQueue_Clear(&ring), 1);
  EXPECT_EQ(Bytes(ring), expected);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
  EXPECT_EQ(SemValue(), 1);
}

TEST_F(AnyRing, OddCellSize_WorksOnUnalignedSlots) {
  ASSERT_EQ(Create(ring, 4, 5), 1);
  for (int round = 0; round < 20; ++round) {
    for (const char *text : {"12345", "1", "123"}) EXPECT_EQ(PushText(ring, text), 1);
    for (const char *text : {"12345", "1", "123"}) EXPECT_EQ(GetText(ring), text);
  }
}

TEST_F(AnyRing, OfNoCells_IsFullAndEmptyAtOnce) {
  ASSERT_EQ(Create(ring, 0, 8), 1);
  EXPECT_EQ(PushText(ring, "a"), 0);
  EXPECT_EQ(OverwriteText(ring, "b"), 0);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
  EXPECT_EQ(GetText(ring), "<empty>");
}

TEST_F(AnyRing, OfEmptyCells_StoresLength0) {
  ASSERT_EQ(Create(ring, 2, 0), 1);
  EXPECT_EQ(PushText(ring, "abc"), 1);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 1);
  std::uint32_t stored = 4711;
  char byte = '#';
  EXPECT_EQ(TShmQueue_Get(&ring, &byte, &stored, 1), 1);
  EXPECT_EQ(stored, 0u);
  EXPECT_EQ(byte, '#');
}

TEST_F(Ring, TwoRecords_SeeTheSameCells) {
  TShmQueue other{};
  ASSERT_EQ(Create(other, 3, 8), 1);
  PushText(ring, "a");
  PushText(other, "b");
  EXPECT_EQ(GetText(other), "a");
  EXPECT_EQ(GetText(ring), "b");
  EXPECT_EQ(GetText(other), "<empty>");
  ::shmdt(other.header);
}

TEST_F(Ring, TwoProcesses_PassCellsWholeAndInOrder) {
  Child child([&] {
    for (int i = 0; i < 20000; ++i)
      while (PushText(ring, std::to_string(i)) == 0) ::sched_yield();
    return 0;
  });
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    while ((text = GetText(ring)) == "<empty>") ::sched_yield();
    ASSERT_EQ(text, std::to_string(i));
  }
  EXPECT_EQ(child.Wait(), 0);
}

// The thread sanitizer does not know that a System V semaphore keeps threads apart.
#ifndef __SANITIZE_THREAD__
TEST_F(Ring, ThreadsOfOneRecord_PassCellsWholeAndOnce) {
  constexpr int kEach = 5000;
  std::atomic<int> taken{0};
  std::atomic<std::int64_t> sum{0};
  const auto push = [&](int first) {
    for (int i = first; i < first + kEach; ++i)
      while (PushText(ring, std::to_string(i)) == 0) ::sched_yield();
  };
  const auto take = [&] {
    while (taken < 2 * kEach) {
      const std::string text = GetText(ring);
      if (text == "<empty>") {
        ::sched_yield();
        continue;
      }
      sum += std::stoi(text);
      ++taken;
    }
  };
  std::vector<std::thread> threads;
  threads.emplace_back(push, 0);
  threads.emplace_back(push, kEach);
  threads.emplace_back(take);
  threads.emplace_back(take);
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(taken, 2 * kEach);
  EXPECT_EQ(sum, std::int64_t{2 * kEach} * (2 * kEach - 1) / 2);
  EXPECT_EQ(SemValue(), 1);
}
#endif

TEST_F(AnyRing, NextIdx_WrapsAfterTheLastSlot) {
  ASSERT_EQ(Create(ring, 2, 8), 1);
  std::int32_t idx = 0;
  std::uint32_t offset = 0;
  const std::uint32_t offsets[] = {12, 24, 0, 12};
  for (const std::uint32_t expected : offsets) {
    _TShmQueue_GetNextIdx(&idx, &offset, &ring);
    EXPECT_EQ(offset, expected);
    EXPECT_EQ(static_cast<std::uint32_t>(idx) * 12, expected);
  }
}

TEST_F(AnyRing, PrevIdx_WrapsBeforeSlot0) {
  ASSERT_EQ(Create(ring, 2, 8), 1);
  std::int32_t idx = 1;
  std::uint32_t offset = 12;
  const std::uint32_t offsets[] = {0, 24, 12, 0};
  for (const std::uint32_t expected : offsets) {
    _TShmQueue_GetPrevIdx(&idx, &offset, &ring);
    EXPECT_EQ(offset, expected);
    EXPECT_EQ(static_cast<std::uint32_t>(idx) * 12, expected);
  }
}

TEST_F(AnyRing, NextIdx_ComparesSigned) {
  ASSERT_EQ(Create(ring, 2, 8), 1);
  std::int32_t idx = -5;
  std::uint32_t offset = 100;
  _TShmQueue_GetNextIdx(&idx, &offset, &ring);
  EXPECT_EQ(idx, -4);
  EXPECT_EQ(offset, 112u);
  idx = INT32_MAX - 1;
  _TShmQueue_GetNextIdx(&idx, &offset, &ring);
  EXPECT_EQ(idx, 0);
  EXPECT_EQ(offset, 0u);
}

TEST_F(Ring, LockAndUnlock_AreTheSemaphores) {
  EXPECT_EQ(TShmQueue_Lock(&ring), 1);
  EXPECT_EQ(SemValue(), 0);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  EXPECT_EQ(SemValue(), 1);
}

TEST_F(AnyRing, EveryOperation_GivesTheSemaphoreBack) {
  ASSERT_EQ(Create(ring, 1, 8), 1);
  EXPECT_EQ(SemValue(), 1);
  for (int round = 0; round < 2; ++round) {  // with room and on the full ring
    PushText(ring, "a");
    EXPECT_EQ(SemValue(), 1);
    OverwriteText(ring, "b");
    EXPECT_EQ(SemValue(), 1);
  }
  for (int round = 0; round < 2; ++round) {  // with a cell and on the empty ring
    GetText(ring);
    EXPECT_EQ(SemValue(), 1);
    TShmQueue_GetCount(&ring);
    EXPECT_EQ(SemValue(), 1);
  }
}

TEST_F(AnyRing, Operations_PrintNothing) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  ASSERT_EQ(Create(ring, 1, 4), 1);
  for (int round = 0; round < 2; ++round) {
    PushText(ring, "too long");
    OverwriteText(ring, "too long");
  }
  for (int round = 0; round < 2; ++round) GetText(ring);
  TShmQueue_Clear(&ring);
  TShmQueue_Close(&ring, 1);
  TShmQueue_Push(&ring, "x", 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(out.Take(), "");
  ring.header = nullptr;
}

// --- without a lock ---------------------------------------------------------------------------------------------

TEST_F(Ring, WithoutSemaphore_RunsUnlocked) {
  ring.semid = -1;
  ASSERT_EQ(Semaphore_Lock(::semget(semKey, 0, 0)), 1);  // no operation waits for it
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_EQ(OverwriteText(ring, "b"), 1);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 2);
  EXPECT_EQ(GetText(ring), "a");
  EXPECT_EQ(TShmQueue_Lock(&ring), 0);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 0);
  EXPECT_EQ(TShmQueue_Clear(&ring), 0);
  EXPECT_EQ(GetText(ring), "<empty>");
  EXPECT_EQ(SemValue(), 0);
}

TEST_F(Ring, WithSemaphoreRemoved_RunsUnlocked) {
  ASSERT_EQ(Semaphore_Close(ring.semid), 1);
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_EQ(GetText(ring), "a");
  EXPECT_EQ(TShmQueue_GetCount(&ring), 0);
  EXPECT_EQ(TShmQueue_Clear(&ring), 0);
}

TEST_F(Ring, SemaphoreRemovedDuringTheWait_EndsTheWait) {
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  Child child([&] { return PushText(ring, "a"); });
  AwaitWaiter(ring.semid);
  Semaphore_Close(ring.semid);
  EXPECT_EQ(child.Wait(), 1);
  EXPECT_EQ(GetText(ring), "a");
}

// --- no ring at all -------------------------------------------------------------------------------------------

using RingDeathTest = Ring;

TEST_F(RingDeathTest, Push_OfNull_StopsWithTheStandardAssertion) {
  EXPECT_EXIT(TShmQueue_Push(nullptr, "x", 0), ::testing::KilledBySignal(SIGABRT),
              "MyShareMemory:224: TShmQueue_Push: Assertion `puMember != \\(\\(void \\*\\)0\\)' failed\\.\n$");
}

TEST_F(RingDeathTest, PushOverwrite_OfNull_StopsWithTheStandardAssertion) {
  EXPECT_EXIT(
      TShmQueue_PushOverwrite(nullptr, "x", 0), ::testing::KilledBySignal(SIGABRT),
      "MyShareMemory:253: TShmQueue_PushOverwrite: Assertion `puMember != \\(\\(void \\*\\)0\\)' failed\\.\n$");
}

TEST_F(RingDeathTest, Get_OfNull_StopsWithTheStandardAssertion) {
  EXPECT_EXIT(TShmQueue_Get(nullptr, nullptr, nullptr, 0), ::testing::KilledBySignal(SIGABRT),
              "MyShareMemory:277: TShmQueue_Get: Assertion `puMember != \\(\\(void \\*\\)0\\)' failed\\.\n$");
}

}  // namespace
