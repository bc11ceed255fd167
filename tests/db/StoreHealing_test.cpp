// SPDX-License-Identifier: MIT
// A process dies inside the store. The others are delayed but lose nothing. Each test has one situation;
// StoreStorm_test.cpp mixes all of them.

#include <db.h>
#include <devsupport/db/DbParam.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;

class Healing : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    victims_.emplace([this](int) { return DieInside(home_); });
    // Creates the tables before the first death.
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
    BerkDb_Close();
  }

  /// Another process dies in the middle of a change.
  void Kill() const { ASSERT_EQ(victims_->Run(0), 1000 + SIGKILL); }

 private:
  std::optional<Starter> victims_;
};

// First, and in a separate process, because a process can change to new regions only 256 times in its life.
TEST_F(Healing, After256Deaths_NeedsTheStoreOpenedAgain) {
  Child survivor([this] {
    Open();
    for (int death = 1; death <= 256; ++death) {
      Kill();
      EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x") << death;
    }
    Kill();
    char value[64];
    EXPECT_EQ(BerkDb_Get(g_uDb.tb_pb, "Bob 1", value, sizeof value), BERKDB_ERROR);
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_ERROR);
    BerkDb_Close();
    Open();
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(survivor.Wait(), 0);
  ExpectSoundFile();
}

TEST_F(Healing, ASurvivorsNextOperations_AnswerAsUsual) {
  Open();
  Kill();
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
  const std::string dead = Get(g_uDb.tb_tone, "dies");
  EXPECT_TRUE(dead == "inside" || dead == "<7>") << dead;
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Healing, AnyOperationThatComesFirst_IsCarriedOut) {
  char primary[64];
  char data[64];
  TDbFindRec records[4];
  std::int32_t count = 4;
  Open();
  Kill();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y"), BERKDB_OK);
  Kill();
  EXPECT_EQ(BerkDb_PGet(g_uDb.stb_pb, "7", 1, primary, sizeof primary, data, sizeof data), BERKDB_OK);
  Kill();
  EXPECT_EQ(BerkDb_FindPrefix(g_uDb.stb_1_pb, "2", records, &count), BERKDB_OK);
  EXPECT_EQ(count, 2);
  Kill();
  EXPECT_EQ(BerkDb_CursorClose(CursorOnFirst(g_uDb.tb_pb)), 1);
  Kill();
  EXPECT_EQ(BerkDb_Put(g_uDb.tb_parameter, "number", "12", 3), BERKDB_OK);
  Kill();
  EXPECT_EQ(GetDbParamToInt("number", -1), 12);
  Kill();
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_pb, "Ann"), BERKDB_OK);
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Healing, ANewProcess_OpensAndHeals) {
  Event died;
  Child newcomer([&] {
    died.Wait();
    Open();
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "newcomer"), BERKDB_OK);
    BerkDb_Close();
    return 0;
  });
  Open();
  Kill();
  died.Announce();
  EXPECT_EQ(newcomer.Wait(), 0);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "newcomer") << "seen by those who were here before";
}

TEST_F(Healing, AHandleCopiedBefore_StillMeansItsTable) {
  Open();
  DB *const phoneBook = g_uDb.tb_pb;
  DB *const index = g_uDb.stb_pb;
  for (int round = 0; round < 3; ++round) {
    Kill();
    const std::string name = "Ann " + std::to_string(round);
    char primary[64] = "";
    char data[64] = "";
    EXPECT_EQ(BerkDb_Set(phoneBook, name.c_str(), "7;y"), BERKDB_OK);
    EXPECT_EQ(Get(g_uDb.tb_pb, name.c_str()), "7;y") << "under the phone book's key";
    EXPECT_EQ(BerkDb_PGet(index, "7", 1, primary, sizeof primary, data, sizeof data), BERKDB_OK);
    EXPECT_EQ(BerkDb_Del(phoneBook, name.c_str()), BERKDB_OK);
  }
}

TEST_F(Healing, ACursorFromBefore_IsClosed) {
  Open();
  DBC *cursor = CursorOnFirst(g_uDb.tb_pb);
  ASSERT_NE(cursor, nullptr);
  Kill();
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
  DBT keyRecord = {};
  DBT dataRecord = {};
  EXPECT_EQ(cursor->get(cursor, &keyRecord, &dataRecord, DB_NEXT), DB_RUNRECOVERY);
  err.Take();
  DB *const current = g_uDb.tb_pb;
  EXPECT_EQ(BerkDb_CursorClose(cursor), 0);
  EXPECT_NE(err.Take(), "");
  EXPECT_EQ(g_uDb.tb_pb, current) << "the store was rebuilt once more";
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
}

TEST_F(Healing, ACursorFromBeforeThatIsClosedFirst_IsReported) {
  Open();
  DBC *cursor = CursorOnFirst(g_uDb.tb_pb);
  ASSERT_NE(cursor, nullptr);
  Kill();
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_CursorClose(cursor), 0);
  EXPECT_NE(err.Take(), "");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "124;x"), BERKDB_OK);
}

TEST_F(Healing, ClosingAfterAnothersDeath_LosesNothing) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  Kill();
  BerkDb_Close();
  Open();
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Healing, TwentyThatNoticeAtOnce_AllContinue) {
  Event opened;
  Event start;
  std::vector<Child> survivors;
  for (int i = 0; i < 20; ++i) {
    survivors.emplace_back([&, i] {
      Open();
      opened.Announce();
      const std::string key = "survivor " + std::to_string(i);
      for (int round = 0; round < 3; ++round) {
        start.Wait();
        EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, key.c_str(), std::to_string(round).c_str()), BERKDB_OK);
        EXPECT_EQ(Get(g_uDb.tb_pb, key.c_str()), std::to_string(round));
        opened.Announce();
      }
      BerkDb_Close();
      return 0;
    });
  }
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 20; ++i) opened.Wait();
    Kill();
    for (int i = 0; i < 20; ++i) start.Announce();
  }
  for (Child &survivor : survivors) EXPECT_EQ(survivor.Wait(), 0);
  ExpectSoundFile();
}

// A process that enters the gate and stays inside until it is killed.
class Sleeper {
 public:
  explicit Sleeper(const std::string &home)
      : victim_([&] {
          if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) return 2;
          s_inside = &inside_;
          db_env_set_func_fsync([](int) {
            s_inside->Announce();
            return ::pause();
          });
          go_.Wait();
          return BerkDb_Set(g_uDb.tb_tone, "dies", "inside");
        }) {}
  void GoInside() const {
    go_.Announce();
    inside_.Wait();
  }
  void Die() {
    victim_.Signal(SIGKILL);
    victim_.Wait();
  }

 private:
  static inline const Event *s_inside = nullptr;
  Event go_;
  Event inside_;
  Child victim_;
};

TEST_F(Healing, ThreadsThatWaitAtTheGate_AllContinue) {
  Sleeper victim(home_);
  Open();
  victim.GoInside();
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&, i] {
      const std::string key = "thread " + std::to_string(i);
      if (BerkDb_Set(g_uDb.tb_pb, key.c_str(), "1;x") == BERKDB_OK && Get(g_uDb.tb_pb, key.c_str()) == "1;x") ++good;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // most of them wait by then
  victim.Die();
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(good, 6);
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Healing, AProcessThatWasStoppedMeanwhile_ChangesToTheNewRegions) {
  Event ready;
  Event go;
  Child idle([&] {
    Open();
    ready.Announce();
    go.Wait();
    EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "idle", "1"), BERKDB_OK);
    BerkDb_Close();
    return 0;
  });
  ready.Wait();
  Event waitingOpened;
  Event waitingGo;
  Sleeper victim(home_);
  Child waiting([&] {
    Open();
    waitingOpened.Announce();
    waitingGo.Wait();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "waiting", "1"), BERKDB_OK);
    BerkDb_Close();
    return 0;
  });
  waitingOpened.Wait();
  victim.GoInside();
  waitingGo.Announce();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // it waits at the gate by then
  idle.Signal(SIGSTOP);
  waiting.Signal(SIGSTOP);
  victim.Die();
  waiting.Signal(SIGCONT);  // it is the next one, and the others wait for the stopped one
  EXPECT_EQ(waiting.Wait(), 0);
  Open();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  idle.Signal(SIGCONT);
  go.Announce();
  EXPECT_EQ(idle.Wait(), 0);
  EXPECT_EQ(Get(g_uDb.tb_tone, "idle"), "1");
  EXPECT_EQ(Get(g_uDb.tb_tone, "waiting"), "1");
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Healing, AHealerThatIsKilled_IsHealedByTheNext) {
  const Starter healers([this](int nth) {
    DieAtSync(nth);
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
    BerkDb_Set(g_uDb.tb_tone, "k", "healer");
    return ::raise(SIGKILL);
  });
  Open();
  for (int nth = 1; nth <= 12; ++nth) {
    SCOPED_TRACE(nth);
    Kill();
    for (int i = 0; i < 3; ++i) ASSERT_EQ(healers.Run(nth), 1000 + SIGKILL);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "survivor"), BERKDB_OK);
    ASSERT_EQ(Get(g_uDb.tb_tone, "k"), "survivor");
    ASSERT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
  }
  BerkDb_Close();
  ExpectSoundFile();
}

}  // namespace
