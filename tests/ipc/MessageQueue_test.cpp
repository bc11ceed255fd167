// SPDX-License-Identifier: MIT
// Message queues: what opening, sending, receiving and removing return and print, with real queues.

#include <devsupport/ipc/MessageQueue.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/IpcKey.h"

DEVSUPPORT_FAULT_POINT(int, msgget, (key_t key, int flags), (key, flags), -1, EACCES)
DEVSUPPORT_FAULT_POINT(int, msgctl, (int id, int command, msqid_ds *info), (id, command, info), -1, EPERM)

namespace {

using namespace devsupport::test;

constexpr int kPresetErrno = 4711;
constexpr std::int32_t kUnwritten = -4711;

struct QueueMessage {
  long type;
  char data[1024];
};

constexpr std::int32_t kRoom = sizeof QueueMessage::data;

QueueMessage Filled(long type, char fill) {
  QueueMessage message{};
  message.type = type;
  std::memset(message.data, fill, sizeof message.data);
  return message;
}

/// A key without a queue.
class MsgKey : public ::testing::Test {
 protected:
  void Send(long type, std::int32_t bytes, char fill = 'x') {
    const QueueMessage message = Filled(type, fill);
    ASSERT_EQ(KMsgQue_Send(id_, &message, bytes, 0), 1);
  }

  /// Receives to got_ and length_.
  int Get(std::int32_t capacity, std::int32_t type = 0, std::int32_t flags = 0) {
    return KMsgQue_Get(id_, &got_, capacity, type, &length_, flags);
  }

  // Limits the queue to this many bytes of data.
  void Limit(msglen_t bytes) const {
    msqid_ds info{};
    ASSERT_EQ(::msgctl(id_, IPC_STAT, &info), 0);
    info.msg_qbytes = bytes;
    ASSERT_EQ(::msgctl(id_, IPC_SET, &info), 0);
  }

  long Waiting() const {
    msqid_ds info{};
    return ::msgctl(id_, IPC_STAT, &info) == 0 ? static_cast<long>(info.msg_qnum) : -1;
  }

  bool Exists() const { return ::msgget(key_, 0) != -1; }

  std::string IdText() const { return std::to_string(id_); }

  IpcKey key_;
  int id_ = -1;
  QueueMessage got_ = Filled(-1, '#');
  std::int32_t length_ = kUnwritten;
};

/// A key with an empty queue.
class MsgQueue : public MsgKey {
 protected:
  void SetUp() override { ASSERT_NE(id_ = KMsgQue_Open(key_, 0), -1); }
};

TEST_F(MsgQueue, Open_OnANewKey_MakesAQueueThatEverybodyMayUse) {
  msqid_ds info{};
  ASSERT_EQ(::msgctl(id_, IPC_STAT, &info), 0);
  EXPECT_EQ(info.msg_perm.mode & 0777u, 0666u);
}

TEST_F(MsgKey, Open_Twice_GivesTheSameIdentifierAndPrintsNothing) {
  CapturedOutput err(stderr);
  const int first = KMsgQue_Open(key_, 0);
  const int second = KMsgQue_Open(key_, 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_NE(first, -1);
  EXPECT_EQ(first, second);
}

TEST_F(MsgQueue, Open_WithoutFlush_KeepsWhatWaits) {
  Send(1, 8);
  KMsgQue_Open(key_, 0);
  EXPECT_EQ(Waiting(), 1);
}

TEST_F(MsgQueue, Open_WithFlush_EmptiesTheQueueOfEveryTypeAndLength) {
  Send(1, 0);
  Send(7, 244);
  Send(2, 245);  // one byte more than the flush receives at once
  Send(0x7FFFFFFF, 1000);
  Send(1, 1);
  ASSERT_EQ(Waiting(), 5);
  errno = kPresetErrno;
  EXPECT_EQ(KMsgQue_Open(key_, 0x100), id_);
  EXPECT_EQ(errno, kPresetErrno);
  EXPECT_EQ(Waiting(), 0);
}

TEST_F(MsgKey, Open_ThatFails_PrintsTheKeyWithTheTwoAndReturnsMinus1) {
  CapturedOutput err(stderr);
  int id = 0;
  {
    FailCall fail("msgget", 1);
    id = KMsgQue_Open(-17, 1);
    EXPECT_EQ(errno, EACCES);
  }
  EXPECT_EQ(err.Take(), "KMsgQue_Open: msgget(Key:-17)(2) failed(Permission denied)\n");
  EXPECT_EQ(id, -1);
}

TEST_F(MsgQueue, Flush_OfARemovedQueue_IsSilent) {
  KMsgQue_Close(key_);
  CapturedOutput err(stderr);
  errno = kPresetErrno;
  KMsgQue_Flush(id_);
  EXPECT_EQ(errno, kPresetErrno);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(MsgQueue, Close_RemovesTheQueueWithWhatWaits) {
  Send(1, 8);
  CapturedOutput err(stderr);
  KMsgQue_Close(key_);
  EXPECT_EQ(err.Take(), "");
  EXPECT_FALSE(Exists());
}

TEST_F(MsgKey, Close_OfAKeyWithoutQueue_IsQuietAndLeavesNone) {
  CapturedOutput err(stderr);
  KMsgQue_Close(key_);
  EXPECT_FALSE(Exists());
  KMsgQue_Close(key_);
  EXPECT_FALSE(Exists());
  EXPECT_EQ(err.Take(), "");
}

TEST_F(MsgKey, Close_WhereTheQueueCannotBeFound_PrintsTheKeyAndStops) {
  CapturedOutput err(stderr);
  {
    FailCall fail("msgget", 1);
    KMsgQue_Close(99);
    EXPECT_EQ(errno, EACCES);
  }
  EXPECT_EQ(err.Take(), "KMsgQue_Close: msgget(Key:99) failed(Permission denied)\n");
}

TEST_F(MsgQueue, Close_WhereTheQueueCannotBeRemoved_PrintsSo) {
  CapturedOutput err(stderr);
  {
    FailCall fail("msgctl", 1);
    KMsgQue_Close(key_);
    EXPECT_EQ(errno, EPERM);
  }
  EXPECT_EQ(err.Take(), "KMsgQue_Close: msgctl(IPC_RMID) failed(Operation not permitted)\n");
  EXPECT_TRUE(Exists());
}

TEST_F(MsgQueue, SendAndGet_CarryTypeDataAndLength) {
  QueueMessage sent = Filled(42, 'a');
  CapturedOutput err(stderr);
  ASSERT_EQ(KMsgQue_Send(id_, &sent, 17, 1), 1);
  EXPECT_EQ(Get(kRoom), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(length_, 17);
  EXPECT_EQ(got_.type, 42);
  EXPECT_EQ(std::string(got_.data, 18), std::string(17, 'a') + "#");
}

TEST_F(MsgQueue, Get_WithoutLengthPointer_Receives) {
  Send(1, 3);
  EXPECT_EQ(KMsgQue_Get(id_, &got_, kRoom, 0, nullptr, 0), 1);
}

TEST_F(MsgQueue, Get_OfAMessageWithoutData_StoresLength0) {
  Send(1, 0);
  EXPECT_EQ(Get(0), 1);
  EXPECT_EQ(length_, 0);
}

TEST_F(MsgQueue, Get_ChoosesByType) {
  for (const long type : {5L, 3L, 4L, 3L}) Send(type, static_cast<std::int32_t>(type));
  const auto next = [this](std::int32_t wanted) { return Get(kRoom, wanted, IPC_NOWAIT) == 1 ? got_.type : 0; };
  EXPECT_EQ(next(4), 4);    // the first of this type
  EXPECT_EQ(next(-4), 3);   // the lowest type up to 4
  EXPECT_EQ(next(0), 5);    // the oldest
  EXPECT_EQ(next(-2), 0);   // there is no type up to 2
  EXPECT_EQ(next(-99), 3);  // the lowest of all
}

TEST_F(MsgQueue, Get_OnAnEmptyQueueWithoutWait_Returns0AndStoresAndPrintsNothing) {
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(kRoom, 0, IPC_NOWAIT), 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(length_, kUnwritten);
  EXPECT_EQ(got_.type, -1);
  EXPECT_EQ(got_.data[0], '#');
}

TEST_F(MsgQueue, Get_OfATypeThatDoesNotWait_Returns0AndLeavesTheOthers) {
  Send(1, 8);
  EXPECT_EQ(Get(kRoom, 2, IPC_NOWAIT), 0);
  EXPECT_EQ(Waiting(), 1);
}

TEST_F(MsgQueue, Get_OfAnOversizeMessage_Returns3AndLeavesItInTheQueue) {
  Send(1, 9);
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(8), 3);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(length_, kUnwritten);
  EXPECT_EQ(got_.data[0], '#');
  EXPECT_EQ(Waiting(), 1);
}

TEST_F(MsgQueue, Get_OfAnOversizeMessageWithNoError_CutsItToTheCapacity) {
  Send(1, 9);
  EXPECT_EQ(Get(8, 0, MSG_NOERROR), 1);
  EXPECT_EQ(length_, 8);
  EXPECT_EQ(std::string(got_.data, 9), "xxxxxxxx#");
  EXPECT_EQ(Waiting(), 0);
}

TEST_F(MsgQueue, Get_InterruptedBySignals_Returns4AndPrintsNothing) {
  // The timer repeats the signal, so that one arrives during the wait even when the wait begins late.
  struct sigaction ignored {};
  ignored.sa_handler = [](int) {};
  ignored.sa_flags = SA_RESTART;  // msgrcv() is not restarted even so
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGALRM, &ignored, &before), 0);
  const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
  const itimerval never{};
  CapturedOutput err(stderr);
  ::setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
  const int result = Get(kRoom);
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(result, 4);
  EXPECT_EQ(length_, kUnwritten);
}

TEST_F(MsgQueue, Get_OnARemovedQueue_PrintsIdentifierAndFlagsAndReturns5) {
  KMsgQue_Close(key_);
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(kRoom, 0, IPC_NOWAIT | MSG_NOERROR), 5);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(err.Take(), "KMsgQue_Get: msgrcv(MsgQ ID: " + IdText() + ", Flag:6144) failed(Invalid argument)\n");
  EXPECT_EQ(length_, kUnwritten);
}

// True once the process sleeps in a system call.
bool Sleeps(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name = line.rfind(") ");
  return name != std::string::npos && line[name + 2] == 'S';
}

TEST_F(MsgQueue, Get_WhoseQueueIsRemovedDuringTheWait_PrintsSoAndReturns5) {
  CapturedOutput err(stderr);
  Event aboutToWait;
  Child receiver([&] {
    aboutToWait.Announce();
    return Get(kRoom);
  });
  aboutToWait.Wait();
  while (!Sleeps(receiver.Pid())) ::sched_yield();  // after the announcement it sleeps only in the wait
  KMsgQue_Close(key_);
  EXPECT_EQ(receiver.Wait(), 5);
  EXPECT_EQ(err.Take(), "KMsgQue_Get: msgrcv(MsgQ ID: " + IdText() + ", Flag:0) failed(Identifier removed)\n");
}

TEST_F(MsgQueue, Get_WithNegativeCapacity_IsRefused) {
  Send(1, 8);
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(-1, 0, IPC_NOWAIT), 5);
  EXPECT_EQ(err.Take(), "KMsgQue_Get: msgrcv(MsgQ ID: " + IdText() + ", Flag:2048) failed(Invalid argument)\n");
}

TEST_F(MsgQueue, Send_OnAFullQueueWithoutWait_PrintsFlag2048AndReturns0) {
  Limit(16);
  Send(1, 10);
  const QueueMessage message = Filled(1, 'y');
  CapturedOutput err(stderr);
  EXPECT_EQ(KMsgQue_Send(id_, &message, 10, 0), 0);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(err.Take(),
            "KMsgQue_Send: msgsnd(MsgQ ID:" + IdText() + ", Flag:2048) failed(Resource temporarily unavailable)\n");
  EXPECT_EQ(Waiting(), 1);
}

TEST_F(MsgQueue, Send_OnAFullQueueWithWait_GoesOnWhenThereIsRoom) {
  Limit(16);
  Send(1, 10);
  Event aboutToWait;
  Child sender([&] {
    const QueueMessage message = Filled(2, 'y');
    aboutToWait.Announce();
    return KMsgQue_Send(id_, &message, 10, -1);
  });
  aboutToWait.Wait();
  while (!Sleeps(sender.Pid())) ::sched_yield();
  EXPECT_EQ(Get(kRoom, 1), 1);
  EXPECT_EQ(Get(kRoom, 2), 1);
  EXPECT_EQ(sender.Wait(), 1);
}

TEST_F(MsgQueue, Send_WithWaitOnARemovedQueue_PrintsFlag0AndReturns0) {
  KMsgQue_Close(key_);
  const QueueMessage message = Filled(1, 'y');
  CapturedOutput err(stderr);
  EXPECT_EQ(KMsgQue_Send(id_, &message, 1, 1), 0);
  EXPECT_EQ(err.Take(), "KMsgQue_Send: msgsnd(MsgQ ID:" + IdText() + ", Flag:0) failed(Invalid argument)\n");
}

TEST_F(MsgQueue, Send_OfTypeNotPositiveOrNegativeSize_IsRefused) {
  const std::string refused = "KMsgQue_Send: msgsnd(MsgQ ID:" + IdText() + ", Flag:2048) failed(Invalid argument)\n";
  CapturedOutput err(stderr);
  QueueMessage message = Filled(0, 'y');
  EXPECT_EQ(KMsgQue_Send(id_, &message, 1, 0), 0);
  message.type = 1;
  EXPECT_EQ(KMsgQue_Send(id_, &message, -1, 0), 0);
  EXPECT_EQ(err.Take(), refused + refused);
  EXPECT_EQ(Waiting(), 0);
}

TEST_F(MsgQueue, ManyProcesses_ReceiveEveryMessageOnce) {
  constexpr int kSenders = 3;
  constexpr int kEach = 300;
  std::vector<Child> senders;
  for (int sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([this, sender] {
      QueueMessage message{};
      message.type = sender + 1;
      for (int n = 0; n < kEach; ++n) {
        std::memcpy(message.data, &n, sizeof n);
        if (KMsgQue_Send(id_, &message, sizeof n, 1) != 1) return 1;
      }
      return 0;
    });
  }
  int next[kSenders] = {};
  for (int n = 0; n < kSenders * kEach; ++n) {
    int value = -1;
    length_ = kUnwritten;
    ASSERT_EQ(Get(kRoom), 1);
    ASSERT_EQ(length_, static_cast<std::int32_t>(sizeof value));
    std::memcpy(&value, got_.data, sizeof value);
    ASSERT_EQ(value, next[got_.type - 1]++);
  }
  for (Child &sender : senders) EXPECT_EQ(sender.Wait(), 0);
  EXPECT_EQ(Waiting(), 0);
}

}  // namespace
