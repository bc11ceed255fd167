// SPDX-License-Identifier: MIT
// Locks, segments, rings, message queues, timers and the log channel while their calls fail.
#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <devsupport/ipc/MessageQueue.h>
#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/ipc/Semaphore.h>
#include <devsupport/ipc/ShareMem.h>
#include <devsupport/ipc/Timer.h>
#include <devsupport/logmgr/LogFormat.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogRecord.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <cstdint>
#include <cstring>

#include "tests/faults/Sweep.h"

namespace {

using devsupport::test::Faults;
using devsupport::test::Sweep;

constexpr int kShareKey = 4711;
constexpr int kSemKey = 4712;

// 2 would let two writers in at once.
int ValueOf(int semaphore) { return ::semctl(semaphore, 0, GETVAL); }

// A ring's creator gives its lock back whether or not it could take it: the result of the semaphore call is ignored.
constexpr int kMostValue = 2;

TEST(Semaphore, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    int semaphore = -1;
    int locked = -1;
    int unlocked = -1;
    int closed = -1;
    faults.Strike([&] { semaphore = Semaphore_Create(kSemKey); });
    if (semaphore != -1 && ValueOf(semaphore) == 0) {
      EXPECT_TRUE(faults.Struck()) << "made by the second attempt, it looks held: that is the contract";
      EXPECT_EQ(Semaphore_Close(semaphore), 1);
      return;
    }
    faults.Strike([&] {
      if (semaphore == -1) return;
      locked = Semaphore_Lock(semaphore);
      unlocked = Semaphore_Unlock(semaphore);
      closed = Semaphore_Close(semaphore);
    });
    if (faults.Worked(semaphore != -1 && locked == 1 && unlocked == 1 && closed == 1)) return;
    const int left = Semaphore_Create(kSemKey);
    EXPECT_NE(left, -1);
    EXPECT_EQ(Semaphore_Close(left), 1);
  });
}

TEST(ShareMem, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    TShareMem segment{};
    int created = -1;
    int users = -1;
    int last = -1;
    int closed = -1;
    void *address = nullptr;
    faults.Strike([&] {
      address = ShareMem_Create(kShareKey, 100, &segment, &created);
      if (address == nullptr) return;
      std::memset(address, 'x', 100);
      users = ShareMem_FindKeyAttchCount(kShareKey);
      closed = ShareMem_Close(&segment, 1, &last);
    });
    EXPECT_TRUE(users <= 1);
    if (faults.Worked(address != nullptr && users == 1 && closed == 1)) {
      EXPECT_EQ(last, 1);
      EXPECT_EQ(ShareMem_FindKeyAttchCount(kShareKey), 0);
    } else {
      TShareMem left{};
      EXPECT_NE(ShareMem_Create(kShareKey, 100, &left, &created), nullptr);
      ShareMem_Close(&segment, 1, &last);
      ShareMem_Close(&left, 1, &last);
    }
  });
}

// The only user of a ring needs no lock: whatever call fails, records that go in come out.
TEST(Ring, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    TShmQueue ring{};
    TShmQueueOpt options{8, 1, -1};
    char text[16] = "";
    void *cell = nullptr;
    void *slot = nullptr;
    int created = -1;
    bool right = false;
    int cleared = -1;
    bool locks = false;
    int closed = -1;
    int left = -1;
    faults.Strike([&] {
      created = TShmQueue_Create(kShareKey, kSemKey, 2, 16, &options, &ring);
      if (created != 1) return;
      locks = options.bNewCreated == 0 || TShmQueue_Unlock(&ring) == 1;
      right = TShmQueue_Push(&ring, "a", 2) == 1 && TShmQueue_PushOverwrite(&ring, "b", 2) == 1 &&
              TShmQueue_Push(&ring, "c", 2) == 0 && TShmQueue_PushOverwrite(&ring, "d", 2) == 0 &&
              TShmQueue_GetCount(&ring) == 2 && TShmQueue_PeekInit(&ring, 0) == 1 &&
              (cell = TShmQueue_PeekNext(&ring, &slot)) != nullptr &&
              std::strcmp(static_cast<char *>(cell), "b") == 0;
      std::uint32_t bytes = 0;
      right = right && TShmQueue_Get(&ring, text, &bytes, sizeof text) == 1 && bytes == 2;
      locks = TShmQueue_Lock(&ring) == 1 && TShmQueue_Unlock(&ring) == 1 && locks;
      cleared = TShmQueue_Clear(&ring);
      right = right && TShmQueue_GetCount(&ring) == 0;
      left = ValueOf(ring.semid);
      closed = TShmQueue_Close(&ring, 1);
    });
    EXPECT_EQ(created == 1, right);
    EXPECT_LE(left, kMostValue);
    EXPECT_STREQ(text, created == 1 ? "b" : "");
    EXPECT_TRUE(closed == 1 || created != 1);
    if (faults.Worked(created == 1 && locks && cleared == 1 && ShareMem_FindKeyAttchCount(kShareKey) == 0)) return;
    // A ring that was not removed is removed with its lock by the next process that closes it.
    TShmQueue next{};
    options.bLockIfNew = 0;
    EXPECT_EQ(TShmQueue_Create(kShareKey, kSemKey, 2, 16, &options, &next), 1);
    TShmQueue_Close(&ring, 0);
    TShmQueue_Close(&next, 1);
  });
}

TEST(MessageQueue, EachCall_FailsInTurn) {
  struct Message {
    long type;
    char text[8];
  };
  Sweep([](Faults &faults) {
    int queue = -1;
    int sent = -1;
    int got = KMSGQUE_FAILED;
    std::int32_t bytes = -1;
    Message received{};
    faults.Strike([&] {
      queue = KMsgQue_Open(kShareKey, 1);
      if (queue == -1) return;
      const Message message{1, "hello"};
      sent = KMsgQue_Send(queue, &message, 6, 0);
      got = KMsgQue_Get(queue, &received, sizeof received.text, 0, &bytes, IPC_NOWAIT);
      KMsgQue_Flush(queue);
    });
    if (got == KMSGQUE_RECEIVED) {
      EXPECT_EQ(sent, 1);
      EXPECT_EQ(bytes, 6);
      EXPECT_STREQ(received.text, "hello");
    }
    faults.Worked(got == KMSGQUE_RECEIVED);
    faults.Strike([&] { KMsgQue_Close(kShareKey); });
    if (faults.Struck()) KMsgQue_Close(kShareKey);
  });
}

volatile int g_expired = 0;

TEST(Timer, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    std::uint16_t array = 0;
    int created = -1;
    int set = -1;
    int setAgain = -1;
    int deleted = -1;
    faults.Strike([&] {
      created = Timer_CreateAry(
          2, 0, [](std::uint32_t) { g_expired = g_expired + 1; }, 0, &array);
      if (created != 1) return;
      set = Timer_Set(&array, 0, 3'600'000, nullptr);
      EXPECT_EQ(Timer_IsActive(&array, 0), set);
      setAgain = Timer_Set(&array, 0, 3'600'000, nullptr);
      EXPECT_EQ(Timer_IsActive(&array, 0), setAgain);
      Timer_Set(&array, 1, 3'600'000, nullptr);
      deleted = Timer_Del(&array, 0);
      EXPECT_EQ(Timer_IsActive(&array, 0), deleted == 1 ? 0 : setAgain);
      Timer_DelAll(&array);
      Timer_DestroyAry(&array);
    });
    EXPECT_EQ(created == 1, array != 0xFFFF);
    faults.Worked(created == 1 && set == 1 && setAgain == 1 && deleted == 1);
  });
}

TEST(TimerExpiry, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    std::uint16_t array = 0;
    g_expired = 0;
    ASSERT_EQ(Timer_CreateAry(
                  1, 1, [](std::uint32_t) { g_expired = g_expired + 1; }, 0, &array),
              1);
    ASSERT_EQ(Timer_Set(&array, 0, 3'600'000, nullptr), 1);
    faults.Strike([] {
      siginfo_t info{};
      info.si_value.sival_int = 1 << 24;  // cell 0 of array 0, first arming
      Timer_OnSignal(0, &info, nullptr);
    });
    EXPECT_EQ(Timer_IsActive(&array, 0), 0);
    EXPECT_EQ(g_expired, 1);
    Timer_DestroyAry(&array);
  });
}

TEST(LogChannel, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    TShmQueue &log = _g_uLogInfoShmData.uLogQue;
    TShmQueue &events = _g_uLogInfoShmData.uEvtQue;
    int opened = -1;
    std::int32_t count = 0;
    faults.Strike([&] {
      opened = TLogInfoShm_Open(3, ~0U, "swept");
      TLogInfoShm_Write("one", 1, 0);
      TLogInfoShm_WriteN("two", 4, 1);
      TLogInfoShm_Write_Evt("event", 1);
      TLogInfoShm_WriteN_Evt("event", 6, 1);
      LogInfo_Printf(1, "%s %d", "three", 3);
      LogInfo_PrintfEvt(1, "%d", 4);
      LogInfo_Cat2("file", 1, 1, 0, "a", "b");
      if (log.header != nullptr) count = TShmQueue_GetCount(&log);
    });
    EXPECT_EQ(opened == 1, log.header != nullptr && events.header != nullptr);
    if (log.header != nullptr) {
      EXPECT_EQ(count, 4);
    }
    for (TShmQueue *ring : {&log, &events}) {
      if (ring->header == nullptr) continue;
      EXPECT_LE(ValueOf(ring->semid), kMostValue);
      TShmQueue_Clear(ring);
    }
    faults.Worked(opened == 1);
    faults.Strike([] { TLogInfoShm_Close(); });
    EXPECT_EQ(log.header, nullptr);
  });
}

TEST(LogBuilders, EachCall_FailsInTurn) {
  Sweep([](Faults &faults) {
    ASSERT_EQ(TLogInfoShm_Open(3, ~0U, "swept"), 1);
    TShmQueue &log = _g_uLogInfoShmData.uLogQue;
    faults.Strike([&log] {
      char number[32];
      LogInfo_Cat1("file", 1, 1, 0, LogFmt_Int(number, 1));
      LogInfo_Cat2("file", 1, 1, 0, "1", LogFmt_Hex(number, 2));
      LogInfo_Cat3("file", 1, 1, 0, "1", "2", LogFmt_HexU(number, 3));
      LogInfo_Cat4("file", 1, 1, 0, "1", "2", "3", LogFmt_Chn(number, 4));
      LogInfo_Cat5("file", 1, 1, 0, "1", "2", "3", "4", LogFmt_Sid(number, 5));
      LogInfo_Cat6("file", 1, 1, 0, "1", "2", "3", "4", "5", LogFmt_Float(number, 6.0F));
      LogInfo_Cat7("file", 1, 1, 0, "1", "2", "3", "4", "5", "6", LogFmt_Double(number, 7.0));
      LogInfo_Cat8("file", 1, 1, 0, "1", "2", "3", "4", "5", "6", "7", "8");
      LogInfo_Cat9("file", 1, 1, 0, "1", "2", "3", "4", "5", "6", "7", "8", "9");
      LogInfo_Cat10("file", 1, 1, 0, "1", "2", "3", "4", "5", "6", "7", "8", "9", "10");
      LogInfo_Cat11("file", 1, 1, 0, "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11");
      LogInfo_Cat12("file", 1, 1, 0, "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12");
      _TLogInfoShm_WriteData(&log, "text", 5, 1);
    });
    EXPECT_EQ(TShmQueue_GetCount(&log), 13);
    TShmQueue_Clear(&log);
    TLogInfoShm_Close();
  });
}

}  // namespace
