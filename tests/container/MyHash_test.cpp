// SPDX-License-Identifier: MIT
// The hash table: chains, results and out-parameters.

#include <devsupport/container/MyHash.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/container/HashEntry.h"
#include "tests/container/MyHashFixture.h"

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using MyHash = MyHashTest;

TEST_F(MyHash, Add_CopiesTheEntryAndTellsItsSlot) {
  ASSERT_EQ(Create(4, 4), 1);
  EXPECT_EQ(Add("a", 1), 1);
  EXPECT_EQ(nSlot_, 0);
  EXPECT_EQ(Add("b", 2), 1);
  EXPECT_EQ(nSlot_, 1);
  const HashEntry *pEntry = Find("b");
  ASSERT_NE(pEntry, nullptr);
  EXPECT_EQ(nSlot_, 1);
  EXPECT_EQ(pEntry->nValue, 2);
  EXPECT_EQ(pEntry, TMyHash_GetDataPtr(&uHash_, 1));
  EXPECT_EQ(pEntry, static_cast<const HashEntry *>(TMyHash_GetDataBase(&uHash_)) + 1);
}

TEST_F(MyHash, Add_OfTheSameEntryTwice_GivesTwoSlotsAndFindReturnsTheFirst) {
  ASSERT_EQ(Create(4, 4), 1);
  Add("a", 1);
  Add("a", 2);
  EXPECT_EQ(nSlot_, 1);
  EXPECT_EQ(TMyHash_GetInUseCnt(&uHash_), 2);
  EXPECT_EQ(Find("a")->nValue, 1);
  EXPECT_EQ(nSlot_, 0);
}

TEST_F(MyHash, SlotPointers_MayBeNull) {
  ASSERT_EQ(Create(4, 2), 1);
  const HashEntry uEntry = MakeEntry("a");
  EXPECT_EQ(TMyHash_Add(&uHash_, &uEntry, nullptr), 1);
  EXPECT_EQ(TMyHash_AddUnique(&uHash_, "a", &uEntry, nullptr), 0);
  EXPECT_NE(TMyHash_Find(&uHash_, "a", nullptr), nullptr);
  EXPECT_EQ(TMyHash_Find(&uHash_, "b", nullptr), nullptr);
}

TEST_F(MyHash, Find_WithoutMatch_ReturnsNullAndSlotMinus1) {
  CreateWithOneChain(4);
  Add("a");
  EXPECT_EQ(Find("b"), nullptr);
  EXPECT_EQ(nSlot_, -1);
}

TEST_F(MyHash, WithoutKey_NothingIsFoundOrAdded) {
  ASSERT_EQ(Create(4, 4), 1);
  EXPECT_EQ(Find(""), nullptr);
  EXPECT_EQ(nSlot_, -1);
  EXPECT_EQ(Add(""), 0);
  EXPECT_EQ(nSlot_, -1);
  EXPECT_EQ(AddUnique(""), 2);
  EXPECT_EQ(nSlot_, -1);
  EXPECT_EQ(TMyHash_GetInUseCnt(&uHash_), 0);
}

TEST_F(MyHash, AddUnique_OfAMatchingEntry_Returns0WithItsSlotAndChangesNothing) {
  CreateWithOneChain(4);
  EXPECT_EQ(AddUnique("a", 1), 1);
  EXPECT_EQ(nSlot_, 0);
  EXPECT_EQ(AddUnique("b", 2), 1);
  EXPECT_EQ(nSlot_, 1);
  EXPECT_EQ(AddUnique("b", 3), 0);
  EXPECT_EQ(nSlot_, 1);
  EXPECT_EQ(Find("b")->nValue, 2);
  EXPECT_THAT(Chain(&uHash_, 2), ElementsAre(0, 1));
}

TEST_F(MyHash, AddUnique_TakesTheKeyFromTheArgumentNotFromTheEntry) {
  ASSERT_EQ(Create(1000, 4), 1);
  ASSERT_NE(TMyHash_KeyToIdx(&uHash_, "argument", 8), TMyHash_KeyToIdx(&uHash_, "entry", 5));
  const HashEntry uEntry = MakeEntry("entry");
  EXPECT_EQ(TMyHash_AddUnique(&uHash_, "argument", &uEntry, nullptr), 1);
  EXPECT_THAT(Chain(&uHash_, TMyHash_KeyToIdx(&uHash_, "argument", 8)), ElementsAre(0));
}

TEST_F(MyHash, FullTable_RefusesAddWith0AndAddUniqueWith2) {
  ASSERT_EQ(Create(2, 2), 1);
  Add("a");
  AddUnique("b");
  EXPECT_EQ(Add("c"), 0);
  EXPECT_EQ(nSlot_, -1);
  EXPECT_EQ(AddUnique("c"), 2);
  EXPECT_EQ(nSlot_, -1);
  EXPECT_EQ(AddUnique("b"), 0);
  EXPECT_EQ(nSlot_, 1);
}

TEST_F(MyHash, Delete_InTheMiddle_RelinksHeadAndTail) {
  CreateWithOneChain(3);
  for (const char *pKey : {"a", "b", "c"}) Add(pKey);
  EXPECT_EQ(TMyHash_Delete(&uHash_, 1), 1);
  EXPECT_THAT(Chain(&uHash_, 2), ElementsAre(0, 2));
  EXPECT_EQ(uHash_.pnNext[1], -1);
  EXPECT_EQ(uHash_.pnPrev[1], -1);
  EXPECT_EQ(Find("b"), nullptr);
}

TEST_F(MyHash, Delete_OfTheHead_MakesTheSecondTheHead) {
  CreateWithOneChain(3);
  for (const char *pKey : {"a", "b", "c"}) Add(pKey);
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 1);
  EXPECT_THAT(Chain(&uHash_, 2), ElementsAre(1, 2));
}

TEST_F(MyHash, Delete_OfTheTail_AndOfTheOnlyEntry_EndTheChainThere) {
  CreateWithOneChain(2);
  for (const char *pKey : {"a", "b"}) Add(pKey);
  EXPECT_EQ(TMyHash_Delete(&uHash_, 1), 1);
  EXPECT_THAT(Chain(&uHash_, 2), ElementsAre(0));
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 1);
  EXPECT_THAT(Chain(&uHash_, 2), IsEmpty());
}

TEST_F(MyHash, Delete_OfAFreeSlot_Returns0InSilence) {
  ASSERT_EQ(Create(3, 3), 1);
  Add("a");
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 1);
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 0);
  EXPECT_EQ(TMyHash_Delete(&uHash_, 2), 0);
}

TEST_F(MyHash, SlotOutOfRange_PrintsTheAllocatorsMessage) {
  ASSERT_EQ(Create(3, 3), 1);
  EXPECT_EQ(TMyHash_Delete(&uHash_, 3), 0);
  EXPECT_EQ(TMyHash_GetDataPtr(&uHash_, -1), nullptr);
  EXPECT_EQ(TMyHash_IsInUse(&uHash_, 4), 0);
  EXPECT_THAT(
      messages_.Take(),
      ElementsAre("\n\n>>>error : TAllotArray::IsInUse(3) out range !! \nDebugName=users MaxArrayCount=3 \n\n",
                  "\n\n>>>error : TAllotArray::IsInUse(-1) out range !! \nDebugName=users MaxArrayCount=3 \n\n",
                  "\n\n>>>error : TAllotArray::IsInUse(4) out range !! \nDebugName=users MaxArrayCount=3 \n\n"));
}

TEST_F(MyHash, Delete_OfAnEntryThatLostItsKey_Returns0AndLeavesIt) {
  ASSERT_EQ(Create(3, 3), 1);
  Add("a");
  static_cast<HashEntry *>(TMyHash_GetDataPtr(&uHash_, 0))->szKey[0] = '\0';
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 0);
  EXPECT_EQ(TMyHash_IsInUse(&uHash_, 0), 1);
}

TEST_F(MyHash, Delete_WhenTheKeysBucketIsEmpty_Returns0AndLeavesTheEntry) {
  ASSERT_EQ(Create(3, 3), 1);
  TMyHash_SetHashFunc(&uHash_, [](std::uint32_t, const void *pKey, int) -> std::uint32_t {
    return *static_cast<const char *>(pKey) == 'a' ? 0 : 1;
  });
  Add("a");
  static_cast<HashEntry *>(TMyHash_GetDataPtr(&uHash_, 0))->szKey[0] = 'b';
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 0);
  EXPECT_EQ(TMyHash_IsInUse(&uHash_, 0), 1);
}

TEST_F(MyHash, Delete_UsesTheSlotsLinksAlsoWhenTheKeyHasAnotherChain) {
  ASSERT_EQ(Create(4, 4), 1);
  TMyHash_SetHashFunc(&uHash_, [](std::uint32_t, const void *pKey, int) -> std::uint32_t {
    return static_cast<std::uint32_t>(*static_cast<const char *>(pKey) - 'a');
  });
  Add("a1");
  Add("a2");
  Add("b");
  static_cast<HashEntry *>(TMyHash_GetDataPtr(&uHash_, 1))->szKey[0] = 'b';
  EXPECT_EQ(TMyHash_Delete(&uHash_, 1), 1);
  EXPECT_THAT(Chain(&uHash_, 0), ElementsAre(0));
  EXPECT_THAT(Chain(&uHash_, 1), ElementsAre(2));
}

TEST_F(MyHash, Add_ToAChainThatStillNamesTheSlotItTakes_EndsTheChainThere) {
  ASSERT_EQ(Create(4, 2), 1);
  TMyHash_SetHashFunc(&uHash_, [](std::uint32_t, const void *pKey, int) -> std::uint32_t {
    return static_cast<std::uint32_t>(*static_cast<const char *>(pKey) - 'a');
  });
  Add("a1");
  Add("b");
  static_cast<HashEntry *>(TMyHash_GetDataPtr(&uHash_, 0))->szKey[0] = 'b';
  ASSERT_EQ(TMyHash_Delete(&uHash_, 0), 1);
  ASSERT_EQ(uHash_.pnBucket[0], 0);
  EXPECT_EQ(Add("a2"), 1);
  ASSERT_EQ(uHash_.pnNext[0], -1);
  EXPECT_EQ(Find("a1"), nullptr);
  EXPECT_EQ(Find("a2")->nValue, 0);
}

TEST_F(MyHash, Delete_LeavesTheBytes_AndAddMayCopyThemFromThere) {
  ASSERT_EQ(Create(1, 1), 1);
  Add("a", 7);
  auto *pEntry = static_cast<HashEntry *>(TMyHash_GetDataPtr(&uHash_, 0));
  EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 1);
  EXPECT_EQ(TMyHash_GetDataPtr(&uHash_, 0), nullptr);
  EXPECT_STREQ(pEntry->szKey, "a");
  EXPECT_EQ(TMyHash_Add(&uHash_, pEntry, nullptr), 1);
  EXPECT_EQ(Find("a")->nValue, 7);
}

TEST_F(MyHash, Clear_RemovesEverythingAndStartsAtSlot0) {
  CreateWithOneChain(4);
  for (const char *pKey : {"a", "b", "c"}) Add(pKey);
  TMyHash_Clear(&uHash_);
  EXPECT_EQ(TMyHash_GetInUseCnt(&uHash_), 0);
  EXPECT_EQ(TMyHash_GetUnUseCnt(&uHash_), 4);
  for (const char *pKey : {"a", "b", "c"}) EXPECT_EQ(Find(pKey), nullptr);
  EXPECT_EQ(Add("d"), 1);
  EXPECT_EQ(nSlot_, 0);
}

TEST_F(MyHash, Free_LeavesARecordThatIsSafeAndCanBeFreedAndCreatedAgain) {
  ASSERT_EQ(Create(4, 4), 1);
  Add("a");
  TMyHash_Free(&uHash_);
  ExpectVoidAndSafe();
  EXPECT_EQ(Create(4, 4), 1);
  EXPECT_EQ(Add("a"), 1);
}

TEST_F(MyHash, Free_ForgetsTheBucketFunction_WhichMayDivideByTheBucketCount) {
  ASSERT_EQ(Create(4, 4), 1);
  TMyHash_SetHashFunc(&uHash_, [](std::uint32_t nBucketCnt, const void *, int) { return 7 % nBucketCnt; });
  Add("a");
  TMyHash_Free(&uHash_);
  EXPECT_EQ(uHash_.fnHash, nullptr);
  ExpectVoidAndSafe();
}

TEST_F(MyHash, TraverseData_VisitsEveryEntryInTheInUseOrder) {
  ASSERT_EQ(Create(4, 4), 1);
  for (const char *pKey : {"a", "b", "c"}) Add(pKey);
  TMyHash_Delete(&uHash_, 0);
  std::vector<std::string> keys;
  for (int i = 0; i < TMyHash_GetInUseCnt(&uHash_); ++i)
    keys.emplace_back(static_cast<const HashEntry *>(TMyHash_TraverseData(&uHash_, i))->szKey);
  EXPECT_THAT(keys, ElementsAre("c", "b"));
}

}  // namespace
