// SPDX-License-Identifier: MIT
// Several changes in one step: all are made or none, with the indexes, also when the process is killed.

#include "db/for_project/RecordAccess.h"

#include <db.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tests/db/RecordFixture.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TestSeed.h"
#include "tests/support/Traced.h"

DEVSUPPORT_FAULT_POINT(void *, realloc, (void *old, std::size_t bytes), (old, bytes), nullptr, ENOMEM)

namespace {

using namespace devsupport::test;
using devsupport::store::ApplyChanges;
using devsupport::store::Change;
using devsupport::store::ChangeResult;
using devsupport::store::CountedChanges;
using devsupport::store::RecordWalk;

constexpr std::uint8_t kParameters = 0;
constexpr std::uint8_t kPhoneBook = 2;
constexpr std::uint8_t kNumbers = 3;  // an index of it
constexpr std::uint8_t kRoutes = 10;

struct NumberWalk : RecordWalk {
  NumberWalk() : RecordWalk(g_uDb.stb_pb, devsupport::store::kTableRules[kNumbers], "") {}
};

/// Changes, and the memory that they point to.
class Changes {
 public:
  void Put(std::uint8_t table, const std::string &key, const std::string &value) {
    Add(Change::Kind::Put, table, key, value);
  }
  void Delete(std::uint8_t table, const std::string &key) { Add(Change::Kind::Delete, table, key, ""); }
  void DeleteIfThere(std::uint8_t table, const std::string &key) { Add(Change::Kind::DeleteIfThere, table, key, ""); }

  ChangeResult Apply(bool (*goOn)() = nullptr) const {
    std::vector<Change> changes;
    for (const Text &text : texts_) changes.push_back({text.kind, text.table, text.key, text.value});
    return ApplyChanges(changes, goOn);
  }

 private:
  struct Text {
    Change::Kind kind;
    std::uint8_t table;
    std::string key;
    std::string value;
  };

  void Add(Change::Kind kind, std::uint8_t table, const std::string &key, const std::string &value) {
    texts_.push_back({kind, table, key, value});
  }

  std::vector<Text> texts_;
};

/// An entry of the phone book. The generation is a part of its value.
void PutEntry(Changes &changes, int n, int generation) {
  const std::string number = std::to_string(100000 + n * 7919 % 100000);
  const std::string key = Text("name") + number + '\0';
  changes.Put(kPhoneBook, key, std::to_string(generation) + number + ";x" + '\0');
}

using RecordChanges = Record;

TEST_F(RecordChanges, OfAClosedStore_AreRefused) {
  BerkDb_Close();
  EXPECT_EQ(ApplyChanges({}, nullptr).nResult, EINVAL);
}

TEST_F(RecordChanges, OfSeveralTables_AreMadeAndCounted) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "old", "1"), 0);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "same", "1"), 0);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), 0);
  Changes changes;
  changes.Put(kParameters, Text("old"), Text("2"));
  changes.Put(kParameters, Text("same"), Text("1"));
  changes.Put(kParameters, Text("new"), Raw("\0\xff"));
  changes.Put(kRoutes, Text("101a"), Text("r"));
  changes.Delete(kPhoneBook, Text("Bob 1\00026201"));
  changes.DeleteIfThere(kPhoneBook, Text("none"));
  const ChangeResult result = changes.Apply();
  EXPECT_EQ(result.nResult, 0);
  EXPECT_EQ(result.dwDone, 6U);
  EXPECT_EQ(result.counts.dwAdded, 2U);
  EXPECT_EQ(result.counts.dwChanged, 1U);
  EXPECT_EQ(result.counts.dwUnchanged, 1U);
  EXPECT_EQ(result.counts.dwDeleted, 1U);
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_parameter"),
            (Records{{Text("new"), Raw("\0\xff")}, {Text("old"), Text("2")}, {Text("same"), Text("1")}}));
  EXPECT_EQ(Dump("tb_pb"), Records{});
  ExpectSoundFile();
}

TEST_F(RecordChanges, WithOneThatCannotBeMade_AreNotMadeAtAll) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "old", "1"), 0);
  Changes changes;
  changes.Put(kParameters, Text("old"), Text("2"));
  PutEntry(changes, 1, 1);
  changes.Delete(kRoutes, Text("none"));
  changes.Put(kParameters, Text("after"), Text("2"));
  const ChangeResult result = changes.Apply();
  EXPECT_EQ(result.nResult, DB_NOTFOUND);
  EXPECT_EQ(result.dwDone, 2U);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "old"), "1");
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), Records{});
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(RecordChanges, BetweenTheBatchesOfAWalkOverAnIndex_LetItContinueAfterTheRecordsThatItHasRead) {
  constexpr int kBatch = 200;
  constexpr int kEqual = 450;
  const auto key = [](int n) { return Text("name") + std::to_string(1000 + n) + '\0'; };
  // What is deleted after the first batch, and how many of those with an equal number are still to be read then.
  for (const auto &[first, last, left] : {std::tuple{kBatch - 1, kBatch, kEqual - kBatch},
                                          std::tuple{kBatch - 1, kEqual, 0}, std::tuple{0, kEqual, 0}}) {
    Changes all;
    for (int n = 0; n < kEqual; ++n) all.Put(kPhoneBook, key(n), "9;x");
    all.Put(kPhoneBook, key(kEqual), "91;x");
    ASSERT_EQ(all.Apply().nResult, 0);
    NumberWalk walk;
    devsupport::store::WholeRecord record;
    for (int n = 0; n < kBatch; ++n) ASSERT_EQ(walk.Next(record), 0);
    EXPECT_EQ(record.key, key(kBatch - 1));
    Changes deletions;
    for (int n = first; n < last; ++n) deletions.Delete(kPhoneBook, key(n));
    ASSERT_EQ(deletions.Apply().nResult, 0);
    int read = 0;
    std::string number;
    for (; walk.Next(record) == 0; ++read) number = record.indexKey;
    EXPECT_EQ(read, left + 1);
    EXPECT_EQ(number, "91");
  }
}

TEST_F(RecordChanges, AWalkOverAnIndexWithoutMemory_IsAnErrorThere) {
  constexpr int kEqual = 450;
  const auto key = [](int n) { return Text("name") + std::to_string(1000 + n) + '\0'; };
  Changes all;
  for (int n = 0; n < kEqual; ++n) all.Put(kPhoneBook, key(n), "9;x");
  ASSERT_EQ(all.Apply().nResult, 0);
  devsupport::store::WholeRecord record;
  bool failed = true;
  for (int nth = 1; failed; nth += 1 + nth / 32) {  // thousands where the library is linked statically
    NumberWalk walk;
    const FailCall fail("realloc", nth);
    int read = 0;
    int result = 0;
    while ((result = walk.Next(record)) == 0) EXPECT_EQ(record.key, key(read++));
    failed = fail.Happened();
    EXPECT_EQ(result, failed ? ENOMEM : DB_NOTFOUND);
    EXPECT_EQ(read == kEqual, !failed);
  }
  // All records are gone when the walks continue.
  NumberWalk walks[4];
  for (NumberWalk &walk : walks) {
    for (int n = 0; n < 200; ++n) ASSERT_EQ(walk.Next(record), 0);
  }
  Changes deletions;
  for (int n = 0; n < kEqual; ++n) deletions.Delete(kPhoneBook, key(n));
  ASSERT_EQ(deletions.Apply().nResult, 0);
  for (int nth = 1; nth <= 3; ++nth) {
    const FailCall fail("realloc", nth);
    EXPECT_EQ(walks[nth].Next(record), ENOMEM) << nth;
  }
  EXPECT_EQ(walks[0].Next(record), DB_NOTFOUND);
}

TEST_F(RecordChanges, AWalk_ContinuesAfterAnEmptyKey) {
  Changes changes;
  changes.Put(kParameters, "", std::string(20000, 'v'));  // fills a batch
  changes.Put(kParameters, "a", "w");
  ASSERT_EQ(changes.Apply().nResult, 0);
  RecordWalk walk(g_uDb.tb_parameter, devsupport::store::kTableRules[kParameters], "");
  devsupport::store::WholeRecord record;
  ASSERT_EQ(walk.Next(record), 0);
  EXPECT_EQ(record.key, "");
  ASSERT_EQ(walk.Next(record), 0);
  EXPECT_EQ(record.key, "a");
  EXPECT_EQ(walk.Next(record), DB_NOTFOUND);
}

TEST_F(RecordChanges, GivenUpInTheMiddle_AreNotMadeAtAll) {
  Changes changes;
  for (int i = 0; i < 3000; ++i) PutEntry(changes, i, 1);
  static int asked = 0;
  const ChangeResult result = changes.Apply([] { return ++asked < 2000; });
  EXPECT_EQ(result.nResult, ECANCELED);
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), Records{});
  ExpectSoundFile();
}

TEST_F(RecordChanges, MoreThanTheLockTableHolds_AreMade) {
  Changes changes;
  for (int i = 0; i < 20000; ++i) PutEntry(changes, i, 1);
  const ChangeResult result = changes.Apply();
  EXPECT_EQ(result.nResult, 0);
  EXPECT_EQ(result.counts.dwAdded, 20000U);
  // Locks work as before.
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), 0);
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb").size(), 20001U);
  ExpectSoundFile();
}

TEST_F(RecordChanges, PlannedBeforeOthersChangedTheStore_AreNotMade) {
  const std::uint32_t counted = CountedChanges();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "other", "1"), 0);
  const std::string key = Text("a");
  const Change change = {Change::Kind::Put, kParameters, key, key};
  EXPECT_EQ(ApplyChanges({&change, 1}, nullptr, &counted).nResult, EAGAIN);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "<7>");
  const std::uint32_t now = CountedChanges();
  EXPECT_EQ(ApplyChanges({&change, 1}, nullptr, &now).nResult, 0);
  EXPECT_NE(CountedChanges(), now);
}

TEST_F(RecordChanges, WhileAnotherProcessHasACursorOpen_Wait) {
  BerkDb_Close();
  Event opened;
  Event done;
  Child holder([&] {
    Open();
    BerkDb_Set(g_uDb.tb_parameter, "a", "1");
    char key[256] = "";
    char value[256];
    struct __dbc *cursor = nullptr;
    int result = -1;
    if (BerkDb_CursorGet(g_uDb.tb_parameter, &cursor, key, 0, value, sizeof value, DB_FIRST, &result) != 0) return 1;
    opened.Announce();
    done.Wait();
    ::usleep(300000);
    if (std::string(value) != "1" || BerkDb_CursorClose(cursor) != 1) return 2;
    BerkDb_Close();
    return 0;
  });
  opened.Wait();
  Open();
  Changes changes;
  changes.Put(kParameters, Text("a"), Text("2"));
  done.Announce();
  EXPECT_EQ(changes.Apply().nResult, 0);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "2");
  EXPECT_EQ(holder.Wait(), 0);
}

TEST_F(RecordChanges, AfterTheDeathOfAnotherProcessInside_AreMade) {
  BerkDb_Close();
  Child victim([this] {
    Open();
    Changes changes;
    for (int i = 0; i < 100; ++i) PutEntry(changes, i, 1);
    changes.Apply([]() -> bool {
      ::raise(SIGKILL);
      return true;
    });
    return 1;
  });
  Open();
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  Changes changes;
  changes.Put(kParameters, Text("a"), Text("2"));
  EXPECT_EQ(changes.Apply().nResult, 0);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "2");
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), Records{});
}

// After a kill at any moment, the next process that opens the store finds all changes or none.

class KilledChanges : public StoreTest {
 protected:
  static constexpr int kEntries = 300;  // more pages than the cache holds

  static Changes ChangesOf(int generation) {
    Changes changes;
    for (int i = 0; i < kEntries; ++i) PutEntry(changes, i, generation);
    changes.Put(kParameters, Text("generation"), "x" + std::to_string(generation));
    changes.Put(kRoutes, Text("101a"), std::to_string(generation));
    return changes;
  }

  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    Open();
    ASSERT_EQ(ChangesOf(0).Apply().nResult, 0);
    BerkDb_Close();
  }

  /// The generation that the store holds; fails the test when it holds two.
  int Generation() {
    Open();
    BerkDb_Close();
    const int generation = std::stoi(Dump("tb_route").at(0).second);
    EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("generation"), "x" + std::to_string(generation)}}));
    const Records entries = Dump("tb_pb");
    EXPECT_EQ(entries.size(), static_cast<std::size_t>(kEntries));
    for (const auto &[key, value] : entries) {
      EXPECT_EQ(value.substr(0, value.size() - 9), std::to_string(generation)) << key;
    }
    ExpectSoundFile();
    return generation;
  }
};

TEST_F(KilledChanges, AtEachSystemCall_AreMadeOrNotMade) {
  if (!Traced::MayTrace()) GTEST_SKIP() << "the machine does not let us trace a child";
  const int stride = std::max(1, Count("DEVSUPPORT_STORE_STRIDE", 13));
  int made = 0;
  int notMade = 0;
  for (int steps = 1;; steps += stride) {
    const int before = Generation();
    bool isOver = false;
    {
      Traced child([&] { Open(); }, [&] { ChangesOf(before + 1).Apply(); });
      for (int i = 0; i < steps && !isOver; ++i) isOver = !child.Step(PTRACE_SYSCALL);
      child.Kill();
    }
    const int after = Generation();
    ASSERT_TRUE(after == before || after == before + 1) << steps;
    ++(after == before ? notMade : made);
    if (HasFailure()) FAIL() << "killed at stop " << steps;
    if (isOver) break;
  }
  EXPECT_GT(made, 0);
  EXPECT_GT(notMade, 0);
  RecordProperty("stops", made + notMade);
}

TEST_F(KilledChanges, AtARandomMoment_AreMadeOrNotMade) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const int rounds = std::max(1, 20 * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100);
  int generation = 0;
  for (int i = 0; i < rounds; ++i) {
    Event begun;
    Child child([&] {
      Open();
      begun.Announce();
      for (int next = generation + 1;; ++next) {
        if (ChangesOf(next).Apply().nResult != 0) return 1;
      }
    });
    begun.Wait();
    ::usleep(static_cast<useconds_t>(random() % 60000));
    child.Signal(SIGKILL);
    ASSERT_EQ(child.Wait(), 1000 + SIGKILL);
    const int after = Generation();
    EXPECT_GE(after, generation);
    generation = after;
    ASSERT_FALSE(HasFailure()) << "round " << i;
  }
}

}  // namespace
