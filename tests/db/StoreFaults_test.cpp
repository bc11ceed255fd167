// SPDX-License-Identifier: MIT
// Failing calls of the system and of the library: closing files, memory, the clock, binding an index.

#include <db.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>

#include "db/for_project/Deadline.h"
#include "tests/db/Deaths.h"
#include "tests/db/FailingAssociate.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

// The descriptor is closed even so, as on Linux.
DEVSUPPORT_FAULT_POINT(int, close, (int fd), (fd), (__real_close(fd), errno = EIO, -1), EIO)
DEVSUPPORT_FAULT_POINT(int, fsync, (int fd), (fd), -1, EIO)

namespace {

std::atomic<int> g_wallClockReads{0};
std::atomic<int> g_secondsAhead{0};     // of the steady clock
std::atomic<int> g_secondsPerRead{0};   // by which it is further ahead with each read
std::atomic<int> g_allocationsLeft{0};  // until the one that fails; 0: none

}  // namespace

extern "C" int __real_clock_gettime(clockid_t clock, timespec *pTime);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *pTime);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *pTime) {
  if (clock == CLOCK_REALTIME) ++g_wallClockReads;
  const int result = __real_clock_gettime(clock, pTime);
  if (clock == CLOCK_MONOTONIC) pTime->tv_sec += g_secondsAhead += g_secondsPerRead;
  return result;
}

namespace {

using namespace devsupport::test;

class Faults : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
    BerkDb_Close();
  }

  static std::string NameOf(const std::string &number) {
    char primary[64] = "";
    char data[64] = "";
    const int code = BerkDb_PGet(g_uDb.stb_pb, number.c_str(), static_cast<std::int32_t>(number.size()), primary,
                                 sizeof primary, data, sizeof data);
    return code == BERKDB_OK ? primary : "<" + std::to_string(code) + ">";
  }
};

TEST_F(Faults, AnIndexThatCouldNotBeBound_IsCompleteAtTheNextOpening) {
  {
    CapturedOutput err(stderr);
    g_associateFails = true;
    Open();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y"), BERKDB_OK);
    BerkDb_Close();
    g_associateFails = false;
  }
  CapturedOutput err(stderr);
  Open();
  EXPECT_EQ(NameOf("7"), "Ann") << err.Take();
  EXPECT_EQ(NameOf("123"), "Bob 1");
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Faults, AnIndexThatCouldNotBeEmptied_IsCompleteAtTheOpeningAfterThat) {
  const CapturedOutput err(stderr);
  g_associateFails = true;
  Open();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y"), BERKDB_OK);
  BerkDb_Close();
  g_associateFails = false;
  g_truncateFails = true;
  Open();
  EXPECT_EQ(NameOf("123"), "Bob 1");
  BerkDb_Close();
  g_truncateFails = false;
  Open();
  EXPECT_EQ(NameOf("7"), "Ann");
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Faults, AnIndexThatCouldNotBeBoundByADeadProcess_IsCompleteAtTheNextOpening) {
  Child process([this] {
    const CapturedOutput err(stderr);
    g_associateFails = true;
    Open();
    BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y");
    return ::raise(SIGKILL);
  });
  ASSERT_EQ(process.Wait(), 1000 + SIGKILL);
  CapturedOutput err(stderr);
  Open();
  EXPECT_EQ(NameOf("7"), "Ann") << err.Take();
  BerkDb_Close();
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Faults, FilesThatFailToClose_LoseNothing) {
  for (int nth = 1; nth <= 40; ++nth) {
    const std::string value = std::to_string(nth);
    bool happened = false;
    {
      const CapturedOutput err(stderr);
      Open();
      ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", value.c_str()), BERKDB_OK);
      const FailCall fail("close", nth);
      BerkDb_Close();
      happened = fail.Happened();
    }
    CapturedOutput err(stderr);
    Open();
    ASSERT_EQ(Get(g_uDb.tb_tone, "k"), value) << "close " << nth << ": " << err.Take();
    BerkDb_Close();
    if (!happened) {
      EXPECT_GT(nth, 2);
      return;
    }
  }
}

void *FailingMalloc(std::size_t bytes) {
  if (g_allocationsLeft != 0 && --g_allocationsLeft == 0) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::malloc(bytes);
}
void *FailingRealloc(void *old, std::size_t bytes) {
  if (g_allocationsLeft != 0 && --g_allocationsLeft == 0) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::realloc(old, bytes);
}

// Makes each allocation of the library in one operation fail in turn, each in a separate process. Returns their
// number.
template <typename TOperation>
int FailEachAllocation(const std::string &home, TOperation operation) {
  for (int nth = 1; nth < 400; ++nth) {
    Child process([&] {
      const CapturedOutput err(stderr);
      if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) return 2;
      db_env_set_func_malloc(FailingMalloc);
      db_env_set_func_realloc(FailingRealloc);
      g_allocationsLeft = nth;
      const int code = operation();
      const bool failed = g_allocationsLeft == 0;
      g_allocationsLeft = 0;
      if (code != BERKDB_OK && code != BERKDB_ERROR && code != BERKDB_NO_CURSOR) return 3;
      if (!failed && code != BERKDB_OK) return 4;
      if (Get(g_uDb.tb_pb, "Bob 1") != "123;x") return 5;
      if (BerkDb_Set(g_uDb.tb_tone, "after", "ward") != BERKDB_OK) return 6;
      BerkDb_Close();
      return failed ? 0 : 10;
    });
    const int status = process.Wait();
    if (status == 10) return nth - 1;
    EXPECT_EQ(status, 0) << "allocation " << nth;
    if (status != 0) return nth;
  }
  return 400;
}

TEST_F(Faults, AllocationsThatFailInAStore_AreAnErrorAndNoMore) {
  const int count = FailEachAllocation(home_, [] { return BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y"); });
  EXPECT_GT(count, 0);
  ExpectSoundFile();
}

TEST_F(Faults, AllocationsThatFailInASearch_AreAnErrorAndNoMore) {
  FailEachAllocation(home_, [] {
    TDbFindRec records[4];
    std::int32_t count = 4;
    return BerkDb_FindPrefix(g_uDb.stb_pb, "1", records, &count);
  });
  EXPECT_TRUE(Verify());
}

TEST_F(Faults, AllocationsThatFailInADeletion_AreAnErrorAndNoMore) {
  FailEachAllocation(home_, [] {
    const int stored = BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y");
    return stored == BERKDB_OK ? BerkDb_Del(g_uDb.tb_pb, "Ann") : stored;
  });
  ExpectSoundFile();
}

TEST_F(Faults, AllocationsThatFailInOpening_AreACodeAndNoMore) {
  int nth = 1;
  for (bool failed = true; failed && nth < 3000; nth += 7) {
    Child process([&] {
      const CapturedOutput err(stderr);
      db_env_set_func_malloc(FailingMalloc);
      db_env_set_func_realloc(FailingRealloc);
      g_allocationsLeft = nth;
      std::int32_t code = -4711;
      const int opened = BerkDb_Open(home_.c_str(), nullptr, &code);
      const bool happened = g_allocationsLeft == 0;
      g_allocationsLeft = 0;
      if ((opened == 1) != (code == 0)) return 3;
      BerkDb_Close();
      if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 4;
      if (Get(g_uDb.tb_pb, "Bob 1") != "123;x") return 5;
      BerkDb_Close();
      return happened ? 0 : 10;
    });
    const int status = process.Wait();
    failed = status != 10;
    ASSERT_TRUE(status == 0 || status == 10) << "allocation " << nth << ": " << status;
  }
  ExpectSoundFile();
}

TEST_F(Faults, DataOfADeadProcessThatCannotBeFlushed_StopsTheOpening) {
  Child victim([this] { return DieInside(home_); });
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  {
    const FailCall fail("fsync", 1);
    EXPECT_EQ(TryToOpen(home_), RefusedOpening(home_, "Input/output error"));
    EXPECT_TRUE(fail.Happened());
  }
  BerkDb_Close();
  Open();
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
}

TEST_F(Faults, AProcessThatWasStoppedForAnHour_HasNoTimeLeftToWait) {
  devsupport::store::Deadline deadline;
  EXPECT_EQ(deadline.LeftMs(), devsupport::store::Deadline::kLimitMs);
  EXPECT_TRUE(deadline.Pause(1));
  g_secondsAhead = 3600;
  EXPECT_LE(deadline.LeftMs(), 0);
  EXPECT_FALSE(deadline.Pause(1));
  g_secondsAhead = 0;
}

TEST_F(Faults, ALockThatIsKept_IsAnErrorAtTheDeadline) {
  Open();
  DB_TXN *pTxn = nullptr;
  ASSERT_EQ(BerkDb_GetEnv()->txn_begin(BerkDb_GetEnv(), nullptr, &pTxn, 0), 0);
  char text[] = "k";
  DBT record = {};
  record.data = text;
  record.size = sizeof text;
  ASSERT_EQ(g_uDb.tb_tone->put(g_uDb.tb_tone, pTxn, &record, &record, 0), 0);
  CapturedOutput err(stderr);
  g_secondsPerRead = 1;
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_ERROR);
  g_secondsPerRead = g_secondsAhead = 0;
  EXPECT_NE(err.Take().find("DB_LOCK_"), std::string::npos) << "killed, or not let in by the gate";
  EXPECT_EQ(pTxn->abort(pTxn), 0);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
}

TEST_F(Faults, WaitingForAnother_NeverReadsTheWallClock) {
  Event opened;
  Event inside;
  Child holder([&] {
    static const Event *s_inside = nullptr;
    s_inside = &inside;
    Open();
    opened.Wait();
    db_env_set_func_fsync([](int) {
      s_inside->Announce();
      return ::pause();
    });
    return BerkDb_Set(g_uDb.tb_tone, "k", "v");
  });
  Open();
  opened.Announce();
  inside.Wait();
  const CapturedOutput err(stderr);
  const int before = g_wallClockReads;
  char value[16];
  EXPECT_EQ(BerkDb_Get(g_uDb.tb_pb, "Bob 1", value, sizeof value), BERKDB_ERROR) << "after 8 s";
  EXPECT_EQ(g_wallClockReads, before);
}

}  // namespace
