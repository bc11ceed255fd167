// SPDX-License-Identifier: MIT
// The ring queue: which messages it stores, cuts and drops; its assertions, its lock, and failing allocations.

#include <devsupport/container/MyQueue.h>
#include <devsupport/detail/container/MyQueue.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(void *, malloc, (std::size_t nBytes), (nBytes), nullptr, ENOMEM)
DEVSUPPORT_FAULT_POINT(int, pthread_mutex_init, (pthread_mutex_t * p, const pthread_mutexattr_t *pAttributes),
                       (p, pAttributes), ENOMEM, 0)

namespace {

// The calls of mutex functions in order, for example "lock unlock ". The first call makes the text, and nothing
// destroys it, because GoogleTest uses the wrapped functions before and after all tests.
std::string &MutexCalls() {
  static std::string *const calls = new std::string;
  return *calls;
}

}  // namespace

// Notes each call of a mutex function, and makes it.
#define RECORD_MUTEX_CALL(name)                                    \
  extern "C" int __real_pthread_mutex_##name(pthread_mutex_t *p);  \
  extern "C" int __wrap_pthread_mutex_##name(pthread_mutex_t *p);  \
  extern "C" int __wrap_pthread_mutex_##name(pthread_mutex_t *p) { \
    MutexCalls() += #name " ";                                     \
    return __real_pthread_mutex_##name(p);                         \
  }
RECORD_MUTEX_CALL(destroy)
RECORD_MUTEX_CALL(lock)
RECORD_MUTEX_CALL(unlock)

namespace {

using namespace devsupport::test;

constexpr std::uint32_t kUnsetLength = 0xDEADBEEF;
constexpr char kUntouched = '#';

// The result of taking a message out of a queue.
struct Got {
  int nResult;
  std::string text;  // what was written to the destination
  std::uint32_t dwBytes;
};

class MyQueue : public ::testing::TestWithParam<int> {
 protected:
  MyQueue() {
    std::memset(&uQue_, 0xA5, sizeof uQue_);
    MutexCalls().clear();
  }
  ~MyQueue() override {
    if (bCreated_) TMyQueue_Destroy(&uQue_);
  }

  int Create(int nCapacity, int nUserSize) {
    bCreated_ = true;
    return TMyQueue_Create(nCapacity, nUserSize, &uQue_, GetParam());
  }
  int Push(const std::string &text) {
    return TMyQueue_Push(&uQue_, text.data(), static_cast<std::uint16_t>(text.size()));
  }
  int PushOverwrite(const std::string &text) {
    return TMyQueue_PushOverwrite(&uQue_, text.data(), static_cast<std::uint16_t>(text.size()));
  }
  Got Get(std::uint16_t wMaxBytes = 0) {
    char acBuf[200];
    std::memset(acBuf, kUntouched, sizeof acBuf);
    Got got{-4711, "", kUnsetLength};
    got.nResult = TMyQueue_Get(&uQue_, acBuf, &got.dwBytes, wMaxBytes);
    got.text.assign(acBuf, sizeof acBuf);
    got.text.erase(got.text.find_last_not_of(kUntouched) + 1);
    return got;
  }
  void ExpectVoidAndSafe() {
    EXPECT_EQ(uQue_.pBuf, nullptr);
    EXPECT_EQ(uQue_.bUseMutex, 0);
    EXPECT_EQ(TMyQueue_GetMaxCellCount(&uQue_), 0);
    EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 0);
    EXPECT_EQ(Push("a"), 0);
    EXPECT_EQ(PushOverwrite("a"), 0);
    EXPECT_EQ(Get().nResult, 0);
    TMyQueue_Clear(&uQue_);
    EXPECT_EQ(_TMyQueue_GetNextIdx(0, &uQue_), 0);
    EXPECT_EQ(_TMyQueue_GetNextPtr(uQue_.pPut, &uQue_), nullptr);
    TMyQueue_Destroy(&uQue_);
  }

  TMyQueue uQue_;
  bool bCreated_ = false;
};

INSTANTIATE_TEST_SUITE_P(, MyQueue, ::testing::Values(0, 1),
                         [](const auto &given) { return given.param != 0 ? "WithMutex" : "WithoutMutex"; });

TEST_P(MyQueue, Create_SetsUpCellsOfLengthAndPayloadAndOneMoreThanTheCapacity) {
  ASSERT_EQ(Create(3, 5), 1);
  EXPECT_EQ(uQue_.nCellCount, 4);
  EXPECT_EQ(uQue_.nUserSize, 5);
  EXPECT_EQ(uQue_.nCellSize, 7);
  EXPECT_EQ(uQue_.nGetIdx, 0);
  EXPECT_EQ(uQue_.nPutIdx, 0);
  EXPECT_EQ(uQue_.pGet, uQue_.pBuf);
  EXPECT_EQ(uQue_.pPut, uQue_.pBuf);
  EXPECT_EQ(uQue_.pLastCell, uQue_.pBuf + 21);
  EXPECT_EQ(uQue_.bUseMutex, GetParam());
}

TEST_P(MyQueue, Push_OnAFullQueue_Returns0AndStoresNothing) {
  ASSERT_EQ(Create(2, 8), 1);
  EXPECT_EQ(Push("one"), 1);
  EXPECT_EQ(Push("two"), 1);
  EXPECT_EQ(Push("three"), 0);
  EXPECT_EQ(TMyQueue_GetMaxCellCount(&uQue_), 2);
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 2);
  EXPECT_EQ(Get().text, "one");
  EXPECT_EQ(Get().text, "two");
  EXPECT_EQ(Get().nResult, 0);
}

TEST_P(MyQueue, PushOverwrite_OnAFullQueue_Returns0AndDropsTheOldest) {
  ASSERT_EQ(Create(2, 8), 1);
  EXPECT_EQ(PushOverwrite("one"), 1);
  EXPECT_EQ(PushOverwrite("two"), 1);
  EXPECT_EQ(PushOverwrite("three"), 0);
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 2);
  EXPECT_EQ(Get().text, "two");
  EXPECT_EQ(Get().text, "three");
}

TEST_P(MyQueue, MessagesWithoutBytes_AreNotStored) {
  ASSERT_EQ(Create(1, 8), 1);
  MutexCalls().clear();
  EXPECT_EQ(TMyQueue_Push(&uQue_, nullptr, 0), 0);
  EXPECT_EQ(TMyQueue_PushOverwrite(&uQue_, nullptr, 0), 0);
  EXPECT_EQ(MutexCalls(), "");
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 0);
  Push("kept");
  EXPECT_EQ(TMyQueue_PushOverwrite(&uQue_, nullptr, 0), 0);
  EXPECT_EQ(Get().text, "kept");
}

TEST_P(MyQueue, LongerMessages_AreCutToTheCellInSilence) {
  CapturedOutput err(stderr);
  ASSERT_EQ(Create(2, 4), 1);
  EXPECT_EQ(Push("0123456789"), 1);
  EXPECT_EQ(PushOverwrite("abcdefgh"), 1);
  for (const char *pText : {"0123", "abcd"}) {
    const Got got = Get();
    EXPECT_EQ(got.nResult, 1);
    EXPECT_EQ(got.text, pText);
    EXPECT_EQ(got.dwBytes, 4u);
  }
  EXPECT_EQ(err.Take(), "");
}

TEST_P(MyQueue, Get_WithMaximum0_CopiesTheWholeMessage) {
  ASSERT_EQ(Create(1, 150), 1);
  for (std::size_t nLength = 1; nLength <= 150; ++nLength) {
    std::string text;
    for (std::size_t i = 0; i < nLength; ++i) text += static_cast<char>('a' + i % 26);
    ASSERT_EQ(Push(text), 1);
    const Got got = Get(0);
    ASSERT_EQ(got.text, text);
    ASSERT_EQ(got.dwBytes, nLength);
  }
}

TEST_P(MyQueue, Get_OfALongerMessage_CutsItTellsItsLengthAndLosesTheRest) {
  ASSERT_EQ(Create(2, 4), 1);
  Push("abcd");
  const Got got = Get(3);
  EXPECT_EQ(got.nResult, 1);
  EXPECT_EQ(got.text, "abc");
  EXPECT_EQ(got.dwBytes, 4u);
  EXPECT_EQ(Get().nResult, 0);
}

TEST_P(MyQueue, Get_WithMoreRoomThanNeeded_WritesTheMessageOnly) {
  ASSERT_EQ(Create(2, 4), 1);
  Push("ab");
  const Got got = Get(200);
  EXPECT_EQ(got.text, "ab");
  EXPECT_EQ(got.dwBytes, 2u);
}

TEST_P(MyQueue, Get_FromAnEmptyQueue_Returns0WritesLength0AndLeavesTheBuffer) {
  ASSERT_EQ(Create(2, 4), 1);
  const Got got = Get();
  EXPECT_EQ(got.nResult, 0);
  EXPECT_EQ(got.dwBytes, 0u);
  EXPECT_EQ(got.text, "");
}

TEST_P(MyQueue, Get_WithoutLengthPointer_IsPossible) {
  ASSERT_EQ(Create(2, 4), 1);
  char acBuf[4] = {};
  EXPECT_EQ(TMyQueue_Get(&uQue_, acBuf, nullptr, 4), 0);
  Push("ab");
  EXPECT_EQ(TMyQueue_Get(&uQue_, acBuf, nullptr, 4), 1);
  EXPECT_STREQ(acBuf, "ab");
}

TEST_P(MyQueue, Cells_HoldANativeLengthAndThePayloadWithoutAGap) {
  ASSERT_EQ(Create(2, 3), 1);
  Push("ab");
  Push("cde");
  const std::uint16_t awLength[] = {2, 3};
  EXPECT_EQ(std::memcmp(uQue_.pBuf, &awLength[0], 2), 0);
  EXPECT_EQ(std::memcmp(uQue_.pBuf + 2, "ab", 2), 0);
  EXPECT_EQ(std::memcmp(uQue_.pBuf + 5, &awLength[1], 2), 0);
  EXPECT_EQ(std::memcmp(uQue_.pBuf + 7, "cde", 3), 0);
  EXPECT_EQ(uQue_.nPutIdx, 2);
  EXPECT_EQ(uQue_.pPut, uQue_.pLastCell);
}

TEST_P(MyQueue, CellCount_AfterTheWrap_CountsAcrossTheEnd) {
  ASSERT_EQ(Create(3, 4), 1);
  for (const char *pText : {"a", "b", "c"}) Push(pText);
  Get();
  Get();
  Push("d");
  EXPECT_EQ(uQue_.nPutIdx, 0);
  EXPECT_EQ(uQue_.nGetIdx, 2);
  EXPECT_EQ(uQue_.pPut, uQue_.pBuf);
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 2);
  EXPECT_EQ(_TMyQueue_GetCurCellCount(&uQue_), 0 - 2 + 4);
}

TEST_P(MyQueue, NextIdxAndNextPtr_WrapAfterTheLastCell) {
  ASSERT_EQ(Create(2, 4), 1);
  MutexCalls().clear();
  EXPECT_EQ(_TMyQueue_GetNextIdx(0, &uQue_), 1);
  EXPECT_EQ(_TMyQueue_GetNextIdx(1, &uQue_), 2);
  EXPECT_EQ(_TMyQueue_GetNextIdx(2, &uQue_), 0);
  EXPECT_EQ(_TMyQueue_GetNextPtr(uQue_.pBuf, &uQue_), uQue_.pBuf + 6);
  EXPECT_EQ(_TMyQueue_GetNextPtr(uQue_.pBuf + 6, &uQue_), uQue_.pLastCell);
  EXPECT_EQ(_TMyQueue_GetNextPtr(uQue_.pLastCell, &uQue_), uQue_.pBuf);
  EXPECT_EQ(_TMyQueue_GetCurCellCount(&uQue_), 0);
  EXPECT_EQ(MutexCalls(), "");
}

TEST_P(MyQueue, Clear_DropsAllMessagesAndRewinds) {
  ASSERT_EQ(Create(3, 4), 1);
  for (const char *pText : {"a", "b", "c"}) Push(pText);
  Get();
  TMyQueue_Clear(&uQue_);
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 0);
  EXPECT_EQ(uQue_.nGetIdx, 0);
  EXPECT_EQ(uQue_.nPutIdx, 0);
  EXPECT_EQ(uQue_.pGet, uQue_.pBuf);
  EXPECT_EQ(uQue_.pPut, uQue_.pBuf);
  EXPECT_EQ(Get().nResult, 0);
}

TEST_P(MyQueue, EveryOperation_TakesTheMutexOnceWhenThereIsOne) {
  const std::string expected = GetParam() != 0 ? "lock unlock " : "";
  const auto callsOf = [](auto &&operation) {
    MutexCalls().clear();
    operation();
    return MutexCalls();
  };
  EXPECT_EQ(callsOf([&] { Create(1, 4); }), expected);
  EXPECT_EQ(callsOf([&] { Push("a"); }), expected);
  EXPECT_EQ(callsOf([&] { Push("full"); }), expected);
  EXPECT_EQ(callsOf([&] { PushOverwrite("b"); }), expected);
  EXPECT_EQ(callsOf([&] { Get(); }), expected);
  EXPECT_EQ(callsOf([&] { Get(); }), expected);
  EXPECT_EQ(callsOf([&] { TMyQueue_GetCellCount(&uQue_); }), expected);
  EXPECT_EQ(callsOf([&] { TMyQueue_GetMaxCellCount(&uQue_); }), expected);
  EXPECT_EQ(callsOf([&] { TMyQueue_Clear(&uQue_); }), expected);
  EXPECT_EQ(callsOf([&] { TMyQueue_Destroy(&uQue_); }), GetParam() != 0 ? "destroy " : "");
}

TEST_P(MyQueue, Destroy_LeavesARecordThatIsSafeAndCanBeDestroyedAndCreatedAgain) {
  ASSERT_EQ(Create(2, 4), 1);
  Push("a");
  TMyQueue_Destroy(&uQue_);
  MutexCalls().clear();
  ExpectVoidAndSafe();
  EXPECT_EQ(MutexCalls(), "");
  ASSERT_EQ(Create(2, 4), 1);
  EXPECT_EQ(Push("b"), 1);
}

TEST_P(MyQueue, CapacityOf0_IsAlwaysEmptyAndFull) {
  ASSERT_EQ(Create(0, 4), 1);
  EXPECT_EQ(TMyQueue_GetMaxCellCount(&uQue_), 0);
  EXPECT_EQ(Push("a"), 0);
  EXPECT_EQ(PushOverwrite("a"), 0);
  EXPECT_EQ(TMyQueue_GetCellCount(&uQue_), 0);
  EXPECT_EQ(Get().nResult, 0);
}

TEST_P(MyQueue, CellsWithoutPayload_StillCountMessages) {
  ASSERT_EQ(Create(2, 0), 1);
  EXPECT_EQ(Push("a"), 1);
  const Got got = Get();
  EXPECT_EQ(got.nResult, 1);
  EXPECT_EQ(got.text, "");
  EXPECT_EQ(got.dwBytes, 0u);
}

TEST_P(MyQueue, CellsBeyond65535Bytes_HoldTheLongestMessage) {
  ASSERT_EQ(Create(1, 70000), 1);
  const std::string text(65535, 'x');
  EXPECT_EQ(Push(text), 1);
  std::string got(65535, kUntouched);
  std::uint32_t dwBytes = kUnsetLength;
  EXPECT_EQ(TMyQueue_Get(&uQue_, got.data(), &dwBytes, 0), 1);
  EXPECT_EQ(dwBytes, 65535u);
  EXPECT_EQ(got, text);
}

TEST_P(MyQueue, SizesThatAreNegativeOrBeyond32Bits_AreRefused) {
  const struct {
    int nCapacity, nUserSize;
  } kRefused[] = {{-1, 4},        {INT32_MIN, 4},     {INT32_MAX, 4}, {4, -1},
                  {4, INT32_MIN}, {0x10000, 0x10000}, {2, INT32_MAX}, {2, INT32_MAX - 2}};
  for (const auto &sizes : kRefused) {
    std::memset(&uQue_, 0xA5, sizeof uQue_);
    EXPECT_EQ(Create(sizes.nCapacity, sizes.nUserSize), 0) << sizes.nCapacity << " x " << sizes.nUserSize;
    ExpectVoidAndSafe();
  }
}

TEST_P(MyQueue, FailingAllocation_MakesCreateReturn0AndLeavesNothing) {
  int nFailed = 0;
  for (bool bHappened = true; bHappened;) {
    MutexCalls().clear();
    int nResult = -4711;
    {
      FailCall fail("malloc", nFailed + 1);
      nResult = Create(4, 4);
      bHappened = fail.Happened();
    }
    EXPECT_EQ(nResult, bHappened ? 0 : 1);
    if (bHappened) {
      EXPECT_EQ(MutexCalls(), GetParam() != 0 ? "lock unlock destroy " : "");
      ExpectVoidAndSafe();
      ++nFailed;
    }
  }
  EXPECT_EQ(nFailed, 1);
}

TEST(MyQueueMutex, ThatCannotBeMade_MakesCreateReturn0AndLeavesNothing) {
  TMyQueue uQue;
  std::memset(&uQue, 0xA5, sizeof uQue);
  MutexCalls().clear();
  {
    FailCall fail("pthread_mutex_init", 1);
    EXPECT_EQ(TMyQueue_Create(4, 4, &uQue, 1), 0);
    EXPECT_TRUE(fail.Happened());
  }
  EXPECT_EQ(MutexCalls(), "");
  EXPECT_EQ(uQue.pBuf, nullptr);
  TMyQueue_Destroy(&uQue);
  EXPECT_EQ(MutexCalls(), "");
}

// The whole report of the C library; only the line number may change.
std::string Assertion(const char *pFunction) {
  return std::string("^[^\n]*MyQueue:[0-9]+: ") + pFunction +
         ": Assertion `puQue != \\(\\(void \\*\\)0\\)' failed\\.\n$";
}

TEST(MyQueueDeathTest, NullQueue_StopsTheProgramWithTheStandardAssertion) {
  char acBuf[4] = "abc";
  std::uint32_t dwBytes = 0;
  EXPECT_EXIT(TMyQueue_Push(nullptr, acBuf, 3), ::testing::KilledBySignal(SIGABRT), Assertion("TMyQueue_Push"));
  EXPECT_EXIT(TMyQueue_Push(nullptr, acBuf, 0), ::testing::KilledBySignal(SIGABRT), Assertion("TMyQueue_Push"));
  EXPECT_EXIT(TMyQueue_PushOverwrite(nullptr, acBuf, 3), ::testing::KilledBySignal(SIGABRT),
              Assertion("TMyQueue_PushOverwrite"));
  EXPECT_EXIT(TMyQueue_Get(nullptr, acBuf, &dwBytes, 3), ::testing::KilledBySignal(SIGABRT),
              Assertion("TMyQueue_Get"));
}

}  // namespace
