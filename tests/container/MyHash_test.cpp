// The hash table: chains, results and out-parameters, sizes that are refused, memory that runs out.

#include <devsupport/container/MyHash.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "container/HashEntry.h"
#include "container/NaiveLookup3.h"
#include "container/RecordedMessages.h"
#include "support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(void *, malloc, (std::size_t nBytes), (nBytes), nullptr, ENOMEM)

namespace {

using devsupport::test::Chain;
using devsupport::test::EntryKey;
using devsupport::test::FailCall;
using devsupport::test::HashEntry;
using devsupport::test::MakeEntry;
using devsupport::test::MatchesText;
using devsupport::test::NaiveLookup3;
using devsupport::test::RecordedMessages;
using devsupport::test::TextKey;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kUnset = -4711;

// A table from a record full of rubbish. Its tests end in silence unless they take the messages.
class MyHash : public ::testing::Test {
 protected:
  void SetUp() override { std::memset(&uHash_, 0xA5, sizeof uHash_); }
  void TearDown() override {
    if (bCreated_) TMyHash_Free(&uHash_);
    EXPECT_THAT(messages_.Take(), IsEmpty());
  }

  int Create(int nBucketCnt, int nMaxCount, int nDataSize = sizeof(HashEntry)) {
    std::memset(uHash_.uAllot.DebugName, 0, sizeof uHash_.uAllot.DebugName);
    std::strcpy(uHash_.uAllot.DebugName, "users");
    bCreated_ = true;
    return TMyHash_Create(&uHash_, "another name", nBucketCnt, nMaxCount, nDataSize, MatchesText, EntryKey, TextKey);
  }
  void CreateWithOneChain(int nMaxCount) {
    ASSERT_EQ(Create(4, nMaxCount), 1);
    TMyHash_SetHashFunc(&uHash_, [](std::uint32_t, const void *, int) -> std::uint32_t { return 2; });
  }
  int Add(const std::string &key, int nValue = 0) {
    const HashEntry uEntry = MakeEntry(key, nValue);
    nSlot_ = kUnset;
    return TMyHash_Add(&uHash_, &uEntry, &nSlot_);
  }
  int AddUnique(const std::string &key, int nValue = 0) {
    const HashEntry uEntry = MakeEntry(key, nValue);
    nSlot_ = kUnset;
    return TMyHash_AddUnique(&uHash_, key.c_str(), &uEntry, &nSlot_);
  }
  const HashEntry *Find(const char *pKey) {
    nSlot_ = kUnset;
    return static_cast<const HashEntry *>(TMyHash_Find(&uHash_, pKey, &nSlot_));
  }
  void ExpectVoidAndSafe() {
    EXPECT_EQ(uHash_.pnBucket, nullptr);
    EXPECT_EQ(uHash_.pnNext, nullptr);
    EXPECT_EQ(uHash_.pnPrev, nullptr);
    EXPECT_EQ(TMyHash_GetDataBase(&uHash_), nullptr);
    EXPECT_EQ(Find("a"), nullptr);
    EXPECT_EQ(nSlot_, -1);
    EXPECT_EQ(Add("a"), 0);
    EXPECT_EQ(AddUnique("a"), 2);
    EXPECT_EQ(nSlot_, -1);
    TMyHash_KeyToIdx(&uHash_, "a", 1);
    TMyHash_Clear(&uHash_);
    EXPECT_EQ(TMyHash_GetInUseCnt(&uHash_), 0);
    EXPECT_EQ(TMyHash_GetUnUseCnt(&uHash_), 0);
    EXPECT_THAT(messages_.Take(), IsEmpty());
    EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 0);
    EXPECT_EQ(TMyHash_GetDataPtr(&uHash_, 0), nullptr);
    EXPECT_EQ(messages_.Take().size(), 2u);
    TMyHash_Free(&uHash_);
  }

  RecordedMessages messages_;
  TMyHash uHash_;
  int nSlot_ = kUnset;
  bool bCreated_ = false;
};

TEST_F(MyHash, Create_HasAtLeastAsManyBucketsAsEntries) {
  EXPECT_EQ(Create(10, 100), 1);
  EXPECT_EQ(uHash_.nBucketCnt, 100u);
}

TEST_F(MyHash, Create_KeepsALargerBucketCount) {
  EXPECT_EQ(Create(100, 10), 1);
  EXPECT_EQ(uHash_.nBucketCnt, 100u);
  EXPECT_EQ(TMyHash_GetUnUseCnt(&uHash_), 10);
}

TEST_F(MyHash, Create_TakesANegativeBucketCountForTheCapacity) {
  EXPECT_EQ(Create(-5, 3), 1);
  EXPECT_EQ(uHash_.nBucketCnt, 3u);
}

TEST_F(MyHash, Create_StartsEmptyWithTheBuiltInHashAndTheOwnersName) {
  ASSERT_EQ(Create(2, 3), 1);
  EXPECT_EQ(uHash_.fnHash, nullptr);
  EXPECT_EQ(uHash_.nDataSize, static_cast<int>(sizeof(HashEntry)));
  EXPECT_STREQ(uHash_.uAllot.DebugName, "users");
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(uHash_.pnBucket[i], -1);
    EXPECT_EQ(uHash_.pnNext[i], -1);
    EXPECT_EQ(uHash_.pnPrev[i], -1);
  }
}

TEST_F(MyHash, Create_WithoutAnyBucket_IsRefused) {
  EXPECT_EQ(Create(0, 0), 0);
  ExpectVoidAndSafe();
}

TEST_F(MyHash, Create_WithBucketsButNoCapacity_HoldsNothing) {
  ASSERT_EQ(Create(4, 0), 1);
  EXPECT_EQ(Add("a"), 0);
  EXPECT_EQ(AddUnique("a"), 2);
  EXPECT_EQ(Find("a"), nullptr);
}

TEST_F(MyHash, Create_OfEntriesWithoutBytes_IsPossible) {
  EXPECT_EQ(Create(1, 2, 0), 1);
  EXPECT_EQ(Add("a"), 1);
}

TEST_F(MyHash, Create_WithSizesThatAreNegativeOrBeyond32Bits_IsRefused) {
  const struct {
    int nBucketCnt, nMaxCount, nDataSize;
  } kRefused[] = {{1, -1, 4},         {INT32_MIN, INT32_MIN, 4}, {1, 10, -1},      {0x40000000, 1, 4},
                  {1, 0x40000000, 4}, {1, 0x10000, 0x10000},     {1, 3, INT32_MAX}};
  for (const auto &sizes : kRefused) {
    SCOPED_TRACE(sizes.nBucketCnt);
    EXPECT_EQ(Create(sizes.nBucketCnt, sizes.nMaxCount, sizes.nDataSize), 0);
    ExpectVoidAndSafe();
  }
}

TEST_F(MyHash, EveryFailingAllocation_MakesCreateReturn0AndLeavesNothing) {
  int nFailed = 0;
  for (bool bHappened = true; bHappened;) {
    int nResult = kUnset;
    {
      FailCall fail("malloc", nFailed + 1);
      nResult = Create(10, 10);
      bHappened = fail.Happened();
    }
    EXPECT_EQ(nResult, bHappened ? 0 : 1);
    if (bHappened) {
      ExpectVoidAndSafe();
      ++nFailed;
    }
  }
  EXPECT_EQ(nFailed, 7);  // three arrays of the allocator, four of the table
}

TEST_F(MyHash, KeyToIdx_IsLookup3WithInitialValue1ModuloTheBucketCount) {
  for (const int nBucketCnt : {1, 2, 3, 97, 100, 1000, 65536, 1000003}) {
    ASSERT_EQ(Create(nBucketCnt, 1), 1);
    for (const std::string key : {"", "a", "Four score and seven years ago", "user-0815@example.org"}) {
      EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, key.data(), static_cast<int>(key.size())),
                NaiveLookup3(key.data(), key.size(), 1) % static_cast<unsigned>(nBucketCnt));
    }
    TMyHash_Free(&uHash_);
  }
}

TEST_F(MyHash, KeyToIdx_OfANegativeLength_IsThatOfTheEmptyKey) {
  ASSERT_EQ(Create(1000, 1), 1);
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "abc", -1), 0xdeadbef0u % 1000);
}

TEST_F(MyHash, SetHashFunc_ReturnsTheNewFunction) {
  ASSERT_EQ(Create(10, 10), 1);
  const TMyHashBucketFunc fnHash = [](std::uint32_t, const void *, int) -> std::uint32_t { return 1; };
  EXPECT_EQ(TMyHash_SetHashFunc(&uHash_, fnHash), fnHash);
  EXPECT_EQ(uHash_.fnHash, fnHash);
  EXPECT_EQ(TMyHash_SetHashFunc(&uHash_, nullptr), nullptr);
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "", 0), 0xdeadbef0u % 10);
}

TEST_F(MyHash, WithABucketFunction_TheBucketIsExactlyWhatItReturns) {
  ASSERT_EQ(Create(10, 10), 1);
  TMyHash_SetHashFunc(&uHash_, [](std::uint32_t nBucketCnt, const void *pKey, int nKeyLen) {
    return nBucketCnt * 1000 + static_cast<std::uint32_t>(nKeyLen) * 10 + *static_cast<const unsigned char *>(pKey);
  });
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "\x03xy", 3), 10033u);
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "\x01", -7), 10000u - 70 + 1);
}

TEST_F(MyHash, WithABucketFunction_EntriesGoToItsChain) {
  CreateWithOneChain(3);
  Add("a");
  Add("b");
  EXPECT_THAT(Chain(&uHash_, 2), ElementsAre(0, 1));
}

TEST_F(MyHash, BucketOutOfRange_IsNoChain) {
  ASSERT_EQ(Create(4, 4), 1);
  ASSERT_EQ(Add("a"), 1);
  for (const TMyHashBucketFunc fnHash :
       {TMyHashBucketFunc{[](std::uint32_t nBucketCnt, const void *, int) { return nBucketCnt; }},
        TMyHashBucketFunc{[](std::uint32_t, const void *, int) { return UINT32_MAX; }}}) {
    TMyHash_SetHashFunc(&uHash_, fnHash);
    EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "a", 1), fnHash(4, nullptr, 0));
    EXPECT_EQ(Find("a"), nullptr);
    EXPECT_EQ(nSlot_, -1);
    EXPECT_EQ(Add("b"), 0);
    EXPECT_EQ(nSlot_, -1);
    EXPECT_EQ(AddUnique("b"), 2);
    EXPECT_EQ(nSlot_, -1);
    EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 0);
    EXPECT_EQ(TMyHash_GetInUseCnt(&uHash_), 1);
  }
}

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

TEST_F(MyHash, Delete_BelievesTheSlotsLinks_WhateverChainTheKeyNames) {
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
  for (int i = 0; i < TMyHash_GetInUseCnt(&uHash_); ++i) {
    keys.emplace_back(static_cast<const HashEntry *>(TMyHash_TraverseData(&uHash_, i))->szKey);
  }
  EXPECT_THAT(keys, ElementsAre("c", "b"));
}

}  // namespace
