// SPDX-License-Identifier: MIT
// Making, attaching and leaving the shared ring: the segment's bytes, the messages, and creators that died before
// they had finished.

#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/ipc/Semaphore.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <limits>

#include "tests/ipc/RingFixture.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;

static_assert(std::endian::native == std::endian::little, "the golden bytes below are those of the device");

class RingCreation : public RingFixture {
 protected:
  std::string SegmentMessage(char step, int error) const {
    char text[512];
    std::snprintf(text, sizeof text, "\n *** share memory create fail(%c), key=0x%X (%s) ***\n:%s\n", step,
                  static_cast<unsigned>(shareKey.Value()), std::strerror(error), std::strerror(error));
    return text;
  }
  // Makes a segment like another program, with these bytes at its start.
  void MakeSegment(std::size_t size, const std::vector<std::uint8_t> &start = {}) const {
    const int id = ::shmget(shareKey, size, IPC_CREAT | 0666);
    ASSERT_NE(id, -1);
    void *address = ::shmat(id, nullptr, 0);
    if (!start.empty()) std::memcpy(address, start.data(), start.size());
    ::shmdt(address);
  }
};

// 3 cells of 8 bytes, 5 user bytes rounded to 8: head, user area, 4 slots of 12 bytes.
constexpr std::size_t kGoldenSize = 256 + 8 + 4 * 12;

// The segment after "ab" and "xyz" have been pushed, "ab" taken, then "12345678" and "q" pushed.
std::vector<std::uint8_t> GoldenSegment() {
  std::vector<std::uint8_t> bytes(kGoldenSize, 0);
  const std::uint8_t header[32] = {3,  0, 0, 0,                                        // cell count
                                   8,  0, 0, 0,                                        // cell size, reserved
                                   8,  0, 0, 0,                                        // user bytes
                                   1,  0, 0, 0,                                        // read index
                                   0,  0, 0, 0,                                        // write index
                                   12, 0, 0, 0,                                        // read offset
                                   0,  0, 0, 0,                                        // write offset
                                   36, 0, 0, 0};                                       // last-slot offset
  const std::uint8_t slots[48] = {2, 0, 0, 0, 'a', 'b', 0,   0,   0,   0,   0,   0,    //
                                  3, 0, 0, 0, 'x', 'y', 'z', 0,   0,   0,   0,   0,    //
                                  8, 0, 0, 0, '1', '2', '3', '4', '5', '6', '7', '8',  //
                                  1, 0, 0, 0, 'q', 0,   0,   0,   0,   0,   0,   0};
  std::memcpy(bytes.data(), header, sizeof header);
  std::memcpy(bytes.data() + 264, slots, sizeof slots);
  return bytes;
}

TEST_F(RingCreation, Ring_WritesTheGoldenBytes) {
  TShmQueueOpt opt{5, 0, kNever};
  ASSERT_EQ(Create(ring, 3, 8, &opt), 1);
  PushText(ring, "ab");
  PushText(ring, "xyz");
  GetText(ring);
  PushText(ring, "12345678");
  PushText(ring, "q");
  EXPECT_EQ(Bytes(ring), GoldenSegment());
}

TEST_F(RingCreation, Ring_ReadsTheGoldenBytes) {
  MakeSegment(kGoldenSize, GoldenSegment());
  TShmQueueOpt opt{5, 0, kNever};
  ASSERT_EQ(Create(ring, 3, 8, &opt), 1);
  EXPECT_EQ(opt.bNewCreated, 0);
  EXPECT_EQ(TShmQueue_GetCount(&ring), 3);
  for (const char *text : {"xyz", "12345678", "q", "<end>"}) EXPECT_EQ(PeekNextText(ring), text);
  for (const char *text : {"xyz", "12345678", "q", "<empty>"}) EXPECT_EQ(GetText(ring), text);
}

TEST_F(RingCreation, OfNewRing_FillsTheRecord) {
  TShmQueueOpt opt{8, 0, kNever};
  ASSERT_EQ(Create(ring, 3, 10, &opt), 1);
  auto *segment = static_cast<std::uint8_t *>(ring.shm.address);
  EXPECT_EQ(ring.nSlotCount, 4);
  EXPECT_EQ(ring.wCellSize, 10);
  EXPECT_EQ(ring.dwStride, 14u);
  EXPECT_EQ(ring.shm.shmid, ::shmget(shareKey, 0, 0));
  EXPECT_EQ(ring.semid, ::semget(semKey, 0, 0));
  EXPECT_EQ(static_cast<void *>(ring.header), segment);
  EXPECT_EQ(ring.nPeekIdx, 0);
  EXPECT_EQ(ring.dwPeekOffset, 0u);
  EXPECT_EQ(ring.cells, segment + 264);
  EXPECT_EQ(ring.pUserArea, segment + 256);
  shmid_ds status{};
  ::shmctl(ring.shm.shmid, IPC_STAT, &status);
  EXPECT_EQ(status.shm_segsz, 256u + 8 + 4 * 14);
  EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
}

TEST_F(RingCreation, SecondOne_AttachesAtTheOldestCell) {
  ASSERT_EQ(Create(ring, 3, 8), 1);
  for (const char *text : {"a", "b", "c"}) PushText(ring, text);
  GetText(ring);
  TShmQueue second{};
  TShmQueueOpt opt{0, 1, kNever};
  ASSERT_EQ(Create(second, 3, 8, &opt), 1);
  EXPECT_EQ(opt.bNewCreated, 0);
  EXPECT_EQ(second.nPeekIdx, 1);
  EXPECT_EQ(PeekNextText(second), "b");
  EXPECT_EQ(SemValue(), 1);
  ::shmdt(second.header);
}

TEST_F(RingCreation, WithoutBlock_UsesTheDefaults) {
  ASSERT_EQ(Create(ring, 3, 8, nullptr), 1);
  EXPECT_EQ(ring.cells, ring.pUserArea);
  EXPECT_EQ(ring.header->dwUserBytes, 0u);
  EXPECT_EQ(SemValue(), 1);
}

TEST_F(RingCreation, UserSizes5And8_AreTheSame) {
  TShmQueueOpt five{5, 0, kNever};
  TShmQueueOpt eight{8, 0, kNever};
  ASSERT_EQ(Create(ring, 3, 8, &five), 1);
  EXPECT_EQ(five.bNewCreated, 1);
  TShmQueue second{};
  EXPECT_EQ(Create(second, 3, 8, &eight), 1);
  EXPECT_EQ(eight.bNewCreated, 0);
  ::shmdt(second.header);
}

TEST_F(RingCreation, WithBlockLockIfNew_ComesBackLockedOnlyWhenNew) {
  TShmQueueOpt opt{4, 1, kNever};
  ASSERT_EQ(Create(ring, 3, 8, &opt), 1);
  EXPECT_EQ(opt.bNewCreated, 1);
  EXPECT_EQ(SemValue(), 0);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  TShmQueue second{};
  ASSERT_EQ(Create(second, 3, 8, &opt), 1);
  EXPECT_EQ(opt.bNewCreated, 0);
  EXPECT_EQ(SemValue(), 1);
  ::shmdt(second.header);
}

TEST_F(RingCreation, TakesTheSemaphoreBeforeItLooksForTheSegment) {
  const int sem = Semaphore_Create(semKey);
  ASSERT_EQ(Semaphore_Lock(sem), 1);
  Child child([&] { return Create(ring, 3, 8); });
  AwaitWaiter(sem);
  EXPECT_FALSE(SegmentExists());
  EXPECT_EQ(Semaphore_Unlock(sem), 1);
  EXPECT_EQ(child.Wait(), 1);
  EXPECT_TRUE(SegmentExists());
}

// --- other sizes -----------------------------------------------------------------------------------------------

class RingMismatch : public RingCreation, public ::testing::WithParamInterface<std::tuple<int, int, int>> {};

TEST_P(RingMismatch, PrintsReturns0UnlocksAndLeavesTheSegmentAttached) {
  const auto [cells, size, user] = GetParam();
  TShmQueueOpt opt{8, 0, kNever};
  ASSERT_EQ(Create(ring, 4, 8, &opt), 1);
  TShmQueue second{};
  TShmQueueOpt other{user, 1, kNever};
  CapturedOutput err(stderr);
  const int result = Create(second, static_cast<std::uint32_t>(cells), static_cast<std::uint16_t>(size), &other);
  EXPECT_EQ(err.Take(), MatchMessage(shareKey, semKey));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(other.bNewCreated, 0);
  EXPECT_EQ(SemValue(), 1);
  EXPECT_EQ(Attachments(), 2u);
  EXPECT_EQ(TShmQueue_Close(&second, 1), 1);
  EXPECT_EQ(Attachments(), 1u);
}

INSTANTIATE_TEST_SUITE_P(CountSizeOrUserArea, RingMismatch,
                         ::testing::Values(std::tuple(3, 8, 8), std::tuple(4, 4, 8), std::tuple(4, 8, 4),
                                           std::tuple(2, 16, 8)));

TEST_F(RingCreation, OfLargerRing_PrintsBothMessagesAndUnlocks) {
  ASSERT_EQ(Create(ring, 3, 8), 1);
  TShmQueue larger{};
  TShmQueueOpt opt{0, 1, kNever};
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(larger, 4, 8, &opt), 0);
  EXPECT_EQ(err.Take(), SegmentMessage('a', EINVAL) + CreateMessage(shareKey, semKey));
  EXPECT_EQ(opt.bNewCreated, 0);
  EXPECT_EQ(SemValue(), 1);
}

TEST_F(RingCreation, InLargerSegmentOfOthersWithoutHeader_DoesNotMatch) {
  MakeSegment(4096);
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(ring, 3, 8), 0);
  EXPECT_EQ(err.Take(), MatchMessage(shareKey, semKey));
}

TEST_F(RingCreation, InLargerSegmentWithFittingHeader_Attaches) {
  MakeSegment(4096, GoldenSegment());
  TShmQueueOpt opt{8, 0, kNever};
  EXPECT_EQ(Create(ring, 3, 8, &opt), 1);
  EXPECT_EQ(GetText(ring), "xyz");
}

TEST_F(RingCreation, WhenSegmentCannotBeAttached_PrintsBothMessagesAndLeavesNoSegment) {
  FailCall fail("shmat", 1);
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(ring, 3, 8), 0);
  EXPECT_EQ(err.Take(), SegmentMessage('b', ENOMEM) + CreateMessage(shareKey, semKey));
  EXPECT_FALSE(SegmentExists());
  EXPECT_EQ(SemValue(), 1);
}

TEST_F(RingCreation, WithNegativeKeys_PrintsThemSigned) {
  FailCall fail("shmget", FailCall::kEvery);
  CapturedOutput err(stderr);
  EXPECT_EQ(TShmQueue_Create(-5, semKey, 3, 8, nullptr, &ring), 0);
  EXPECT_NE(err.Take().find("\n*** TShmQueue created fail : ShareKey=-5, SemaphoreKey="), std::string::npos);
}

// --- sizes too large for a segment ----------------------------------------------------------------------------

class RingTooLarge : public RingCreation,
                     public ::testing::WithParamInterface<std::tuple<std::uint32_t, int, int>> {};

TEST_P(RingTooLarge, IsRefusedWithTheMessageAndMakesNothing) {
  const auto [cells, size, user] = GetParam();
  TShmQueueOpt opt{user, 1, kNever};
  CapturedOutput err(stderr);
  const int result = Create(ring, cells, static_cast<std::uint16_t>(size), &opt);
  EXPECT_EQ(err.Take(), CreateMessage(shareKey, semKey));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(opt.bNewCreated, 0);
  EXPECT_FALSE(SemExists());
  EXPECT_FALSE(SegmentExists());
  EXPECT_EQ(TShmQueue_Close(&ring, 1), 1);
}

constexpr std::uint32_t kMostCellsOfNoPayload = (1u << 30) - 66;  // 256 + 4 * (cells + 1) = 2^32 - 4

INSTANTIATE_TEST_SUITE_P(Measures, RingTooLarge,
                         ::testing::Values(std::tuple(UINT32_MAX, 136, 0), std::tuple(UINT32_MAX, 0, 0),
                                           std::tuple(UINT32_MAX - 1, 65535, 0), std::tuple(0x7FFFFFFFu, 0, 0),
                                           std::tuple(kMostCellsOfNoPayload + 1, 0, 0),
                                           std::tuple(kMostCellsOfNoPayload, 0, 1), std::tuple(65536u, 65535, 0),
                                           std::tuple(536870912u, 0, std::numeric_limits<int>::max()),
                                           std::tuple(3u, 8, -1),
                                           std::tuple(3u, 8, std::numeric_limits<int>::min())));

TEST_F(RingCreation, OfLargestSizeThatFits_AsksTheSystem) {
  FailCall fail("shmget", FailCall::kEvery);
  CapturedOutput err(stderr);
  EXPECT_EQ(Create(ring, kMostCellsOfNoPayload, 0), 0);
  EXPECT_EQ(err.Take(), SegmentMessage('a', EACCES) + CreateMessage(shareKey, semKey));
  EXPECT_EQ(SemValue(), 1);
}

// --- without a semaphore, and creators that died --------------------------------------------------------------

TEST_F(RingCreation, WhenThereIsNoSemaphore_RunsUnlocked) {
  FailCall fail("semget", FailCall::kEvery);
  TShmQueueOpt opt{0, 1, kNever};
  CapturedOutput err(stderr);
  ASSERT_EQ(Create(ring, 3, 8, &opt), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(ring.semid, -1);
  EXPECT_EQ(opt.bNewCreated, 1);
  EXPECT_EQ(PushText(ring, "a"), 1);
  EXPECT_EQ(GetText(ring), "a");
  EXPECT_EQ(TShmQueue_Unlock(&ring), 0);
  EXPECT_EQ(TShmQueue_Clear(&ring), 0);
}

TEST_F(RingCreation, WhenTheSemaphoreGetsNoValue_RunsUnlocked) {
  FailCall fail("semctl", 1);
  ASSERT_EQ(Create(ring, 3, 8), 1);
  EXPECT_TRUE(fail.Happened());
  EXPECT_EQ(ring.semid, -1);
  EXPECT_FALSE(SemExists());
  EXPECT_EQ(PushText(ring, "a"), 1);
}

TEST_F(RingCreation, AfterCreatorDiedBeforeItGaveTheSemaphoreItsValue_MakesAnother) {
  const int stillborn = ::semget(semKey, 1, IPC_CREAT | IPC_EXCL | 0666);
  ASSERT_NE(stillborn, -1);
  ASSERT_EQ(Create(ring, 3, 8), 1);
  EXPECT_NE(ring.semid, stillborn);
  EXPECT_EQ(SemValue(), 1);
  EXPECT_EQ(::semctl(stillborn, 0, GETVAL), -1);
}

TEST_F(RingCreation, OfRingThatIsHeldFromTheStart_Waits) {
  // A value of 0 that a process has set means that the semaphore is taken.
  const int sem = Semaphore_Create(semKey);
  ASSERT_EQ(::semctl(sem, 0, SETVAL, 0), 0);
  Child child([&] { return Create(ring, 3, 8); });
  AwaitWaiter(sem);
  ASSERT_EQ(::semctl(sem, 0, SETVAL, 1), 0);
  EXPECT_EQ(child.Wait(), 1);
  EXPECT_EQ(::semget(semKey, 0, 0), sem);
}

TEST_F(RingCreation, WhenSemaphoreIsRemovedDuringTheWait_MakesAnother) {
  const int sem = Semaphore_Create(semKey);
  ASSERT_EQ(Semaphore_Lock(sem), 1);
  Child child([&] {
    const int result = Create(ring, 3, 8);
    return result == 1 && ring.semid == ::semget(semKey, 0, 0) && SemValue() == 1 ? 0 : 1;
  });
  AwaitWaiter(sem);
  ASSERT_EQ(Semaphore_Close(sem), 1);
  EXPECT_EQ(child.Wait(), 0);
}

class UnfinishedRing : public RingCreation, public ::testing::WithParamInterface<int> {};

TEST_P(UnfinishedRing, IsFinishedByTheNextCreator) {
  // The creator was killed after this many words of the header, in the order in which it writes them.
  const int places[] = {16, 20, 12, 20, 24, 16, 24, 28, 4, 8};
  const std::uint32_t values[] = {UINT32_MAX, UINT32_MAX, 0, 0, UINT32_MAX, 0, 0, 36, 8, 8};
  std::vector<std::uint8_t> header(32, 0);
  for (int i = 0; i < GetParam(); ++i) std::memcpy(header.data() + places[i], &values[i], 4);
  MakeSegment(kGoldenSize, header);

  TShmQueueOpt opt{8, 1, kNever};
  ASSERT_EQ(Create(ring, 3, 8, &opt), 1);
  EXPECT_EQ(opt.bNewCreated, 1);
  EXPECT_EQ(SemValue(), 0);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  for (const char *text : {"a", "b", "c"}) EXPECT_EQ(PushText(ring, text), 1);
  EXPECT_EQ(PushText(ring, "d"), 0);
  for (const char *text : {"a", "b", "c", "<empty>"}) EXPECT_EQ(GetText(ring), text);
}

INSTANTIATE_TEST_SUITE_P(AfterSoManyWords, UnfinishedRing, ::testing::Range(0, 11));

// --- leaving --------------------------------------------------------------------------------------------------

TEST_F(RingCreation, Close_ByTheLastWithRemoval_RemovesSegmentAndSemaphore) {
  ASSERT_EQ(Create(ring, 3, 8), 1);
  EXPECT_EQ(TShmQueue_Close(&ring, 1), 1);
  EXPECT_FALSE(SegmentExists());
  EXPECT_FALSE(SemExists());
  ring.header = nullptr;
}

TEST_F(RingCreation, Close_ByTheLastWithoutRemoval_RemovesTheSemaphoreOnly) {
  ASSERT_EQ(Create(ring, 3, 8), 1);
  PushText(ring, "kept");
  EXPECT_EQ(TShmQueue_Close(&ring, 0), 1);
  EXPECT_TRUE(SegmentExists());
  EXPECT_FALSE(SemExists());

  TShmQueueOpt opt{0, 1, kNever};
  ASSERT_EQ(Create(ring, 3, 8, &opt), 1);
  EXPECT_EQ(opt.bNewCreated, 0);
  EXPECT_EQ(SemValue(), 1);
  EXPECT_EQ(GetText(ring), "kept");
}

TEST_F(RingCreation, Close_WhileOthersStay_LeavesBoth) {
  ASSERT_EQ(Create(ring, 3, 8), 1);
  TShmQueue second{};
  ASSERT_EQ(Create(second, 3, 8), 1);
  EXPECT_EQ(TShmQueue_Close(&second, 1), 1);
  EXPECT_TRUE(SegmentExists());
  EXPECT_TRUE(SemExists());
  EXPECT_EQ(PushText(ring, "a"), 1);
}

TEST_F(RingCreation, Close_Again_Returns1AndTouchesNothing) {
  ASSERT_EQ(Create(ring, 3, 8), 1);
  EXPECT_EQ(TShmQueue_Close(&ring, 1), 1);
  EXPECT_EQ(TShmQueue_Close(&ring, 1), 1);
  ring.header = nullptr;
}

}  // namespace
