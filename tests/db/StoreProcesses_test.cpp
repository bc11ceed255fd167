// SPDX-License-Identifier: MIT
// Several processes and threads at once: opening together, working on the same records, and being killed.
// DEVSUPPORT_STORE_ROUNDS=<n> runs n per cent of the usual rounds; TMPDIR=<folder> puts the homes there.

#include <db.h>
#include <devsupport/db/DbParam.h>
#include <sys/mman.h>
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
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

/// Memory that forked processes share.
template <typename T>
class Shared {
 public:
  Shared()
      : p_(static_cast<T *>(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~Shared() { ::munmap(p_, sizeof(T)); }
  Shared(const Shared &) = delete;
  Shared &operator=(const Shared &) = delete;
  T *operator->() const { return p_; }
  T &operator*() const { return *p_; }

 private:
  T *p_;
};

// What a writer has begun to store and what has been acknowledged, key by key.
constexpr int kKeys = 8;
struct Journal {
  std::atomic<int> begun[kKeys];
  std::atomic<int> stored[kKeys];
  std::atomic<int> writes;
};

std::string KeyName(int key) { return "name " + std::to_string(key); }
std::string ValueOf(int n) { return std::to_string(n) + ";" + std::string(static_cast<std::size_t>(n % 90), 'x'); }

/// Stores ever new values until somebody ends the process; half of the keys are in the phone book.
void WriteForEver(Journal &journal, int from) {
  for (int n = from;; ++n) {
    const int key = n % kKeys;
    DB *pDb = key % 2 == 0 ? g_uDb.tb_parameter : g_uDb.tb_pb;
    journal.begun[key] = n;
    if (BerkDb_Set(pDb, KeyName(key).c_str(), ValueOf(n).c_str()) != BERKDB_OK) ::_exit(3);
    journal.stored[key] = n;
    ++journal.writes;
  }
}

/// Everything acknowledged is there; what was under way is there or not.
::testing::AssertionResult HoldsAllOf(const Journal &journal) {
  for (int key = 0; key < kKeys; ++key) {
    DB *pDb = key % 2 == 0 ? g_uDb.tb_parameter : g_uDb.tb_pb;
    const int begun = journal.begun[key];
    const int stored = journal.stored[key];
    const std::string value = Get(pDb, KeyName(key).c_str());
    if (value == (stored != 0 ? ValueOf(stored) : "<7>")) continue;
    if (begun != stored && value == ValueOf(begun)) continue;
    return ::testing::AssertionFailure()
           << KeyName(key) << " holds " << value << "; acknowledged was " << stored << ", begun " << begun;
  }
  return ::testing::AssertionSuccess();
}

/// What was under way when the writer died is there or not from now on.
void DecideWhatWasUnderWay(Journal &journal) {
  for (int key = 0; key < kKeys; ++key) {
    DB *pDb = key % 2 == 0 ? g_uDb.tb_parameter : g_uDb.tb_pb;
    const int begun = journal.begun[key];
    if (Get(pDb, KeyName(key).c_str()) == ValueOf(begun)) journal.stored[key] = begun;
  }
}

class Processes : public StoreTest {
 protected:
  static int Rounds(int normal) { return std::max(1, normal * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100); }

  /// Waits until the writer has come a random way, then kills it wherever it is.
  static void KillSomewhere(Child &writer, const Journal &journal, std::mt19937_64 &random) {
    const int until = journal.writes + 1 + static_cast<int>(random() % 30);
    while (journal.writes < until) std::this_thread::yield();
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 400);
    while (std::chrono::steady_clock::now() < end) continue;
    writer.Signal(SIGKILL);
    EXPECT_EQ(writer.Wait(), 1000 + SIGKILL);
  }
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

TEST_F(Processes, AKilledOpener_LeavesTheWayFree) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
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
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 20000);
    while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
    opener.Signal(SIGKILL);
    opener.Wait();
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "v"), BERKDB_OK);
    BerkDb_Close();
  }
  EXPECT_TRUE(Verify());
}

// One of four: mixes everything on the same few records.
int MixedWork(const std::string &home, int operations, std::uint64_t seed) {
  std::int32_t result = -4711;
  if (BerkDb_Open(home.c_str(), nullptr, &result) != 1) return 2;
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
  BerkDb_Close();
  return bad == 0 ? 0 : 1;
}

TEST_F(Processes, FourMixingAllOperationsOnTheSameRecords_AllFinishWithoutAnError) {
  const TestSeed seed;
  std::vector<Child> workers;
  for (std::uint64_t i = 0; i < 4; ++i) {
    workers.emplace_back([&, i] { return MixedWork(home_, Rounds(5000), seed + i); });
  }
  for (Child &worker : workers) EXPECT_EQ(worker.Wait(), 0);
  EXPECT_TRUE(Verify());
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Processes, FourThreadsMixingReadsAndWrites_AllFinishWithoutAnError) {
  Open();
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937_64 random(static_cast<std::uint64_t>(t));
      for (int i = 0; i < 500; ++i) {
        const std::string name = "name " + std::to_string(random() % 5);
        char data[64];
        TDbFindRec records[8];
        std::int32_t count = 8;
        int code = 0;
        switch (random() % 4) {
          case 0:
            code = BerkDb_Set(g_uDb.tb_pb, name.c_str(), "1;x");
            break;
          case 1:
            code = BerkDb_Del(g_uDb.tb_pb, name.c_str());
            break;
          case 2:
            code = BerkDb_FindPrefix(g_uDb.stb_pb, "", records, &count);
            break;
          default:
            code = BerkDb_Get(g_uDb.tb_pb, name.c_str(), data, sizeof data);
        }
        if (code != BERKDB_OK && code != BERKDB_NOT_FOUND) ++bad;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(bad, 0);
}

TEST_F(Processes, AWriterInALoop_DoesNotKeepTheOthersOut) {
  const Shared<Journal> journal;
  Child writer([&] {
    Open();
    WriteForEver(*journal, 1);
    return 0;
  });
  while (journal->writes == 0) std::this_thread::yield();
  Open();
  // Each of our reads lets the writer pass a few times at most; if it did not, this would take for ever.
  const int before = journal->writes;
  for (int i = 0; i < 100; ++i) ASSERT_NE(Get(g_uDb.tb_parameter, "name 0"), "<10>");
  EXPECT_LT(journal->writes - before, 100 * 100);
  BerkDb_Close();
}

// --- killed processes

TEST_F(Processes, AWriterKilledAtAnyMoment_LosesNothingThatWasAcknowledged) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const Shared<Journal> journal;
  for (int round = 0; round < Rounds(100); ++round) {
    Child writer([&] {
      Open();
      WriteForEver(*journal, journal->writes + 1000 * (round + 1));
      return 0;
    });
    KillSomewhere(writer, *journal, random);
    Open();
    ASSERT_TRUE(HoldsAllOf(*journal)) << "round " << round;
    DecideWhatWasUnderWay(*journal);
    BerkDb_Close();
    ASSERT_TRUE(Verify()) << "round " << round;
    ASSERT_TRUE(IndexesAgree()) << "round " << round;
  }
}

/// Works on beside a dead neighbour, closes, and opens again in the same process.
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

TEST_F(Processes, ANeighbourKilledInItsWrites_LeavesTheOthersGoingOn) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const Shared<Journal> journal;
  const Shared<std::chrono::steady_clock::duration> longest;
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
    Child victim([&] {
      Open();
      WriteForEver(*journal, journal->writes + 1000 * (round + 1));
      return 0;
    });
    KillSomewhere(victim, *journal, random);
    killed.Announce();
    ASSERT_EQ(survivor.Wait(), 0) << "round " << round;
    Open();
    ASSERT_TRUE(HoldsAllOf(*journal)) << "round " << round;
    DecideWhatWasUnderWay(*journal);
    BerkDb_Close();
  }
  EXPECT_TRUE(Verify());
  EXPECT_TRUE(IndexesAgree());
  std::cout << "longest three operations of a survivor: "
            << std::chrono::duration_cast<std::chrono::microseconds>(*longest).count() << " us\n";
}

TEST_F(Processes, SurvivorsInFullSwing_AllGoOnWhenOneIsKilled) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const Shared<Journal> journal;
  for (int round = 0; round < Rounds(20); ++round) {
    const Shared<std::atomic<bool>> killed;
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
    Child victim([&] {
      Open();
      WriteForEver(*journal, journal->writes + 1000 * (round + 1));
      return 0;
    });
    KillSomewhere(victim, *journal, random);
    *killed = true;
    for (Child &survivor : survivors) EXPECT_EQ(survivor.Wait(), 0);
    Open();
    ASSERT_TRUE(HoldsAllOf(*journal)) << "round " << round;
    for (int key = 0; key < kKeys; ++key) journal->stored[key] = journal->begun[key] = 0;
    for (int key = 0; key < kKeys; ++key) {
      BerkDb_Del(key % 2 == 0 ? g_uDb.tb_parameter : g_uDb.tb_pb, KeyName(key).c_str());
    }
    BerkDb_Close();
  }
}

TEST_F(Processes, AfterADeathInside_OpeningHealsAndThoseWhoHaveTheStoreOpenFollow) {
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

TEST_F(Processes, ADeathOutsideOfAnyOperation_DisturbsNobody) {
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
