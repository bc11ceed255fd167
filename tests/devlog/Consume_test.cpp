// SPDX-License-Identifier: MIT
// devlog with recorded rings: what it does not change, and what it removes with --consume.

#include <unistd.h>

#include <string>

#include "tests/devlog/Devlog.h"
#include "tests/support/IpcKey.h"

namespace {

using namespace devlog_test;
using namespace devsupport::test;

// What devlog does not change.

TEST_F(RecordedRings, StayAsTheyAre) {
  Log().Write({.text = "hello"});
  const auto logBytes = Log().Bytes();
  const auto eventBytes = Event().Bytes();
  const int objects = CountIpcObjects();
  for (const Words &words : {Words{}, Words{"--json", "-n", "1"}, Words{"--stats"}}) {
    EXPECT_NE(Shown(words), "");
    EXPECT_EQ(Log().Bytes(), logBytes);
    EXPECT_EQ(Event().Bytes(), eventBytes);
    EXPECT_EQ(SemValue(kLogRing), 1);
    EXPECT_EQ(SemValue(kEventRing), 1);
    EXPECT_EQ(Attachments(kLogRing), 1U);
    EXPECT_EQ(CountIpcObjects(), objects);
  }
}

TEST_F(RecordedRings, WhoseProgramsHaveAllLeft_AreShownWithoutALockAndNoneIsMade) {
  Log().Write({.text = "hello"});
  log_.reset();
  event_.reset();
  EXPECT_EQ(CountIpcObjects(), 2);
  EXPECT_EQ(Shown({}), "12:34:56.789 log    0  hello\n");
  EXPECT_EQ(CountIpcObjects(), 2);
}

TEST_F(RecordedRings, ThatOnlyDeadProgramsUsed_KeepTheirLocks) {
  Log().Write({.text = "hello"});
  ::shmdt(Log().Queue().header);
  EXPECT_EQ(Attachments(kLogRing), 0U);
  EXPECT_EQ(Shown({}), "12:34:56.789 log    0  hello\n");
  EXPECT_EQ(SemValue(kLogRing), 1);
}

TEST_F(RecordedRings, WhoseLockIsNotGivenBack_AreReadWithoutIt) {
  Log().Write({.text = "hello"});
  TShmQueue_Lock(&Log().Queue());
  EXPECT_EQ(Devlog({"--ring", "log"}).Run(),
            (CommandResult{0, "12:34:56.789 log    0  hello\n",
                           "devlog: the log ring's lock is held for long (process " + std::to_string(::getpid()) +
                               " had it last); reading without it\n"}));
  EXPECT_EQ(SemValue(kLogRing), 0);
}

// Removing records.

TEST_F(RecordedRings, WithConsume_AreEmptyAfterwards) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}});
  Event().Write({.text = "three"});
  EXPECT_EQ(Lines(Shown({"--consume"})).size(), 3U);
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 0);
  EXPECT_EQ(TShmQueue_GetCount(&Event().Queue()), 0);
  EXPECT_EQ(Shown({}), "");
  Log().Write({.text = "four", .sequence = 2});
  EXPECT_EQ(Shown({}), "12:34:56.789 log    0  four\n");
}

TEST_F(RecordedRings, WithConsume_LoseAlsoWhatIsNotShown) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1, .type = 2}});
  EXPECT_EQ(Shown({"--consume", "-t", "2"}), "12:34:56.789 log    2  two\n");
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 0);
}

TEST_F(RecordedRings, WithConsume_KeepWhatCouldNotBeWritten) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}});
  EXPECT_EQ(Devlog({"--consume"}).OutputTo("/dev/full").Run().status, 4);
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 2);
}

TEST_F(RecordedRings, WithConsumeOfOneRing_KeepTheOther) {
  Log().Write({.text = "one"});
  Event().Write({.text = "two"});
  EXPECT_EQ(Shown({"--consume", "--ring", "event"}), "12:34:56.789 event  0  two\n");
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1);
}

TEST_F(RecordedRings, WithConsumeAndALockThatIsNeverFree_KeepTheirRecords) {
  Log().Write({.text = "one"});
  TShmQueue_Lock(&Log().Queue());
  EXPECT_EQ(Devlog({"--consume", "--ring", "log"}).Run(),
            (CommandResult{5, "",
                           "devlog: the log ring's lock is held for long (process " + std::to_string(::getpid()) +
                               " had it last)\n"}));
  TShmQueue_Unlock(&Log().Queue());
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1);
}

TEST_F(RecordedRings, WithConsumeAfterAllProgramsLeft_AreTakenUnderALockOfItsOwn) {
  Log().Write({.text = "one"});
  log_.reset();
  EXPECT_EQ(Shown({"--consume"}), "12:34:56.789 log    0  one\n");
  EXPECT_EQ(SemValue(kLogRing), 1);
  EXPECT_EQ(Shown({}), "");
}

}  // namespace
