// SPDX-License-Identifier: MIT
// The power fails at each write of a recorded run, and any part of the unflushed data is there. The store opens each
// time, holds all acknowledged changes and no half of another, and works. DEVSUPPORT_POWER_STATES=<n> tries every
// n-th state; usually there are too many to try all.

#include <db.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "tests/db/PowerRecord.h"
#include "tests/db/PowerScript.h"
#include "tests/db/PowerStates.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;
using Kind = PowerEvent::Kind;
namespace fs = std::filesystem;

// The unit that the medium writes whole: a page of the system, a page of the tables, a sector of an old disk.
constexpr std::size_t kSystemPage = 4096;
constexpr std::size_t kTablePage = 2048;
constexpr std::size_t kSector = 512;

// In one of so many states the store is also changed, closed and opened again; the others are only opened and read.
constexpr std::uint64_t kGoesOn = 8;

using Part = std::function<void(Script &)>;

// After a restart there is no shared memory.
void ForgetSharedMemory() {
  shmid_ds segment = {};
  for (int i = ::shmctl(0, SHM_INFO, &segment); i >= 0; --i) {
    if (const int id = ::shmctl(i, SHM_STAT, &segment); id >= 0) ::shmctl(id, IPC_RMID, nullptr);
  }
  seminfo info = {};
  for (int i = ::semctl(0, 0, SEM_INFO, &info); i >= 0; --i) {
    if (const int id = ::semctl(i, 0, SEM_STAT, &info); id >= 0) ::semctl(id, 0, IPC_RMID);
  }
}

// Whether all tables, including the indexes, agree with these contents.
std::string Difference(const std::map<std::string, Records> &found, const Contents &contents) {
  std::map<std::string, Records> expected;
  for (const auto &[table, records] : contents) expected[table].assign(records.begin(), records.end());
  for (const auto &[index, primary, ruleKey] : kIndexRules)
    for (const auto &[key, data] : expected[primary]) expected[index].emplace_back(ruleKey(key, data), data);
  for (auto [table, records] : found) {
    std::sort(records.begin(), records.end());
    std::sort(expected[table].begin(), expected[table].end());
    if (records == expected[table]) continue;
    return table + " holds " + std::to_string(records.size()) + " records and should hold " +
           std::to_string(expected[table].size()) + ", or others";
  }
  return "";
}

bool IsClean(const std::string &file) {
  DB *pDb = nullptr;
  return ::db_create(&pDb, nullptr, 0) == 0 && pDb->verify(pDb, file.c_str(), nullptr, nullptr, DB_NOORDERCHK) == 0;
}

enum Verdict : int { kGood, kGoodWithWords, kRefused, kWrong };

struct Answer {
  std::atomic<int> verdict;
  char text[1024];
};

// Checks a store after the power is back. Any step from first to last may be the last one that is stored.
// Opening runs the checker over all pages and compares the indexes.
Verdict Judge(const std::string &home, const Contents *first, const Contents *last, bool goesOn, std::string &said) {
  CapturedOutput err(stderr);
  if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) {
    said = "not opened: " + err.Take();
    return kRefused;
  }
  const auto found = ReadAllTables();
  std::string faults = "-";
  for (const Contents *contents = last; contents >= first && !faults.empty(); --contents)
    faults = Difference(found, *contents);
  if (goesOn) {
    if (BerkDb_Set(g_uDb.tb_pb, "Zoe", "9;new") != BERKDB_OK) faults += "; does not store";
    BerkDb_Close();
    if (!IsClean(home + "/config.db")) faults += "; not clean";
    if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1 || Get(g_uDb.tb_pb, "Zoe") != "9;new")
      faults += "; not opened again";
  }
  said = err.Take();
  if (faults.empty()) return said.empty() ? kGood : kGoodWithWords;
  said.insert(0, faults + ": ");
  return kWrong;
}

struct Tried {
  std::atomic<long> distinct;
  std::atomic<long> states;
  std::atomic<long> of[kWrong + 1];
};

class PowerLoss : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    home_ += "/home";
    fs::create_directory(home_);
  }
  void TearDown() override {
    StoreTest::TearDown();
    fs::remove_all(fs::path(home_).parent_path());
  }

  /// Records a script in a prepared home and tries its states.
  void CutPowerDuring(const Part &script, const Part &preparation = {}, std::size_t unitBytes = kSystemPage) {
    const TestSeed named;
    const std::uint64_t seed = named;
    Record(preparation, script, unitBytes);
    std::vector<std::unique_ptr<Child>> workers;
    const unsigned count = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned worker = 0; worker < count; ++worker) {
      workers.push_back(std::make_unique<Child>([=, this] {
        return RunInPrivateIpc([=, this] {
          TryStates(seed, worker, count);
          return 0;
        });
      }));
    }
    for (const auto &worker : workers) EXPECT_EQ(worker->Wait(), 0);
    std::cout << tried_->states << " states of " << tried_->distinct << ", " << events_.size() << " events; "
              << tried_->of[kGoodWithWords] << " with a word, " << tried_->of[kRefused] << " refused, "
              << tried_->of[kWrong] << " wrong\n";
    EXPECT_GT(tried_->distinct, 0);
  }

  void ExpectAllGood() const {
    EXPECT_EQ(tried_->of[kRefused], 0);
    EXPECT_EQ(tried_->of[kWrong], 0);
  }

  SharedBlock<Tried> tried_;
  bool flushesCount_ = true;
  bool tells_ = true;

 private:
  void Record(const Part &preparation, const Part &script, std::size_t unitBytes) {
    Script thought(home_);
    if (preparation) {
      preparation(thought);
      Child child([&] {
        Script prepared(home_);
        prepared.Begin();
        preparation(prepared);
        return 0;
      });
      ASSERT_EQ(child.Wait(), 0);
    }
    done_ = thought.AfterEachStep().size() - 1;
    start_ = std::make_unique<PowerStates>(unitBytes, home_);
    const PowerRecord record(home_);
    Child child([&] {
      Script real(home_);
      if (preparation) preparation(real);
      record.Begin();
      real.Begin();
      script(real);
      return 0;
    });
    ASSERT_EQ(child.Wait(), 0);
    script(thought);
    contents_ = thought.AfterEachStep();
    events_ = record.Events();
  }

  void TryStates(std::uint64_t seed, unsigned worker, unsigned workers) {
    const auto stride = static_cast<std::uint64_t>(std::max(1, Count("DEVSUPPORT_POWER_STATES", 40)));
    const int samples = Count("DEVSUPPORT_POWER_SAMPLES", 30);
    std::mt19937_64 random(seed);
    std::unordered_set<std::uint64_t> seen;
    PowerStates &states = *start_;  // of this process alone
    std::size_t done = done_;
    std::size_t begun = done_;
    for (std::size_t i = 0; i < events_.size(); ++i) {
      const PowerEvent &event = events_[i];
      if (event.kind == Kind::Done) done = event.offset;
      if (event.kind == Kind::Begun) begun = event.offset;
      const bool isFlush = event.kind == Kind::Flush || event.kind == Kind::FlushFolder;
      if (flushesCount_ || !isFlush) states.Take(event);
      states.ForEach(random, samples, [&](const PowerFolder &folder) {
        const std::uint64_t key = PowerStates::Key(folder) * 31 + done * 7 + begun;
        if (key % workers != worker || !seen.insert(key).second) return;
        ++tried_->distinct;
        if (key / workers % stride == seed % stride) Try(states, folder, i, done, begun, (key >> 32) % kGoesOn == 0);
      });
    }
  }

  void Try(const PowerStates &states, const PowerFolder &folder, std::size_t event, std::size_t done,
           std::size_t begun, bool goesOn) {
    const std::string path = home_ + "-" + std::to_string(::getpid());
    fs::remove_all(path);
    fs::create_directory(path);
    states.Write(folder, path);
    ForgetSharedMemory();
    const SharedBlock<Answer> answer;
    answer->verdict = kWrong;
    Child child([&] {
      ::alarm(300);
      SkipFlushes();
      std::string said;
      const Verdict verdict = Judge(path, &contents_[done], &contents_[begun], goesOn, said);
      std::snprintf(answer->text, sizeof answer->text, "%s", said.c_str());
      answer->verdict = verdict;
      return 0;
    });
    const int status = child.Wait();
    ++tried_->states;
    const int verdict = status == 0 ? answer->verdict.load() : kWrong;
    if (tried_->of[verdict]++ < 5 && verdict != kGood && tells_) Tell(folder, event, status, answer->text);
  }

  void Tell(const PowerFolder &folder, std::size_t event, int status, const char *said) const {
    std::string text = "power cut after event " + std::to_string(event) + " of " + std::to_string(events_.size()) +
                       ", status " + std::to_string(status) + ": " + said + "\n";
    for (const auto &[name, inode] : folder.names) {
      const auto file = folder.files.find(inode);
      text += "  " + name + ": " + std::to_string(file != folder.files.end() ? file->second.size : 0) + " bytes\n";
    }
    std::cerr << text;
  }

  std::unique_ptr<PowerStates> start_;
  std::vector<PowerEvent> events_;
  std::vector<Contents> contents_;
  std::size_t done_ = 0;
};

void MakeAStore(Script &script) {
  script.Open();
  for (int i = 0; i < 12; ++i) {
    const std::string number = std::to_string(i);
    script.Set(kParameters, "name " + number, number);
    script.Set(kPhoneBook, "Bob " + number, number + "00;" + std::string(60, 'b'));
    script.Set(kRoutes, number + "00 route", "way " + number);
  }
  script.Close();
}

void ChangeRecords(Script &script) {
  script.Open();
  script.Set(kParameters, "name 1", "one");
  script.Set(kParameters, "new", "1");
  script.Set(kPhoneBook, "Bob 1", "555;other");
  script.Set(kPhoneBook, "Ann", "777");
  script.Delete(kPhoneBook, "Bob 2");
  script.Delete(kParameters, "new");
  script.Set(kReversed, "b", std::string(1500, 'x'));
  script.Set(kReversed, "a", std::string(5000, 'y'));  // on pages of its own
  script.Delete(kReversed, "a");
  script.Set(kRoutes, "100 route", "another way");
  script.Close();
}

void ChangeManyAsOne(Script &script) {
  std::vector<Item> items;
  for (int i = 0; i < 60; ++i) {
    const std::string number = std::to_string(100 + i);
    items.push_back({kPhoneBook, "Bob " + number, number + ";" + std::string(100, 'm')});
    items.push_back({kLines, "line " + number, std::string(200, 'l')});
  }
  script.Open();
  script.Batch(items);
  script.Set(kParameters, "after", "it");
  script.Close();
}

// Values of 2 KB go through several log files, and old ones are removed.
void FillLogs(Script &script) {
  script.Open();
  for (int i = 0; i < 90; ++i)
    script.Set(kLines, "line " + std::to_string(i % 4), std::string(static_cast<std::size_t>(3000 + i), 'l'));
  script.Close();
}

// The same at each run, so that the record does not depend on the seed.
void ChangeAtRandom(Script &script) {
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp)
  const int rows[] = {kParameters, kReversed, kPhoneBook, kPhoneBook, kLines, kRoutes};
  script.Open();
  for (int i = 0; i < 150; ++i) {
    const int row = rows[random() % std::size(rows)];
    const std::string name = "at random " + std::to_string(random() % 8);
    if (random() % 16 == 0) {
      script.Batch({{row, name, "one"}, {kLines, name, std::string(random() % 3000, 'b')}, {kParameters, name, "3"}});
    } else if (script.Holds(row, name) && random() % 4 == 0) {
      script.Delete(row, name);
    } else {
      script.Set(row, name, std::to_string(i) + ";" + std::string(random() % (i % 20 == 0 ? 6000 : 100), 'r'));
    }
  }
  script.Close();
}

TEST_F(PowerLoss, WhileTheStoreIsMade_LosesNothing) {
  CutPowerDuring(MakeAStore);
  ExpectAllGood();
}

TEST_F(PowerLoss, DuringChanges_LosesNothing) {
  CutPowerDuring(ChangeRecords, MakeAStore);
  ExpectAllGood();
}

TEST_F(PowerLoss, DuringManyChangesAsOne_LeavesAllOrNone) {
  CutPowerDuring(ChangeManyAsOne, MakeAStore);
  ExpectAllGood();
}

TEST_F(PowerLoss, DuringManyLogFiles_LosesNothing) {
  CutPowerDuring(FillLogs, MakeAStore);
  ExpectAllGood();
}

TEST_F(PowerLoss, DuringChangesAtRandom_LosesNothing) {
  CutPowerDuring(ChangeAtRandom, MakeAStore);
  ExpectAllGood();
}

TEST_F(PowerLoss, WhileAStoreHealsAfterADeath_LosesNothing) {
  CutPowerDuring(
      [](Script &script) {
        script.Open();
        for (int events = 1; events <= 8; ++events) script.SurviveDeath(events, events % 2 == 0);
        script.Close();
      },
      MakeAStore);
  ExpectAllGood();
}

TEST_F(PowerLoss, OnAMediumThatWritesPagesOfTheTablesWhole_LosesNothing) {
  CutPowerDuring(ChangeRecords, MakeAStore, kTablePage);
  ExpectAllGood();
}

// A separate test, because the library relies on whole writes of a page of the tables.
TEST_F(PowerLoss, OnAMediumThatTearsPages_IsCounted) {
  tells_ = false;
  CutPowerDuring(ChangeRecords, MakeAStore, kSector);
}

// Shows that the tests above find a store that does not flush.
TEST_F(PowerLoss, OnAMediumThatIgnoresFlushes_LosesChanges) {
  tells_ = false;
  flushesCount_ = false;
  CutPowerDuring(ChangeRecords, MakeAStore);
  EXPECT_GT(tried_->of[kRefused] + tried_->of[kWrong], 0);
}

}  // namespace
