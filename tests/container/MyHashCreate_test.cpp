// SPDX-License-Identifier: MIT
// Creation of the hash table and its buckets: refused sizes, failing allocations, the built-in and the user's hash.

#include <devsupport/container/MyHash.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/container/HashEntry.h"
#include "tests/container/MyHashFixture.h"
#include "tests/container/NaiveLookup3.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;

using MyHashCreate = MyHashTest;
using MyHashBuckets = MyHashTest;

TEST_F(MyHashCreate, HasAtLeastAsManyBucketsAsEntries) {
  EXPECT_EQ(Create(10, 100), 1);
  EXPECT_EQ(uHash_.nBucketCnt, 100u);
}

TEST_F(MyHashCreate, KeepsALargerBucketCount) {
  EXPECT_EQ(Create(100, 10), 1);
  EXPECT_EQ(uHash_.nBucketCnt, 100u);
  EXPECT_EQ(TMyHash_GetUnUseCnt(&uHash_), 10);
}

TEST_F(MyHashCreate, TakesANegativeBucketCountForTheCapacity) {
  EXPECT_EQ(Create(-5, 3), 1);
  EXPECT_EQ(uHash_.nBucketCnt, 3u);
}

TEST_F(MyHashCreate, StartsEmptyWithTheBuiltInHashAndTheOwnersName) {
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

TEST_F(MyHashCreate, WithoutAnyBucket_IsRefused) {
  EXPECT_EQ(Create(0, 0), 0);
  ExpectVoidAndSafe();
}

TEST_F(MyHashCreate, WithBucketsButNoCapacity_HoldsNothing) {
  ASSERT_EQ(Create(4, 0), 1);
  EXPECT_EQ(Add("a"), 0);
  EXPECT_EQ(AddUnique("a"), 2);
  EXPECT_EQ(Find("a"), nullptr);
}

TEST_F(MyHashCreate, OfEntriesWithoutBytes_IsPossible) {
  EXPECT_EQ(Create(1, 2, 0), 1);
  EXPECT_EQ(Add("a"), 1);
}

TEST_F(MyHashCreate, WithSizesThatAreNegativeOrBeyond32Bits_IsRefused) {
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

TEST_F(MyHashCreate, EveryFailingAllocation_MakesCreateReturn0AndLeavesNothing) {
  int nFailed = 0;
  for (bool bHappened = true; bHappened;) {
    int nResult = kUnsetSlot;
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

TEST_F(MyHashBuckets, KeyToIdx_IsLookup3WithInitialValue1ModuloTheBucketCount) {
  for (const int nBucketCnt : {1, 2, 3, 97, 100, 1000, 65536, 1000003}) {
    ASSERT_EQ(Create(nBucketCnt, 1), 1);
    for (const std::string key : {"", "a", "Four score and seven years ago", "user-0815@example.org"}) {
      EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, key.data(), static_cast<int>(key.size())),
                NaiveLookup3(key.data(), key.size(), 1) % static_cast<unsigned>(nBucketCnt));
    }
    TMyHash_Free(&uHash_);
  }
}

TEST_F(MyHashBuckets, KeyToIdx_OfANegativeLength_IsThatOfTheEmptyKey) {
  ASSERT_EQ(Create(1000, 1), 1);
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "abc", -1), 0xdeadbef0u % 1000);
}

TEST_F(MyHashBuckets, SetHashFunc_ReturnsTheNewFunction) {
  ASSERT_EQ(Create(10, 10), 1);
  const TMyHashBucketFunc fnHash = [](std::uint32_t, const void *, int) -> std::uint32_t { return 1; };
  EXPECT_EQ(TMyHash_SetHashFunc(&uHash_, fnHash), fnHash);
  EXPECT_EQ(uHash_.fnHash, fnHash);
  EXPECT_EQ(TMyHash_SetHashFunc(&uHash_, nullptr), nullptr);
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "", 0), 0xdeadbef0u % 10);
}

TEST_F(MyHashBuckets, WithABucketFunction_TheBucketIsExactlyWhatItReturns) {
  ASSERT_EQ(Create(10, 10), 1);
  TMyHash_SetHashFunc(&uHash_, [](std::uint32_t nBucketCnt, const void *pKey, int nKeyLen) {
    return nBucketCnt * 1000 + static_cast<std::uint32_t>(nKeyLen) * 10 + *static_cast<const unsigned char *>(pKey);
  });
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "\x03xy", 3), 10033u);
  EXPECT_EQ(TMyHash_KeyToIdx(&uHash_, "\x01", -7), 10000u - 70 + 1);
}

TEST_F(MyHashBuckets, WithABucketFunction_EntriesGoToItsChain) {
  CreateWithOneChain(3);
  Add("a");
  Add("b");
  EXPECT_THAT(Chain(&uHash_, 2), ElementsAre(0, 1));
}

TEST_F(MyHashBuckets, BucketOutOfRange_IsNoChain) {
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

}  // namespace
