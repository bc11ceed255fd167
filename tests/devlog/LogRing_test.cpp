// SPDX-License-Identifier: MIT
// Attaching and reading a ring, also when system calls fail.

#include "tools/devlog/LogRing.h"

#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <memory>

#include "tests/devlog/Devlog.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devlog;
using devlog_test::RecordedRings;
using namespace devsupport::test;

// NOLINTNEXTLINE(performance-no-int-to-ptr): how shmat() reports errors
DEVSUPPORT_FAULT_POINT(void *, shmat, (int id, const void *at, int flags), (id, at, flags),
                       reinterpret_cast<void *>(-1), EMFILE)
DEVSUPPORT_FAULT_POINT(int, shmget, (key_t key, size_t size, int flags), (key, size, flags), -1, EACCES)
DEVSUPPORT_FAULT_POINT(int, semget, (key_t key, int count, int flags), (key, count, flags), -1, EACCES)
DEVSUPPORT_FAULT_POINT(int, semtimedop, (int id, sembuf *operations, size_t count, const timespec *limit),
                       (id, operations, count, limit), -1, EINTR)

class AttachedRing : public RecordedRings {
 protected:
  /// Attaches the log ring and returns the messages to the user.
  std::string Attach(Found expected, Access access = Access::Look) {
    CapturedOutput err(stderr);
    EXPECT_EQ(ring_.Attach(access), expected);
    return err.Take();
  }
  /// Copies new records and returns the messages to the user.
  std::string Copy(bool expected, std::size_t cells) {
    CapturedOutput err(stderr);
    News news;
    EXPECT_EQ(ring_.CopyNew(news), expected);
    EXPECT_EQ(news.cells.size(), cells);
    if (expected) {
      EXPECT_TRUE(ring_.Pass(cells));
    }
    return err.Take();
  }

  std::unique_ptr<Cell[]> room_{new Cell[kLogCells]};
  devlog::LogRing ring_{Ring::Log, std::span<Cell>(room_.get(), kLogCells)};
};

TEST_F(AttachedRing, ThatMayNotBeRead_IsUnusable) {
  const FailCall fail("shmget", 1);
  EXPECT_EQ(Attach(Found::Unusable), "devlog: the log ring cannot be read: Permission denied\n");
  EXPECT_FALSE(ring_.IsAttached());
}

TEST_F(AttachedRing, ThatCannotBeAttached_IsUnusable) {
  const FailCall fail("shmat", 1);
  EXPECT_EQ(Attach(Found::Unusable), "devlog: the log ring cannot be attached: Too many open files\n");
  EXPECT_FALSE(ring_.IsAttached());
}

TEST_F(AttachedRing, WhoseLockMayNotBeUsed_IsReadWithoutItAndSaysSoOnce) {
  Log().Write({.text = "hello"});
  EXPECT_EQ(Attach(Found::Attached), "");
  const FailCall fail("semget", FailCall::kEvery);
  EXPECT_EQ(Copy(true, 1), "devlog: the log ring's lock cannot be used: Permission denied; reading without it\n");
  EXPECT_EQ(Copy(true, 0), "");
}

TEST_F(AttachedRing, WhoseLockCannotBeMade_LosesNothingToAConsumer) {
  Log().Write({.text = "hello"});
  EXPECT_EQ(Attach(Found::Attached, Access::Take), "");
  {
    const FailCall fail("semget", FailCall::kEvery);
    EXPECT_EQ(Copy(false, 0), "devlog: the log ring's lock cannot be used: Permission denied\n");
  }
  EXPECT_EQ(Copy(true, 1), "");
}

TEST_F(AttachedRing, WhoseLockIsInterruptedByASignal_TriesAgain) {
  Log().Write({.text = "hello"});
  EXPECT_EQ(Attach(Found::Attached), "");
  const FailCall fail("semtimedop", 1);
  EXPECT_EQ(Copy(true, 1), "");
  EXPECT_TRUE(fail.Happened());
}

TEST_F(AttachedRing, WhoseRecordsAreNotPassed_ShowsThemAgain) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}, {.text = "three", .sequence = 2}});
  EXPECT_EQ(Attach(Found::Attached), "");
  News news;
  EXPECT_TRUE(ring_.CopyNew(news));
  EXPECT_EQ(news.cells.size(), 3U);
  EXPECT_TRUE(ring_.Pass(1));
  EXPECT_TRUE(ring_.HasNews());
  EXPECT_EQ(Copy(true, 2), "");
  EXPECT_FALSE(ring_.HasNews());
}

TEST_F(AttachedRing, WhoseRecordsAreTaken_LosesOnlyThoseThatWerePassed) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}, {.text = "three", .sequence = 2}});
  EXPECT_EQ(Attach(Found::Attached, Access::Take), "");
  News news;
  EXPECT_TRUE(ring_.CopyNew(news));
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 3);
  EXPECT_TRUE(ring_.Pass(2));
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1);
}

// New records have overwritten those to be removed.
TEST_F(AttachedRing, ThatIsOverrunBeforeItsRecordsAreTaken_KeepsItsNewOnes) {
  Log().Write({.text = "old"});
  EXPECT_EQ(Attach(Found::Attached, Access::Take), "");
  News news;
  EXPECT_TRUE(ring_.CopyNew(news));
  for (unsigned number = 1; number < 1500; ++number) Log().Write({.text = "new", .sequence = number});
  EXPECT_TRUE(ring_.Pass(1));
  EXPECT_EQ(TShmQueue_GetCount(&Log().Queue()), 1024);
  EXPECT_TRUE(ring_.CopyNew(news));
  EXPECT_EQ(news.overrun, 1025U);
  EXPECT_EQ(news.cells.size(), 1024U);
}

TEST_F(AttachedRing, FromAPosition_GoesOnThere) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 1}});
  EXPECT_EQ(Attach(Found::Attached), "");
  News news;
  EXPECT_TRUE(ring_.CopyNew(news));
  EXPECT_TRUE(ring_.Pass(1));
  Position position{};
  ASSERT_TRUE(ring_.GetPosition(position));
  ring_.Detach();
  EXPECT_FALSE(ring_.GetPosition(position));
  EXPECT_EQ(Attach(Found::Attached), "");
  ring_.GoOnFrom(position);
  EXPECT_EQ(Copy(true, 1), "");
}

TEST_F(AttachedRing, HasNewsOnceForEachRecord) {
  EXPECT_EQ(Attach(Found::Attached), "");
  EXPECT_TRUE(ring_.HasNews());
  EXPECT_EQ(Copy(true, 0), "");
  EXPECT_FALSE(ring_.HasNews());
  Log().Write({.text = "hello"});
  EXPECT_TRUE(ring_.HasNews());
  EXPECT_EQ(Copy(true, 1), "");
  EXPECT_FALSE(ring_.HasNews());
}

}  // namespace
