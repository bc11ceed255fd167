// SPDX-License-Identifier: MIT
// Several processes and threads at the same time: they open the store together, change the same records, and are
// killed. DEVSUPPORT_STORE_ROUNDS=<n> runs n per cent of the usual rounds; TMPDIR=<folder> is where the homes are
// made.

#include <db.h>
#include <devsupport/db/DbParam.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

// For each key, the value that a writer has begun to store and the one that has been acknowledged.
constexpr int kKeys = 8;
struct Journal {
  std::atomic<int> begun[kKeys];
  std::atomic<int> stored[kKeys];
  std::atomic<int> writes;
};

std::string KeyName(int key) { return "name " + std::to_string(key); }
std::string ValueOf(int n) { return std::to_string(n) + ";" + std::string(static_cast<std::size_t>(n % 90), 'x'); }

/// Half of the keys are in the phone book.
DB *TableOf(int key) { return key % 2 == 0 ? g_uDb.tb_parameter : g_uDb.tb_pb; }

/// Opens the store and writes new values until the process is killed.
int WriteForEver(const std::string &home, Journal &journal, int from) {
  if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) return 2;
  for (int n = from;; ++n) {
    const int key = n % kKeys;
    journal.begun[key] = n;
    if (BerkDb_Set(TableOf(key), KeyName(key).c_str(), ValueOf(n).c_str()) != BERKDB_OK) ::_exit(3);
    journal.stored[key] = n;
    ++journal.writes;
  }
}

/// Whether the store holds all acknowledged values. A value that was being stored may be there or not.
::testing::AssertionResult HoldsAllOf(const Journal &journal) {
  for (int key = 0; key < kKeys; ++key) {
    const int begun = journal.begun[key];
    const int stored = journal.stored[key];
    const std::string value = Get(TableOf(key), KeyName(key).c_str());
    if (value == (stored != 0 ? ValueOf(stored) : "<7>")) continue;
    if (begun != stored && value == ValueOf(begun)) continue;
    return ::testing::AssertionFailure()
           << KeyName(key) << " holds " << value << "; acknowledged was " << stored << ", begun " << begun;
  }
  return ::testing::AssertionSuccess();
}

/// Notes which of the values that were being stored when the writer died are there.
void NoteInterruptedWrites(Journal &journal) {
  for (int key = 0; key < kKeys; ++key) {
    const int begun = journal.begun[key];
    if (Get(TableOf(key), KeyName(key).c_str()) == ValueOf(begun)) journal.stored[key] = begun;
  }
}

class Processes : public StoreTest {
 protected:
  static int Rounds(int normal) { return std::max(1, normal * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100); }

  /// Starts a writer and kills it at a random moment after some writes.
  void KillAWriter(int round) {
    Child writer([&] { return WriteForEver(home_, *journal_, journal_->writes + 1000 * (round + 1)); });
    const int until = journal_->writes + 1 + static_cast<int>(random_() % 30);
    while (journal_->writes < until) std::this_thread::yield();
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random_() % 400);
    while (std::chrono::steady_clock::now() < end) continue;
    writer.Signal(SIGKILL);
    EXPECT_EQ(writer.Wait(), 1000 + SIGKILL);
  }

  const TestSeed seed_;
  std::mt19937_64 random_{seed_};
  const SharedBlock<Journal> journal_;
};

TEST_F(Processes, TenOpeningAnEmptyHomeAtOnce_AllSucceed) {
  for (int round = 0; round < Rounds(50); ++round) {
    const std::string home = home_ + "/" + std::to_string(round);
    ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);
    Event start;
    std::vector<Child> openers;
    for (int i = 0; i < 10; ++i) {
      openers.emplace_back([&, i] {
        start.Wait();
        std::int32_t result = -4711;
        if (BerkDb_Open(home.c_str(), nullptr, &result) != 1) return 100 + result;
        const std::string key = std::to_string(i);
        const bool stored = BerkDb_Set(g_uDb.tb_parameter, key.c_str(), "here") == BERKDB_OK;
        const bool found = Get(g_uDb.tb_parameter, key.c_str()) == "here";
        BerkDb_Close();
        return stored && found ? 0 : 1;
      });
    }
    for (int i = 0; i < 10; ++i) start.Announce();
    for (Child &opener : openers) ASSERT_EQ(opener.Wait(), 0) << "round " << round;
  }
}

TEST_F(Processes, AKilledOpener_BlocksNoOther) {
  for (int round = 0; round < Rounds(100); ++round) {
    Event start;
    Child opener([&] {
      start.Announce();
      for (;;) {
        Open();
        BerkDb_Close();
      }
      return 0;
    });
    start.Wait();
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random_() % 20000);
    while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
    opener.Signal(SIGKILL);
    opener.Wait();
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "v"), BERKDB_OK);
    BerkDb_Close();
  }
  EXPECT_TRUE(Verify());
}

// Does random operations on the same few records, in the open store. Returns whether all succeeded.
bool MixedWork(int operations, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  int bad = 0;
  for (int i = 0; i < operations; ++i) {
    const std::string name = "name " + std::to_string(random() % 5);
    const std::string value = std::to_string(random() % 5) + ";x";
    char primary[64];
    char data[64];
    TDbFindRec records[8];
    std::int32_t count = 8;
    int code = 0;
    switch (random() % 6) {
      case 0:
        code = BerkDb_Set(g_uDb.tb_pb, name.c_str(), value.c_str());
        break;
      case 1:
        code = BerkDb_Get(g_uDb.tb_pb, name.c_str(), data, sizeof data);
        break;
      case 2:
        code = BerkDb_Del(g_uDb.tb_pb, name.c_str());
        break;
      case 3:
        code = BerkDb_PGet(g_uDb.stb_pb, value.c_str(), 1, primary, sizeof primary, data, sizeof data);
        break;
      case 4:
        code = BerkDb_FindPrefix(g_uDb.stb_1_pb, "6263", records, &count);
        break;
      default:
        code = BerkDb_FindPrefix(g_uDb.stb_pb, "", records, &count);
    }
    if (code != BERKDB_OK && code != BERKDB_NOT_FOUND) ++bad;
  }
  return bad == 0;
}

TEST_F(Processes, FourMixingAllOperationsOnTheSameRecords_AllFinishWithoutAnError) {
  std::vector<Child> workers;
  for (std::uint64_t i = 0; i < 4; ++i) {
    workers.emplace_back([&, i] {
      Open();
      const bool isGood = MixedWork(Rounds(5000), seed_ + i);
      BerkDb_Close();
      return isGood ? 0 : 1;
    });
  }
  for (Child &worker : workers) EXPECT_EQ(worker.Wait(), 0);
  ExpectSoundFile();
}

TEST_F(Processes, FourThreadsMixingAllOperations_AllFinishWithoutAnError) {
  Open();
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (std::uint64_t i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] { good += MixedWork(500, seed_ + i) ? 1 : 0; });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(good, 4);
}

TEST_F(Processes, AWriterInALoop_DoesNotKeepTheOthersOut) {
  Child writer([&] { return WriteForEver(home_, *journal_, 1); });
  while (journal_->writes == 0) std::this_thread::yield();
  Open();
  // The writer may pass each of our reads only a few times. Otherwise this would take for ever.
  const int before = journal_->writes;
  for (int i = 0; i < 100; ++i) ASSERT_NE(Get(g_uDb.tb_parameter, "name 0"), "<10>");
  EXPECT_LT(journal_->writes - before, 100 * 100);
  BerkDb_Close();
}

// --- killed processes

TEST_F(Processes, AWriterKilledAtAnyMoment_LosesNothingThatWasAcknowledged) {
  for (int round = 0; round < Rounds(100); ++round) {
    KillAWriter(round);
    Open();
    ASSERT_TRUE(HoldsAllOf(*journal_)) << "round " << round;
    NoteInterruptedWrites(*journal_);
    BerkDb_Close();
    ASSERT_TRUE(Verify()) << "round " << round;
    ASSERT_TRUE(IndexesAgree()) << "round " << round;
  }
}

/// Continues to use the store after the death of another process, closes it, and opens it again.
int Survive(const std::string &home, int round, std::chrono::steady_clock::duration &longest) {
  CapturedOutput err(stderr);
  const auto start = std::chrono::steady_clock::now();
  const int wrote = BerkDb_Set(g_uDb.tb_parameter, "survivor", std::to_string(round).c_str());
  const std::string read = Get(g_uDb.tb_pb, "name 1");
  const std::int32_t number = GetDbParamToInt("survivor", -1);
  longest = std::max(longest, std::chrono::steady_clock::now() - start);
  BerkDb_Close();
  const std::string said = err.Take();
  EXPECT_EQ(wrote, BERKDB_OK) << said;
  EXPECT_NE(read, "<10>") << said;
  EXPECT_EQ(number, round);
  EXPECT_EQ(said, "");
  EXPECT_EQ(BerkDb_Open(home.c_str(), nullptr, nullptr), 1);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "survivor"), std::to_string(round));
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_parameter, "after", "1"), BERKDB_OK);
  BerkDb_Close();
  return ::testing::Test::HasFailure() ? 1 : 0;
}

TEST_F(Processes, AProcessKilledInItsWrites_DoesNotStopTheOthers) {
  const SharedBlock<std::chrono::steady_clock::duration> longest;
  for (int round = 0; round < Rounds(100); ++round) {
    Event opened;
    Event killed;
    Child survivor([&] {
      Open();
      opened.Announce();
      killed.Wait();
      return Survive(home_, round, *longest);
    });
    opened.Wait();
    KillAWriter(round);
    killed.Announce();
    ASSERT_EQ(survivor.Wait(), 0) << "round " << round;
    Open();
    ASSERT_TRUE(HoldsAllOf(*journal_)) << "round " << round;
    NoteInterruptedWrites(*journal_);
    BerkDb_Close();
  }
  ExpectSoundFile();
  std::cout << "longest three operations of a survivor: "
            << std::chrono::duration_cast<std::chrono::microseconds>(*longest).count() << " us\n";
}

TEST_F(Processes, BusySurvivors_AllContinueWhenOneIsKilled) {
  for (int round = 0; round < Rounds(20); ++round) {
    const SharedBlock<std::atomic<bool>> killed;
    std::vector<Child> survivors;
    Event ready;
    for (int i = 0; i < 3; ++i) {
      survivors.emplace_back([&, i] {
        CapturedOutput err(stderr);
        Open();
        ready.Announce();
        std::mt19937_64 mine(static_cast<std::uint64_t>(i));
        int afterwards = 0;
        while (afterwards < 100) {
          char data[128];
          const int code = mine() % 4 == 0 ? BerkDb_Set(g_uDb.tb_pb, "shared", "1;x")
                                           : BerkDb_Get(g_uDb.tb_pb, "name 1", data, sizeof data);
          if (code != BERKDB_OK && code != BERKDB_NOT_FOUND) return 1;
          if (*killed) ++afterwards;
        }
        BerkDb_Close();
        return 0;
      });
    }
    for (int i = 0; i < 3; ++i) ready.Wait();
    KillAWriter(round);
    *killed = true;
    for (Child &survivor : survivors) EXPECT_EQ(survivor.Wait(), 0);
    Open();
    ASSERT_TRUE(HoldsAllOf(*journal_)) << "round " << round;
    for (int key = 0; key < kKeys; ++key) {
      journal_->stored[key] = journal_->begun[key] = 0;
      BerkDb_Del(TableOf(key), KeyName(key).c_str());
    }
    BerkDb_Close();
  }
}

TEST_F(Processes, AfterADeathInside_OpeningHealsAndProcessesWithTheStoreOpenFollow) {
  Open();
  BerkDb_Close();
  Event opened;
  Event goOn;
  Child survivor([&] {
    CapturedOutput err(stderr);
    Open();
    struct __db *const old = g_uDb.tb_tone;
    opened.Announce();
    goOn.Wait();
    const bool sees = Get(old, "after") == "1";
    BerkDb_Close();
    return sees && err.Take().empty() ? 0 : 1;
  });
  opened.Wait();
  Child victim([&] {
    Open();
    g_uDb.tb_tone->put = [](DB *, DB_TXN *, DBT *, DBT *, u_int32_t) { return ::raise(SIGKILL); };
    return BerkDb_Set(g_uDb.tb_tone, "k", "v");
  });
  EXPECT_EQ(victim.Wait(), 1000 + SIGKILL);
  CapturedOutput err(stderr);
  Open();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "after", "1"), BERKDB_OK);
  goOn.Announce();
  EXPECT_EQ(survivor.Wait(), 0);
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Processes, ADeathOutsideOfAnyOperation_HasNoEffect) {
  Open();
  BerkDb_Close();
  Event opened;
  Child victim([&] {
    Open();
    BerkDb_Set(g_uDb.tb_tone, "k", "v");
    opened.Announce();
    ::pause();
    return 0;
  });
  opened.Wait();
  Open();
  victim.Signal(SIGKILL);
  victim.Wait();
  CapturedOutput err(stderr);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "w"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "");
}

}  // namespace
