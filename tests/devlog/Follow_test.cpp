// SPDX-License-Identifier: MIT
// devlog -f while others write: each new record is shown once, and lost ones are counted.

#include <sched.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>

#include "tests/devlog/Devlog.h"
#include "tests/support/IpcKey.h"

namespace {

using namespace devlog_test;
using namespace devsupport::test;

Entry Numbered(unsigned number) { return {.text = "record " + std::to_string(number), .sequence = number}; }

std::string LineOf(unsigned number) { return "12:34:56.789 log    0  record " + std::to_string(number); }

class Following : public RecordedRings {
 protected:
  void WriteUpTo(unsigned end) {
    for (; next_ < end; ++next_) Log().Write(Numbered(next_));
  }
  static void Expect(RunningDevlog &devlog, unsigned first, unsigned end) {
    for (unsigned number = first; number < end; ++number) ASSERT_EQ(devlog.NextLine(), LineOf(number));
  }

  unsigned next_ = 0;
};

TEST_F(Following, ShowsWhatIsThereAndThenWhatComes) {
  WriteUpTo(2);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 2);
  for (unsigned end = 3; end < 6; ++end) {
    WriteUpTo(end);
    Expect(devlog, end - 1, end);
  }
  Event().Write({.text = "event"});
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 event  0  event");
}

TEST_F(Following, WithANumber_BeginsWithTheLastOnes) {
  WriteUpTo(5);
  RunningDevlog devlog({"-f", "-n", "1"});
  Expect(devlog, 4, 5);
  WriteUpTo(8);
  Expect(devlog, 5, 8);
}

TEST_F(Following, With0Lines_ShowsNewOnesOnly) {
  WriteUpTo(5);
  RunningDevlog devlog({"-f", "-n", "0"});
  devlog.AwaitLook(kEventRing);  // the log ring is read before it
  WriteUpTo(6);
  Expect(devlog, 5, 6);
}

TEST_F(Following, GoesOnWhereTheRingBeginsAnew) {
  WriteUpTo(1023);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 1023);
  for (unsigned end = 1024; end < 1029; ++end) {
    WriteUpTo(end);
    Expect(devlog, end - 1, end);
  }
}

TEST_F(Following, ThatIsOverrun_ShowsHowManyAreLost) {
  WriteUpTo(1);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 1);
  devlog.Stop(Log());
  WriteUpTo(1075);
  devlog.Process().Signal(SIGCONT);
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    -  (50 or more records lost)");
  Expect(devlog, 51, 1075);
}

TEST_F(Following, ThatIsOverrunToTheSameSlot_NoticesIt) {
  WriteUpTo(10);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 10);
  devlog.Stop(Log());
  WriteUpTo(10 + 1025);  // once round: the write index is the same again
  devlog.Process().Signal(SIGCONT);
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    -  (1 or more records lost)");
  Expect(devlog, 11, 10 + 1025);
}

// Record numbers start again after 4095, so they do not show these gaps.
TEST_F(Following, ThatIsOverrunByAWholeNumberOfRounds_SaysWhatItKnows) {
  const auto lostOf = [this](unsigned records) {
    RunningDevlog devlog({"-f", "-n", "0"});
    devlog.AwaitLook(kEventRing);
    devlog.Stop(Log());
    WriteUpTo(next_ + records);
    devlog.Process().Signal(SIGCONT);
    const std::string line = devlog.NextLine();
    Expect(devlog, next_ - 1024, next_);
    return line;
  };
  WriteUpTo(1);
  EXPECT_EQ(lostOf(5120), "12:34:56.789 log    -  (4096 or more records lost)");
  EXPECT_EQ(lostOf(9000), "12:34:56.789 log    -  (3880 or more records lost)");
  EXPECT_EQ(lostOf(1025), "12:34:56.789 log    -  (1 or more records lost)");
}

TEST_F(Following, AClearedRing_ShowsWhatComesAfterwards) {
  WriteUpTo(10);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 10);
  for (const unsigned count : {1U, 9U, 10U, 12U}) {
    devlog.Stop(Log());
    TShmQueue_Clear(&Log().Queue());
    const unsigned first = next_;
    WriteUpTo(first + count);
    devlog.Process().Signal(SIGCONT);
    Expect(devlog, first, first + count);
  }
}

TEST_F(Following, BesideAnotherReader_CountsWhatThatOneTook) {
  WriteUpTo(1);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 1);
  devlog.Stop(Log());
  WriteUpTo(4);
  char cell[136];
  for (int taken = 0; taken < 3; ++taken) ASSERT_EQ(TShmQueue_Get(&Log().Queue(), cell, nullptr, sizeof cell), 1);
  devlog.Process().Signal(SIGCONT);
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    -  (2 records lost)");
  Expect(devlog, 3, 4);
}

TEST_F(Following, ADamagedRing_GoesOnWhenARecordBeganItAnew) {
  WriteUpTo(3);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 3);
  const RawRing raw(kLogRing);
  const std::uint32_t wrong = 4711;
  std::memcpy(raw.Bytes() + 16, &wrong, sizeof wrong);
  WriteUpTo(5);
  Expect(devlog, 3, 5);
}

TEST_F(Following, AsJson_KeepsTheSchema) {
  RunningDevlog devlog({"-f", "--json"});
  devlog.AwaitLook(kEventRing);
  Log().Write({.text = "hello", .sequence = 7});
  EXPECT_EQ(devlog.NextLine(),
            R"({"time":"12:34:56.789","ring":"log","type":0,"type_name":"","sequence":7,"records":1,"status":"ok",)"
            R"("detail":"","process":"",)"
            R"("text":"hello"})");
}

TEST_F(Following, WithAFilter_ShowsWhatPasses) {
  RunningDevlog devlog({"-f", "-e", "[05]$"});
  devlog.AwaitLook(kEventRing);
  WriteUpTo(11);
  for (const unsigned number : {0U, 5U, 10U}) Expect(devlog, number, number + 1);
}

TEST_F(Following, WithConsume_TakesWhatComes) {
  WriteUpTo(2);
  RunningDevlog devlog({"-f", "--consume"});
  Expect(devlog, 0, 2);
  for (unsigned end = 3; end < 6; ++end) {
    WriteUpTo(end);
    Expect(devlog, end - 1, end);
  }
  while (TShmQueue_GetCount(&Log().Queue()) != 0) ::sched_yield();  // records are removed after they were written out
  devlog.Process().Signal(SIGTERM);
  EXPECT_EQ(devlog.Wait(), 1000 + SIGTERM);
}

TEST_F(Following, WithConsumeAndALockThatIsHeldForLong_WaitsForIt) {
  WriteUpTo(1);
  TShmQueue_Lock(&Log().Queue());
  RunningDevlog devlog({"-f", "--consume", "--ring", "log"});
  while (devlog.Said().empty()) ::sched_yield();
  TShmQueue_Unlock(&Log().Queue());
  Expect(devlog, 0, 1);
  EXPECT_EQ(devlog.Said(), "devlog: the log ring's lock is held for long (process " + std::to_string(::getpid()) +
                               " had it last)\n");
}

TEST_F(Following, WhileSomebodyHoldsTheLock_ReadsWithoutItAndLeavesItHeld) {
  WriteUpTo(1);
  TShmQueue_Lock(&Log().Queue());
  RunningDevlog devlog({"-f", "--ring", "log"});
  Expect(devlog, 0, 1);
  EXPECT_EQ(SemValue(kLogRing), 0);
  TShmQueue_Unlock(&Log().Queue());
}

TEST_F(Following, ALiveWriter_ShowsEachOfItsMessagesWhole) {
  const auto textOf = [](unsigned number) {
    return std::to_string(number) + ' ' + std::string(number * 37 % 600, static_cast<char>('a' + number % 26));
  };
  constexpr unsigned kMessages = 300;  // fewer than the ring holds, so that a slow reader loses none
  RunningDevlog devlog({"-f", "--ring", "log"});
  devlog.AwaitLook(kLogRing);
  Child writer([&] {
    TLogInfoShm_Open(0, 0, "w");
    for (unsigned number = 0; number < kMessages; ++number) TLogInfoShm_Write(textOf(number).c_str(), 3, 0);
    TLogInfoShm_Close();
    return 0;
  });
  for (unsigned number = 0; number < kMessages; ++number) {
    const std::string line = devlog.NextLine();
    ASSERT_EQ(line.substr(std::min<std::size_t>(line.size(), 12)), " log    3  w" + textOf(number));
  }
  EXPECT_EQ(writer.Wait(), 0);
}

// Removed rings, missing rings, and the end.

TEST_F(Following, ARingThatIsRemoved_ShowsItsLastRecordAndGoesOnWithTheNextRing) {
  WriteUpTo(1);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 1);
  devlog.Stop(Log());
  WriteUpTo(2);
  ::shmctl(Log().Queue().shm.shmid, IPC_RMID, nullptr);
  devlog.Process().Signal(SIGCONT);
  Expect(devlog, 1, 2);
  while (devlog.Said().empty()) ::sched_yield();
  EXPECT_EQ(devlog.Said(), "devlog: the log ring was removed; waiting for another one\n");
  log_.emplace(kLogRing);
  next_ = 0;
  WriteUpTo(2);
  Expect(devlog, 0, 2);
}

TEST_F(Following, ARingWhoseSemaphoreIsRemoved_GoesOn) {
  WriteUpTo(1);
  RunningDevlog devlog({"-f"});
  Expect(devlog, 0, 1);
  ::semctl(Log().Queue().semid, 0, IPC_RMID);
  WriteUpTo(2);
  Expect(devlog, 1, 2);
}

TEST_F(Following, WithoutAReader_EndsWith4AndSaysNothing) {
  RunningDevlog devlog({"-f"});
  devlog.AwaitLook(kEventRing);
  devlog.StopReading();
  EXPECT_EQ(devlog.Wait(), 4);
  EXPECT_EQ(devlog.Said(), "");
}

TEST_F(DevlogTest, ThatFollows_WaitsForRings) {
  RunningDevlog devlog({"-f"});
  while (devlog.Said().empty()) ::sched_yield();
  EXPECT_EQ(devlog.Said(),
            "devlog: there are no rings: no program has opened the log channel since the system started; waiting\n");
  devlog.Process().Signal(SIGSTOP);
  WritableRing log(kLogRing);
  log.Write({{.text = "second", .sequence = 1}, {.text = "third", .sequence = 2}});
  devlog.Process().Signal(SIGCONT);
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    -  (1 record lost)");  // a new ring begins with number 0
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    0  second");
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    0  third");
}

TEST_F(DevlogTest, ThatFollows_TellsOfAForeignSegmentOnceAndTakesTheRingInItsPlace) {
  RunningDevlog devlog({"-f", "--ring", "log"});
  while (devlog.Said().empty()) ::sched_yield();
  const int id = ::shmget(kLogRing.shareKey, 100, IPC_CREAT | 0666);
  while (devlog.Said().find("knows rings of") == std::string::npos) ::sched_yield();
  ::shmctl(id, IPC_RMID, nullptr);
  WritableRing log(kLogRing);
  log.Write({.text = "hello"});
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 log    0  hello");
  EXPECT_EQ(devlog.Said(),
            "devlog: there is no log ring; waiting\n"
            "devlog: the log ring has 100 bytes; this devlog knows rings of 143792\n");
}

TEST_F(DevlogTest, ThatFollowsOneRing_FindsTheOtherWhenItComes) {
  WritableRing log(kLogRing);
  RunningDevlog devlog({"-f"});
  devlog.AwaitLook(kLogRing);
  WritableRing event(kEventRing);
  event.Write({.text = "hello"});
  EXPECT_EQ(devlog.NextLine(), "12:34:56.789 event  0  hello");
}

}  // namespace
