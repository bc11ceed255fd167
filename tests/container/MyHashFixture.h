// SPDX-License-Identifier: MIT
// A hash table with text keys for one test, created in a record of random bytes.
#pragma once

#include <devsupport/container/MyHash.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "tests/container/HashEntry.h"
#include "tests/container/RecordedMessages.h"

namespace devsupport::test {

// A test fails when it leaves messages that it has not taken.
class MyHashTest : public ::testing::Test {
 protected:
  void SetUp() override { std::memset(&uHash_, 0xA5, sizeof uHash_); }
  void TearDown() override {
    if (bCreated_) TMyHash_Free(&uHash_);
    EXPECT_THAT(messages_.Take(), ::testing::IsEmpty());
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
    nSlot_ = kUnsetSlot;
    return TMyHash_Add(&uHash_, &uEntry, &nSlot_);
  }
  int AddUnique(const std::string &key, int nValue = 0) {
    const HashEntry uEntry = MakeEntry(key, nValue);
    nSlot_ = kUnsetSlot;
    return TMyHash_AddUnique(&uHash_, key.c_str(), &uEntry, &nSlot_);
  }
  const HashEntry *Find(const char *pKey) {
    nSlot_ = kUnsetSlot;
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
    EXPECT_THAT(messages_.Take(), ::testing::IsEmpty());
    EXPECT_EQ(TMyHash_Delete(&uHash_, 0), 0);
    EXPECT_EQ(TMyHash_GetDataPtr(&uHash_, 0), nullptr);
    EXPECT_EQ(messages_.Take().size(), 2u);
    TMyHash_Free(&uHash_);
  }

  static constexpr int kUnsetSlot = -4711;

  RecordedMessages messages_;
  TMyHash uHash_;
  int nSlot_ = kUnsetSlot;
  bool bCreated_ = false;
};

}  // namespace devsupport::test
