// A process dies inside the store: the others lose time and nothing else.
// DEVSUPPORT_STORE_ROUNDS=<n> runs n per cent of the usual rounds; TMPDIR=<folder> puts the homes there.

#include <db.h>
#include <devsupport/db/DbParam.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/db/Work.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;
using Clock = std::chrono::steady_clock;

std::int64_t Now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch()).count();
}

class Healing : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    victims_.emplace([this](int) { return DieInside(home_); });
    // The tables are there before anybody dies.
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
    BerkDb_Close();
  }

  /// Another process dies in the middle of a change.
  void Kill() const { ASSERT_EQ(victims_->Run(0), 1000 + SIGKILL); }

  void ExpectSoundFile() {
    EXPECT_TRUE(Verify());
    EXPECT_TRUE(IndexesAgree());
  }

 private:
  std::optional<Starter> victims_;
};

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
  DBC *cursor = nullptr;
  int step = -4711;
  Open();
  Kill();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y"), BERKDB_OK);
  Kill();
  EXPECT_EQ(BerkDb_PGet(g_uDb.stb_pb, "7", 1, primary, sizeof primary, data, sizeof data), BERKDB_OK);
  Kill();
  EXPECT_EQ(BerkDb_FindPrefix(g_uDb.stb_1_pb, "2", records, &count), BERKDB_OK);
  EXPECT_EQ(count, 2);
  Kill();
  EXPECT_EQ(BerkDb_CursorGet(g_uDb.tb_pb, &cursor, primary, 0, data, sizeof data, DB_FIRST, &step), BERKDB_OK);
  EXPECT_EQ(step, 0);
  EXPECT_EQ(BerkDb_CursorClose(cursor), 1);
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
  char key[256] = "";
  char data[64];
  DBC *cursor = nullptr;
  int step = -4711;
  ASSERT_EQ(BerkDb_CursorGet(g_uDb.tb_pb, &cursor, key, 0, data, sizeof data, DB_FIRST, &step), BERKDB_OK);
  Kill();
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
  DBT keyRecord = {};
  DBT dataRecord = {};
  EXPECT_EQ(cursor->get(cursor, &keyRecord, &dataRecord, DB_NEXT), DB_RUNRECOVERY);
  err.Take();
  EXPECT_EQ(BerkDb_CursorClose(cursor), 0);
  EXPECT_NE(err.Take(), "");
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
}

TEST_F(Healing, ACursorFromBeforeThatIsClosedFirst_SaysSo) {
  Open();
  char key[256] = "";
  char data[64];
  DBC *cursor = nullptr;
  int step = -4711;
  ASSERT_EQ(BerkDb_CursorGet(g_uDb.tb_pb, &cursor, key, 0, data, sizeof data, DB_FIRST, &step), BERKDB_OK);
  Kill();
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_CursorClose(cursor), 0);
  EXPECT_NE(err.Take(), "");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "124;x"), BERKDB_OK);
}

TEST_F(Healing, ClosingBesideADeadOne_LosesNothing) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  Kill();
  BerkDb_Close();
  Open();
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
  BerkDb_Close();
  ExpectSoundFile();
}

TEST_F(Healing, TwentyThatNoticeAtOnce_AllGoOn) {
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

// A victim that goes inside and stays there until it is told to die.
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

TEST_F(Healing, ThreadsThatWaitAtTheGate_AllGoOn) {
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

TEST_F(Healing, AProcessThatWasStoppedMeanwhile_FollowsWhenItWakesUp) {
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
  waiting.Signal(SIGCONT);  // it is the next one, and the others are patient with the stopped
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

// --- a process killed at random, again and again, beside four that mix everything

constexpr int kSurvivors = 4;

struct Scene {
  std::array<Journal, kSurvivors> survivors;
  Journal victims;
  std::atomic<bool> over;
  std::atomic<int> death;                                        // number of the latest one
  std::atomic<std::int64_t> diedAt;                              // us
  std::array<std::atomic<int>, kSurvivors> answered;             // for which death the survivor has gone on
  std::array<std::atomic<std::int64_t>, kSurvivors> afterwards;  // and how long after it, us
};

int Survive(Scene &scene, int number, std::uint64_t seed) {
  CapturedOutput err(stderr);
  const auto self = static_cast<std::size_t>(number);
  Worker worker(scene.survivors[self], "s" + std::to_string(number), seed);
  while (!scene.over) {
    const int death = scene.death;
    const ::testing::AssertionResult result = worker.Step();
    if (!result) {
      ADD_FAILURE() << result.message() << " after death " << death << "\n" << err.Take();
      return 1;
    }
    if (scene.answered[self] == death) continue;
    scene.afterwards[self] = Now() - scene.diedAt;
    scene.answered[self] = death;
  }
  BerkDb_Close();
  return 0;
}

void Print(const char *what, std::vector<std::int64_t> &times) {
  if (times.empty()) return;
  std::sort(times.begin(), times.end());
  std::cout << what << ": median " << times[times.size() / 2] << " us, maximum " << times.back() << " us\n";
}

TEST_F(Healing, FourSurvivors_AllGoOnWhenAFifthIsKilledAnywhere) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedHint(seed));
  std::mt19937_64 random(seed);
  const SharedBlock<Scene> scene;
  std::vector<Child> survivors;
  for (int i = 0; i < kSurvivors; ++i) {
    survivors.emplace_back([&, i] {
      Open();
      return Survive(*scene, i, seed + static_cast<std::uint64_t>(i));
    });
  }
  int insideChanges = 0;
  std::vector<std::int64_t> times;
  const int rounds = std::max(1, 20 * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100);
  for (int round = 1; round <= rounds; ++round) {
    Child victim([&]() -> int {
      CapturedOutput err(stderr);
      Open();
      Worker worker(scene->victims, "victim", seed + static_cast<std::uint64_t>(100 + round));
      worker.DecideWhatWasUnderWay();
      worker.ChangeForEver();
    });
    const int until = scene->victims.steps + 1 + static_cast<int>(random() % 20);
    while (scene->victims.steps < until && !HasEnded(victim))
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 400));
    const std::int64_t killed = Now();
    victim.Signal(SIGKILL);
    ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
    for (std::size_t key = 0; key < Journal::kKeys; ++key) {
      insideChanges += scene->victims.begun[key] != scene->victims.acknowledged[key] ? 1 : 0;
    }
    scene->diedAt = killed;
    scene->death = round;
    for (std::size_t i = 0; i < kSurvivors; ++i) {
      while (scene->answered[i] != round) {
        ASSERT_FALSE(HasEnded(survivors[i]));
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
      times.push_back(scene->afterwards[i]);
    }
  }
  scene->over = true;
  for (Child &survivor : survivors) EXPECT_EQ(survivor.Wait(), 0);
  Open();
  for (int i = 0; i < kSurvivors; ++i) {
    EXPECT_TRUE(Worker(scene->survivors[static_cast<std::size_t>(i)], "s" + std::to_string(i), 0).HoldsAll());
  }
  EXPECT_TRUE(Worker(scene->victims, "victim", 0).HoldsAll());
  BerkDb_Close();
  ExpectSoundFile();
  std::cout << "killed " << rounds << " times, " << insideChanges << " of them in the middle of a change\n";
  Print("time to each survivor's next success", times);
}

}  // namespace
