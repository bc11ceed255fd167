// SPDX-License-Identifier: MIT
// Long random scripts on the ring queue, compared with a naive one, and producers and consumers that share a queue.

#include <devsupport/container/MyQueue.h>
#include <devsupport/detail/container/MyQueue.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

struct Sizes {
  int nCapacity, nUserSize, bUseMutex;
};

class MyQueueModel : public ::testing::TestWithParam<Sizes> {
 protected:
  void SetUp() override {
    ASSERT_EQ(TMyQueue_Create(GetParam().nCapacity, GetParam().nUserSize, &uQue_, GetParam().bUseMutex), 1);
  }
  void TearDown() override { TMyQueue_Destroy(&uQue_); }

  unsigned Below(unsigned nLimit) { return static_cast<unsigned>(random_() % nLimit); }
  bool IsFull() const { return static_cast<int>(held_.size()) == GetParam().nCapacity; }

  std::string RandomMessage() {
    std::string text(Below(static_cast<unsigned>(GetParam().nUserSize) + 4), '\0');
    for (char &c : text) c = static_cast<char>(random_());
    return text;
  }
  void Keep(const std::string &text) {
    held_.push_back(text.substr(0, static_cast<std::size_t>(GetParam().nUserSize)));
  }

  void PushSome() {
    const std::string text = RandomMessage();
    const bool bStored = !text.empty() && !IsFull();
    ASSERT_EQ(TMyQueue_Push(&uQue_, text.data(), static_cast<std::uint16_t>(text.size())), bStored ? 1 : 0);
    if (bStored) Keep(text);
  }
  void PushSomeOver() {
    const std::string text = RandomMessage();
    const bool bLoss = IsFull();
    ASSERT_EQ(TMyQueue_PushOverwrite(&uQue_, text.data(), static_cast<std::uint16_t>(text.size())),
              !text.empty() && !bLoss ? 1 : 0);
    if (text.empty()) return;
    if (bLoss) held_.pop_front();
    Keep(text);
  }
  void GetSome() {
    const std::size_t nRoom = Below(static_cast<unsigned>(GetParam().nUserSize) + 4);
    std::string got(static_cast<std::size_t>(GetParam().nUserSize) + 8, '#');
    std::string expected = got;
    std::uint32_t dwBytes = 4711;
    const int nResult = TMyQueue_Get(&uQue_, got.data(), &dwBytes, static_cast<std::uint16_t>(nRoom));
    ASSERT_EQ(nResult, held_.empty() ? 0 : 1);
    ASSERT_EQ(dwBytes, held_.empty() ? 0 : held_.front().size());
    if (!held_.empty()) {
      const std::string text = held_.front().substr(0, nRoom == 0 ? std::string::npos : nRoom);
      expected.replace(0, text.size(), text);
      held_.pop_front();
    }
    ASSERT_EQ(got, expected);
  }
  void ExpectSameState() {
    ASSERT_EQ(TMyQueue_GetCellCount(&uQue_), static_cast<int>(held_.size()));
    ASSERT_EQ(TMyQueue_GetMaxCellCount(&uQue_), GetParam().nCapacity);
    ASSERT_EQ(uQue_.pPut, uQue_.pBuf + uQue_.nPutIdx * uQue_.nCellSize);
    ASSERT_EQ(uQue_.pGet, uQue_.pBuf + uQue_.nGetIdx * uQue_.nCellSize);
    int nIdx = uQue_.nGetIdx;
    for (const std::string &text : held_) {
      const unsigned char *pCell = uQue_.pBuf + nIdx * uQue_.nCellSize;
      std::uint16_t wBytes = 0;
      std::memcpy(&wBytes, pCell, sizeof wBytes);
      ASSERT_EQ(wBytes, text.size());
      ASSERT_EQ(std::memcmp(pCell + 2, text.data(), text.size()), 0);
      nIdx = _TMyQueue_GetNextIdx(nIdx, &uQue_);
    }
    ASSERT_EQ(nIdx, uQue_.nPutIdx);
  }

  const TestSeed seed_;
  std::mt19937_64 random_{seed_};
  TMyQueue uQue_{};
  std::deque<std::string> held_;
};

TEST_P(MyQueueModel, LongRandomScript_AgreesWithTheNaiveQueue) {
  for (int step = 0; step < 100000; ++step) {
    const unsigned nPushes = step / 300 % 2 == 0 ? 60 : 40;  // alternately nearly full and nearly empty
    const unsigned nChoice = Below(100);
    if (step % 9973 == 0) {
      TMyQueue_Clear(&uQue_);
      held_.clear();
    } else if (nChoice < nPushes / 2) {
      ASSERT_NO_FATAL_FAILURE(PushSome());
    } else if (nChoice < nPushes) {
      ASSERT_NO_FATAL_FAILURE(PushSomeOver());
    } else {
      ASSERT_NO_FATAL_FAILURE(GetSome());
    }
    if (step % 7 == 0) {
      ASSERT_NO_FATAL_FAILURE(ExpectSameState());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, MyQueueModel,
                         ::testing::Values(Sizes{1, 1, 0}, Sizes{2, 7, 1}, Sizes{16, 64, 0}, Sizes{5, 130, 1}),
                         [](const auto &given) {
                           return std::to_string(given.param.nCapacity) + "CellsOf" +
                                  std::to_string(given.param.nUserSize) + "Bytes";
                         });

struct Item {
  int nProducer;
  int nNumber;
};

constexpr int kProducers = 3;
constexpr int kConsumers = 3;
constexpr int kItemsEach = 5000;

void Produce(TMyQueue *puQue, int nProducer) {
  for (int i = 0; i < kItemsEach; ++i) {
    const Item uItem{nProducer, i};
    while (TMyQueue_Push(puQue, &uItem, sizeof uItem) == 0) std::this_thread::yield();
  }
}

// Takes items until all threads together have taken everything.
void Consume(TMyQueue *puQue, std::atomic<int> &nLeft, std::vector<Item> &taken) {
  while (nLeft > 0) {
    Item uItem{-1, -1};
    std::uint32_t dwBytes = 0;
    if (TMyQueue_Get(puQue, &uItem, &dwBytes, sizeof uItem) == 0) {
      std::this_thread::yield();
      continue;
    }
    --nLeft;
    taken.push_back(dwBytes == sizeof uItem ? uItem : Item{-1, -1});
  }
}

TEST(MyQueueThreads, ProducersAndConsumers_LoseNothingAndKeepEachProducersOrder) {
  TMyQueue uQue;
  ASSERT_EQ(TMyQueue_Create(8, sizeof(Item), &uQue, 1), 1);
  std::atomic<int> nLeft = kProducers * kItemsEach;
  std::vector<std::vector<Item>> taken(kConsumers);
  std::vector<std::thread> threads;
  for (std::vector<Item> &mine : taken) threads.emplace_back([&] { Consume(&uQue, nLeft, mine); });
  for (int i = 0; i < kProducers; ++i) threads.emplace_back([&uQue, i] { Produce(&uQue, i); });
  for (std::thread &thread : threads) thread.join();

  std::vector<int> seen(kProducers * kItemsEach, 0);
  for (const std::vector<Item> &mine : taken) {
    std::vector<int> last(kProducers, -1);
    for (const Item &uItem : mine) {
      ASSERT_GE(uItem.nProducer, 0);
      ASSERT_GT(uItem.nNumber, last[static_cast<std::size_t>(uItem.nProducer)]);
      last[static_cast<std::size_t>(uItem.nProducer)] = uItem.nNumber;
      ++seen[static_cast<std::size_t>(uItem.nProducer * kItemsEach + uItem.nNumber)];
    }
  }
  EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](int n) { return n == 1; }));
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue), 0);
  TMyQueue_Destroy(&uQue);
}

TEST(MyQueueThreads, OverwritersClearersAndCounters_ShareAQueue) {
  TMyQueue uQue;
  ASSERT_EQ(TMyQueue_Create(4, sizeof(Item), &uQue, 1), 1);
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&uQue, i] {
      for (int n = 0; n < kItemsEach; ++n) {
        const Item uItem{i, n};
        TMyQueue_PushOverwrite(&uQue, &uItem, sizeof uItem);
        if (n % 100 == 0) TMyQueue_Clear(&uQue);
      }
    });
  }
  threads.emplace_back([&uQue] {
    for (int n = 0; n < kItemsEach; ++n) {
      Item uItem{-1, -1};
      ASSERT_LE(TMyQueue_GetCellCount(&uQue), TMyQueue_GetMaxCellCount(&uQue));
      if (TMyQueue_Get(&uQue, &uItem, nullptr, 0) == 1) {
        ASSERT_GE(uItem.nNumber, 0);
      }
    }
  });
  for (std::thread &thread : threads) thread.join();
  TMyQueue_Destroy(&uQue);
}

}  // namespace
