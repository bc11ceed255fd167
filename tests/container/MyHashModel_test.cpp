// SPDX-License-Identifier: MIT
// Long random scripts on the hash table, compared with a naive one: results, slots, chains and the allocator's
// record.

#include <devsupport/container/MyHash.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/container/HashEntry.h"
#include "tests/container/NaiveLookup3.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

// The same table in a simple form: a list of slots for each bucket, and a map from slot to entry.
class NaiveTable {
 public:
  NaiveTable(unsigned nBuckets, int nCapacity) : nBuckets_(nBuckets), nCapacity_(nCapacity) { Clear(); }

  void Clear() {
    chains.assign(nBuckets_, {});
    entries.clear();
    inUse.clear();
    free.clear();
    for (int i = 0; i < nCapacity_; ++i) free.push_back(i);
  }
  int Find(const std::string &key) const {
    for (const int nSlot : chains[BucketOf(key)])
      if (entries.at(nSlot).first == key) return nSlot;
    return -1;
  }
  int Add(const std::string &key, int nValue) {
    if (key.empty() || free.empty()) return -1;
    const int nSlot = free.front();
    free.pop_front();
    chains[BucketOf(key)].push_back(nSlot);
    entries[nSlot] = {key, nValue};
    inUse.push_back(nSlot);
    return nSlot;
  }
  bool Delete(int nSlot) {
    const auto entry = entries.find(nSlot);
    if (entry == entries.end()) return false;
    std::erase(chains[BucketOf(entry->second.first)], nSlot);
    entries.erase(entry);
    *std::find(inUse.begin(), inUse.end(), nSlot) = inUse.back();
    inUse.pop_back();
    free.push_back(nSlot);
    return true;
  }

  std::vector<std::vector<int>> chains;
  std::map<int, std::pair<std::string, int>> entries;
  std::vector<int> inUse;
  std::deque<int> free;

 private:
  unsigned BucketOf(const std::string &key) const { return NaiveLookup3(key.data(), key.size(), 1) % nBuckets_; }

  unsigned nBuckets_;
  int nCapacity_;
};

class MyHashModel : public ::testing::TestWithParam<std::pair<int, int>> {
 protected:
  MyHashModel() : naive_(static_cast<unsigned>(std::max(nBuckets_, nCapacity_)), nCapacity_) {
    std::memset(&uHash_, 0xA5, sizeof uHash_);
    std::memset(uHash_.uAllot.DebugName, 0, sizeof uHash_.uAllot.DebugName);
  }
  void SetUp() override {
    ASSERT_EQ(TMyHash_Create(&uHash_, "", nBuckets_, nCapacity_, sizeof(HashEntry), MatchesText, EntryKey, TextKey),
              1);
  }
  void TearDown() override { TMyHash_Free(&uHash_); }

  int Below(int nLimit) { return static_cast<int>(random_() % static_cast<unsigned>(nLimit)); }

  // About as many keys as there is room, of every length up to 19, the empty key among them.
  std::string RandomKey() {
    const int n = Below(nCapacity_ + nCapacity_ / 2 + 2);
    if (n == 0) return "";
    std::string key = std::to_string(n);
    while (static_cast<int>(key.size()) < n % 20) key += static_cast<char>('a' + n % 26);
    return key;
  }

  void FindSome() {
    const std::string key = RandomKey();
    int nSlot = -4711;
    const auto *pEntry = static_cast<const HashEntry *>(TMyHash_Find(&uHash_, key.c_str(), &nSlot));
    ASSERT_EQ(nSlot, naive_.Find(key)) << key;
    ASSERT_EQ(pEntry, nSlot == -1 ? nullptr : TMyHash_GetDataPtr(&uHash_, nSlot));
    if (pEntry != nullptr) {
      ASSERT_EQ(pEntry->nValue, naive_.entries.at(nSlot).second);
    }
  }
  void AddSome() {
    const std::string key = RandomKey();
    const HashEntry uEntry = MakeEntry(key, Below(1000));
    int nSlot = -4711;
    const int nResult = TMyHash_Add(&uHash_, &uEntry, &nSlot);
    const int nExpected = naive_.Add(key, uEntry.nValue);
    ASSERT_EQ(nSlot, nExpected);
    ASSERT_EQ(nResult, nExpected == -1 ? 0 : 1);
  }
  void AddSomeUnique() {
    const std::string key = RandomKey();
    const HashEntry uEntry = MakeEntry(key, Below(1000));
    int nSlot = -4711;
    const int nResult = TMyHash_AddUnique(&uHash_, key.c_str(), &uEntry, &nSlot);
    const int nThere = key.empty() ? -1 : naive_.Find(key);
    const int nExpected = nThere != -1 ? nThere : naive_.Add(key, uEntry.nValue);
    ASSERT_EQ(nSlot, nExpected);
    ASSERT_EQ(nResult, nThere != -1 ? 0 : nExpected != -1 ? 1 : 2);
  }
  void DeleteSome() {
    const int nSlot = Below(nCapacity_);
    ASSERT_EQ(TMyHash_Delete(&uHash_, nSlot), naive_.Delete(nSlot) ? 1 : 0);
  }
  void ExpectSameState() {
    for (unsigned i = 0; i < uHash_.nBucketCnt; ++i) ASSERT_EQ(Chain(&uHash_, i), naive_.chains[i]) << "bucket " << i;
    ASSERT_EQ(TMyHash_GetInUseCnt(&uHash_), static_cast<int>(naive_.inUse.size()));
    ASSERT_EQ(TMyHash_GetUnUseCnt(&uHash_), static_cast<int>(naive_.free.size()));
    for (std::size_t i = 0; i < naive_.inUse.size(); ++i) {
      const int nSlot = naive_.inUse[i];
      ASSERT_EQ(AllotAry_TraverseInuseRoom(&uHash_.uAllot, static_cast<int>(i)), nSlot);
      const auto *pEntry = static_cast<const HashEntry *>(TMyHash_TraverseData(&uHash_, static_cast<int>(i)));
      ASSERT_EQ(pEntry->szKey, naive_.entries.at(nSlot).first);
      ASSERT_EQ(pEntry->nValue, naive_.entries.at(nSlot).second);
    }
    for (const int nSlot : naive_.free) {
      ASSERT_EQ(uHash_.pnNext[nSlot], -1);
      ASSERT_EQ(uHash_.pnPrev[nSlot], -1);
      ASSERT_EQ(TMyHash_IsInUse(&uHash_, nSlot), 0);
    }
  }

  const int nBuckets_ = GetParam().first;
  const int nCapacity_ = GetParam().second;
  const TestSeed seed_;
  std::mt19937_64 random_{seed_};
  TMyHash uHash_;
  NaiveTable naive_;
};

TEST_P(MyHashModel, LongRandomScript_AgreesWithTheNaiveTable) {
  // The table grows and shrinks in turns, so that it is often full and often empty.
  for (int step = 0; step < 120000; ++step) {
    const int nAdds = step / 400 % 2 == 0 ? 60 : 20;
    const int nChoice = Below(100);
    if (step % 20011 == 0) {
      TMyHash_Clear(&uHash_);
      naive_.Clear();
    } else if (nChoice < nAdds / 2) {
      ASSERT_NO_FATAL_FAILURE(AddSome());
    } else if (nChoice < nAdds) {
      ASSERT_NO_FATAL_FAILURE(AddSomeUnique());
    } else if (nChoice < nAdds + 20) {
      ASSERT_NO_FATAL_FAILURE(FindSome());
    } else {
      ASSERT_NO_FATAL_FAILURE(DeleteSome());
    }
    if (step % 97 == 0) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameState());
    }
  }
  ExpectSameState();
}

INSTANTIATE_TEST_SUITE_P(, MyHashModel,
                         ::testing::Values(std::pair{0, 1}, std::pair{3, 3}, std::pair{64, 20}, std::pair{1, 61}),
                         [](const auto &given) {
                           return std::to_string(given.param.second) + "EntriesIn" +
                                  std::to_string(given.param.first) + "Buckets";
                         });

}  // namespace
