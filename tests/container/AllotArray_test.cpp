// SPDX-License-Identifier: MIT
// The slot allocator: the order of its slots, its messages, and long random scripts compared with a naive allocator.

#include <devsupport/container/AllotArray.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "tests/container/RecordedMessages.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TestSeed.h"

DEVSUPPORT_FAULT_POINT(void *, malloc, (std::size_t nBytes), (nBytes), nullptr, ENOMEM)

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kTooMany = 0x40000000;  // its array would have 2^32 bytes

// An allocator constructed in a record of random bytes with a valid name.
class Slots {
 public:
  explicit Slots(int nMaxCount, const char *pDebugName = "lines") {
    std::memset(&uAry, 0xA5, sizeof uAry);
    std::memset(uAry.DebugName, 0, sizeof uAry.DebugName);
    std::memcpy(uAry.DebugName, pDebugName, ::strnlen(pDebugName, sizeof uAry.DebugName));
    nResult = AllotAry_Construct(&uAry, "another name", nMaxCount);
  }
  /// Some of its slots are taken.
  Slots(int nMaxCount, int nTaken) : Slots(nMaxCount) {
    while (nTaken-- > 0) AllotAry_GetAvaiRoom(&uAry);
  }
  ~Slots() { AllotAry_Destroy(&uAry); }
  Slots(const Slots &) = delete;
  Slots &operator=(const Slots &) = delete;

  TAllotArray *operator&() { return &uAry; }

  TAllotArray uAry;
  int nResult = -1;
};

std::vector<int> InUse(const TAllotArray *puAry) {
  std::vector<int> rooms;
  for (int i = 0; i < AllotAry_GetInUseCnt(puAry); ++i) rooms.push_back(AllotAry_TraverseInuseRoom(puAry, i));
  return rooms;
}

std::vector<int> FreeRing(const TAllotArray *puAry) {
  std::vector<int> rooms;
  for (int i = 0; i < puAry->MaxArrayCount - puAry->nInuseCnt; ++i)
    rooms.push_back(puAry->pnFreeRoom[(puAry->nFreeGet + i) % puAry->MaxArrayCount]);
  return rooms;
}

void ExpectVoidAndSafe(TAllotArray *puAry) {
  RecordedMessages messages;
  EXPECT_EQ(puAry->pnFreeRoom, nullptr);
  EXPECT_EQ(puAry->pnInuseRoom, nullptr);
  EXPECT_EQ(puAry->pnInuseIdx, nullptr);
  EXPECT_EQ(AllotAry_GetMaxRoomCnt(puAry), 0);
  EXPECT_EQ(AllotAry_GetInUseCnt(puAry), 0);
  EXPECT_EQ(AllotAry_GetUnUseCnt(puAry), 0);
  EXPECT_EQ(AllotAry_GetAvaiRoom(puAry), -1);
  EXPECT_EQ(AllotAry_IsInUse(puAry, 0), 0);
  AllotAry_FreeRoom(puAry, 0);
  AllotAry_Clear(puAry);
  AllotAry_Destroy(puAry);
  EXPECT_EQ(messages.Take().size(), 2u);
}

TEST(AllotArray, Construct_OfARecordOfRandomBytes_FreesNothingAndMakesAllSlotsFree) {
  Slots slots(3);
  EXPECT_EQ(slots.nResult, 1);
  EXPECT_EQ(AllotAry_GetMaxRoomCnt(&slots), 3);
  EXPECT_EQ(AllotAry_GetUnUseCnt(&slots), 3);
  EXPECT_EQ(AllotAry_GetInUseCnt(&slots), 0);
  EXPECT_THAT(FreeRing(&slots), ElementsAre(0, 1, 2));
  EXPECT_EQ(slots.uAry.nFreePut, 0);
  EXPECT_EQ(slots.uAry.nFreeGet, 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(AllotAry_GetInuseIdx(&slots, i), -1);
}

TEST(AllotArray, Construct_IgnoresItsNameArgument) {
  Slots slots(1, "the owner's text");
  EXPECT_STREQ(slots.uAry.DebugName, "the owner's text");
  TAllotArray uAry{};
  EXPECT_EQ(AllotAry_Construct(&uAry, nullptr, 1), 1);
  EXPECT_STREQ(uAry.DebugName, "");
  AllotAry_Destroy(&uAry);
}

TEST(AllotArray, GetAvaiRoom_HandsOutAscendingSlotsAndThenMinus1InSilence) {
  CapturedOutput err(stderr);
  Slots slots(3);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 0);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 1);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 2);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), -1);
  EXPECT_EQ(AllotAry_GetUnUseCnt(&slots), 0);
  EXPECT_EQ(AllotAry_GetInUseCnt(&slots), 3);
  EXPECT_EQ(err.Take(), "");
}

TEST(AllotArray, FreeRoom_InTheMiddle_MovesTheLastInUseSlotThere) {
  Slots slots(3, 3);
  AllotAry_FreeRoom(&slots, 1);
  EXPECT_THAT(InUse(&slots), ElementsAre(0, 2));
  EXPECT_EQ(AllotAry_GetInuseIdx(&slots, 2), 1);
  EXPECT_EQ(AllotAry_GetInuseIdx(&slots, 1), -1);
  EXPECT_THAT(FreeRing(&slots), ElementsAre(1));
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 1);
  EXPECT_THAT(InUse(&slots), ElementsAre(0, 2, 1));
}

TEST(AllotArray, FreedSlot_IsReusedAfterAllThatWereFreeBefore) {
  Slots slots(4, 2);
  AllotAry_FreeRoom(&slots, 0);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 2);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 3);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 0);
}

TEST(AllotArray, FreeRoom_OfAFreeSlot_PrintsNameAndCapacityAndChangesNothing) {
  RecordedMessages messages;
  Slots slots(3, 2);
  AllotAry_FreeRoom(&slots, 0);
  EXPECT_THAT(messages.Take(), IsEmpty());
  AllotAry_FreeRoom(&slots, 0);
  EXPECT_THAT(messages.Take(), ElementsAre("\n\n>>>error : TAllotArray::FreeRoom(0) is not in use !! \n"
                                           "DebugName=lines MaxArrayCount=3 \n\n"));
  EXPECT_THAT(InUse(&slots), ElementsAre(1));
  EXPECT_THAT(FreeRing(&slots), ElementsAre(2, 0));
}

TEST(AllotArray, FreeRoom_OutOfRange_PrintsTheSlotAloneAndChangesNothing) {
  RecordedMessages messages;
  Slots slots(3, 1);
  AllotAry_FreeRoom(&slots, -1);
  AllotAry_FreeRoom(&slots, 3);
  AllotAry_FreeRoom(&slots, INT32_MIN);
  EXPECT_THAT(messages.Take(), ElementsAre("\n\n>>>error : TAllotArray::FreeRoom(-1) out range !! \n",
                                           "\n\n>>>error : TAllotArray::FreeRoom(3) out range !! \n",
                                           "\n\n>>>error : TAllotArray::FreeRoom(-2147483648) out range !! \n"));
  EXPECT_THAT(InUse(&slots), ElementsAre(0));
  EXPECT_THAT(FreeRing(&slots), ElementsAre(1, 2));
}

TEST(AllotArray, IsInUse_TellsUsedFromFreeInSilence) {
  CapturedOutput err(stderr);
  Slots slots(2, 1);
  EXPECT_EQ(AllotAry_IsInUse(&slots, 0), 1);
  EXPECT_EQ(AllotAry_IsInUse(&slots, 1), 0);
  EXPECT_EQ(err.Take(), "");
}

TEST(AllotArray, IsInUse_OutOfRange_Returns0AndPrintsNameAndCapacity) {
  RecordedMessages messages;
  Slots slots(2, "");
  EXPECT_EQ(AllotAry_IsInUse(&slots, -1), 0);
  EXPECT_EQ(AllotAry_IsInUse(&slots, 2), 0);
  EXPECT_THAT(messages.Take(), ElementsAre("\n\n>>>error : TAllotArray::IsInUse(-1) out range !! \n"
                                           "DebugName= MaxArrayCount=2 \n\n",
                                           "\n\n>>>error : TAllotArray::IsInUse(2) out range !! \n"
                                           "DebugName= MaxArrayCount=2 \n\n"));
}

TEST(AllotArray, Messages_ByDefault_GoToStandardErrorWithANewline) {
  Slots slots(1);
  CapturedOutput err(stderr);
  AllotAry_FreeRoom(&slots, 1);
  EXPECT_EQ(err.Take(), "\n\n>>>error : TAllotArray::FreeRoom(1) out range !! \n\n");
}

TEST(AllotArray, Messages_StopAtTheEndOfANameWithoutTerminator) {
  RecordedMessages messages;
  Slots slots(1, "123456789012345678901234");
  AllotAry_IsInUse(&slots, 1);
  EXPECT_THAT(messages.Take(), ElementsAre("\n\n>>>error : TAllotArray::IsInUse(1) out range !! \n"
                                           "DebugName=123456789012345678901234 MaxArrayCount=1 \n\n"));
}

TEST(AllotArray, Clear_WithSlotsInUse_StartsAgainAt0) {
  Slots slots(3, 3);
  AllotAry_FreeRoom(&slots, 2);
  AllotAry_Clear(&slots);
  EXPECT_EQ(AllotAry_GetInUseCnt(&slots), 0);
  EXPECT_EQ(AllotAry_GetInuseIdx(&slots, 0), -1);
  EXPECT_THAT(FreeRing(&slots), ElementsAre(0, 1, 2));
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 0);
}

TEST(AllotArray, ReConstruct_ChangesTheCapacityAndFreesAllSlots) {
  Slots slots(3, 3);
  EXPECT_EQ(AllotAry_ReConstruct(&slots, 5), 1);
  EXPECT_EQ(AllotAry_GetMaxRoomCnt(&slots), 5);
  EXPECT_THAT(FreeRing(&slots), ElementsAre(0, 1, 2, 3, 4));
  EXPECT_STREQ(slots.uAry.DebugName, "lines");
}

TEST(AllotArray, Destroy_LeavesARecordThatIsSafeAndCanBeMadeAgain) {
  Slots slots(3, 2);
  AllotAry_Destroy(&slots);
  ExpectVoidAndSafe(&slots);
  EXPECT_EQ(AllotAry_ReConstruct(&slots, 2), 1);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), 0);
}

TEST(AllotArray, CapacityOf0_IsMadeAndHandsOutNothing) {
  Slots slots(0);
  EXPECT_EQ(slots.nResult, 1);
  EXPECT_EQ(AllotAry_GetAvaiRoom(&slots), -1);
  EXPECT_EQ(AllotAry_GetMaxRoomCnt(&slots), 0);
}

TEST(AllotArray, CapacityOutOfRange_IsRefused) {
  for (const int nMaxCount : {-1, INT32_MIN, kTooMany, INT32_MAX}) {
    Slots slots(nMaxCount);
    EXPECT_EQ(slots.nResult, 0) << nMaxCount;
    ExpectVoidAndSafe(&slots);
  }
}

TEST(AllotArray, EveryFailingAllocation_MakesConstructReturn0AndLeavesNothing) {
  int nFailed = 0;
  for (bool bHappened = true; bHappened;) {
    FailCall fail("malloc", nFailed + 1);
    Slots slots(100);
    bHappened = fail.Happened();
    EXPECT_EQ(slots.nResult, bHappened ? 0 : 1);
    if (bHappened) {
      ExpectVoidAndSafe(&slots);
      ++nFailed;
    }
  }
  EXPECT_EQ(nFailed, 3);
}

TEST(AllotArray, EveryFailingAllocation_MakesReConstructReturn0AndLeavesNothing) {
  for (int nth = 1; nth <= 3; ++nth) {
    Slots slots(4, 2);
    {
      FailCall fail("malloc", nth);
      EXPECT_EQ(AllotAry_ReConstruct(&slots, 100), 0);
      EXPECT_TRUE(fail.Happened());
    }
    ExpectVoidAndSafe(&slots);
  }
}

// The same allocator in a simple form.
struct NaiveSlots {
  explicit NaiveSlots(int nMaxCount) {
    for (int i = 0; i < nMaxCount; ++i) free.push_back(i);
  }
  int Take() {
    if (free.empty()) return -1;
    const int room = free.front();
    free.pop_front();
    used.push_back(room);
    return room;
  }
  void Free(int room) {
    const auto at = std::find(used.begin(), used.end(), room);
    if (at == used.end()) return;
    *at = used.back();
    used.pop_back();
    free.push_back(room);
  }
  std::deque<int> free;
  std::vector<int> used;
};

void ExpectSameState(const TAllotArray *puAry, const NaiveSlots &naive, int nMaxCount) {
  ASSERT_EQ(InUse(puAry), naive.used);
  ASSERT_EQ(FreeRing(puAry), std::vector<int>(naive.free.begin(), naive.free.end()));
  ASSERT_EQ(AllotAry_GetInUseCnt(puAry) + AllotAry_GetUnUseCnt(puAry), nMaxCount);
  const int nHeld = nMaxCount - static_cast<int>(naive.used.size());
  ASSERT_EQ(puAry->nFreePut, (puAry->nFreeGet + nHeld) % nMaxCount);
  for (int nRoom = 0; nRoom < nMaxCount; ++nRoom) {
    const auto at = std::find(naive.used.begin(), naive.used.end(), nRoom);
    const int nPos = at == naive.used.end() ? -1 : static_cast<int>(at - naive.used.begin());
    ASSERT_EQ(AllotAry_GetInuseIdx(puAry, nRoom), nPos);
  }
}

// One random operation on both, also with slots just outside the range.
void DoRandomStep(std::mt19937_64 &random, TAllotArray *puAry, NaiveSlots &naive, int nMaxCount) {
  RecordedMessages messages;
  const int nRoom = static_cast<int>(random() % static_cast<unsigned>(nMaxCount + 2)) - 1;
  const bool bUsed = std::find(naive.used.begin(), naive.used.end(), nRoom) != naive.used.end();
  const auto nChoice = random() % 2000;
  if (nChoice == 0) {
    AllotAry_Clear(puAry);
    naive = NaiveSlots(nMaxCount);
    ASSERT_THAT(messages.Take(), IsEmpty());
  } else if (nChoice < 1000) {
    ASSERT_EQ(AllotAry_GetAvaiRoom(puAry), naive.Take());
    ASSERT_THAT(messages.Take(), IsEmpty());
  } else if (nChoice < 1200) {
    ASSERT_EQ(AllotAry_IsInUse(puAry, nRoom), bUsed ? 1 : 0);
    ASSERT_EQ(messages.Take().size(), nRoom < 0 || nRoom >= nMaxCount ? 1u : 0u);
  } else {
    AllotAry_FreeRoom(puAry, nRoom);
    naive.Free(nRoom);
    ASSERT_EQ(messages.Take().size(), bUsed ? 0u : 1u);
  }
}

TEST(AllotArray, LongRandomScripts_AgreeWithTheNaiveAllocator) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  for (const int nMaxCount : {1, 2, 3, 7, 64}) {
    Slots slots(nMaxCount);
    NaiveSlots naive(nMaxCount);
    for (int step = 0; step < 60000; ++step) {
      ASSERT_NO_FATAL_FAILURE(DoRandomStep(random, &slots, naive, nMaxCount));
      ASSERT_EQ(AllotAry_GetInUseCnt(&slots), static_cast<int>(naive.used.size()));
      if (step % 16 == 0) {
        ASSERT_NO_FATAL_FAILURE(ExpectSameState(&slots, naive, nMaxCount));
      }
    }
  }
}

}  // namespace
