// SPDX-License-Identifier: MIT
// A process is killed at each system call of an operation, of opening, of closing and of the healing after another
// death. A process that has the store open and one that opens it afterwards find a complete record each time.
// DEVSUPPORT_STORE_CALLS=1 tries every call; usually long operations are killed at every 150th, from a random one on.
// DEVSUPPORT_STORE_ROUNDS=<n> kills at n per cent of the usual number of instructions.

#include <db.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <functional>
#include <iostream>
#include <optional>
#include <random>
#include <string>

#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestSeed.h"
#include "tests/support/Traced.h"

namespace {

using namespace devsupport::test;

constexpr char kName[] = "Bob 1";
constexpr char kBefore[] = "123;before";
constexpr char kAfter[] = "456;after";

// A process can change to new regions 256 times; here it does so up to three times for each death.
constexpr int kDeathsOfASurvivor = 80;

/// The record and its entry in the index.
::testing::AssertionResult IsWhole() {
  const std::string value = Get(g_uDb.tb_pb, kName);
  if (value != kBefore && value != kAfter && value != "<7>")
    return ::testing::AssertionFailure() << "holds " << value;
  for (const std::string possible : {kBefore, kAfter}) {
    char primary[64] = "";
    char data[64] = "";
    const int code = BerkDb_PGet(g_uDb.stb_pb, possible.c_str(), 3, primary, sizeof primary, data, sizeof data);
    const bool right = value == possible ? code == BERKDB_OK && std::string(primary) == kName && data == value
                                         : code == BERKDB_NOT_FOUND;
    if (!right)
      return ::testing::AssertionFailure() << value << ", but the index of " << possible << " says " << code;
  }
  return ::testing::AssertionSuccess();
}

/// Checks that the record is complete, and restores it.
int UseStore(const char *who) {
  CapturedOutput err(stderr);
  const ::testing::AssertionResult whole = IsWhole();
  const int stored = BerkDb_Set(g_uDb.tb_pb, kName, kBefore);
  const std::string found = Get(g_uDb.tb_pb, kName);
  const std::string said = err.Take();
  EXPECT_TRUE(whole) << who << ": " << said;
  EXPECT_EQ(stored, BERKDB_OK) << who << ": " << said;
  EXPECT_EQ(found, kBefore) << who << ": " << said;
  return ::testing::Test::HasFailure() ? 1 : 0;
}

/// A process that keeps the store open and uses it on request.
class Survivor {
 public:
  explicit Survivor(const std::string &home)
      : process_([&] {
          if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) return 2;
          *result_ = UseStore("survivor");
          for (done_.Announce();; done_.Announce()) {
            go_.Wait();
            if (*over_) break;
            *result_ = UseStore("survivor");
          }
          BerkDb_Close();
          return 0;
        }) {
    done_.Wait();
  }

  int Use() const {
    go_.Announce();
    done_.Wait();
    return *result_;
  }
  int Close() {
    *over_ = true;
    go_.Announce();
    return process_.Wait();
  }

 private:
  SharedBlock<std::atomic<int>> result_;
  SharedBlock<std::atomic<bool>> over_;
  Event go_;
  Event done_;
  Child process_;
};

using Action = std::function<void()>;

class KilledAtEachCall : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    victims_.emplace([this](int) { return DieInside(home_); });
    survivor_.emplace(home_);
  }

  void OpenStore() const { ASSERT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1); }
  void DieElsewhere() const { ASSERT_EQ(victims_->Run(0), 1000 + SIGKILL); }

  // Each call stops twice, before and after the kernel does its part.
  void KillAtEachStopOf(const Action &preparation, const Action &operation, int usual = 1) {
    const int every = usual * Stride();
    const TestSeed seed;
    int killed = 0;
    for (int stop = static_cast<int>(seed % static_cast<unsigned>(every));
         KillAt(PTRACE_SYSCALL, stop, preparation, operation); stop += every) {
      ++killed;
      ASSERT_NO_FATAL_FAILURE(ExpectUsableStore(stop));
      if (killed % kDeathsOfASurvivor == 0) RenewSurvivor();
    }
    std::cout << "killed at " << killed << " stops\n";
    EXPECT_GT(killed, 0);
    Finish();
  }

  // For operations that make no system call, or hardly any.
  void KillAtInstructionsOf(const Action &preparation, const Action &operation) {
    const TestSeed seed;
    std::mt19937_64 random(seed);
    const int instructions = CountInstructions(preparation, operation);
    if (instructions == 0) GTEST_SKIP() << "the processor has no single steps";
    const int rounds = std::max(1, 8 * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100);
    for (int round = 0; round < rounds; ++round) {
      const int stop = static_cast<int>(random() % static_cast<unsigned>(instructions));
      if (!KillAt(PTRACE_SINGLESTEP, stop, preparation, operation)) continue;
      ASSERT_NO_FATAL_FAILURE(ExpectUsableStore(stop));
    }
    std::cout << "killed at " << rounds << " of " << instructions << " instructions\n";
    Finish();
  }

  // The first one to meet what the dead one left, its locks included, closes the store.
  void KillBesideOneThatCloses(const Action &operation) {
    for (int stop = 0; !HasFailure(); ++stop) {
      const Event isOpen;
      const Event hasDied;
      Child other([&] {
        OpenStore();
        isOpen.Announce();
        hasDied.Wait();
        BerkDb_Close();
        return 0;
      });
      isOpen.Wait();
      const bool reached = KillAt(
          PTRACE_SYSCALL, stop, [this] { OpenStore(); }, operation);
      hasDied.Announce();
      EXPECT_EQ(other.Wait(), 0) << "killed at stop " << stop;
      if (!reached) break;
    }
    Finish();
  }

 private:
  static Traced Victim(const Action &preparation, const Action &operation) {
    return Traced(preparation, [&] {
      const CapturedOutput err(stderr);
      operation();
    });
  }

  static bool KillAt(__ptrace_request kind, int stop, const Action &preparation, const Action &operation) {
    Traced victim = Victim(preparation, operation);
    const auto steps = static_cast<unsigned>(stop) + 1;
    const bool reached = victim.Steps(kind, steps) == steps;
    victim.Kill();
    return reached;
  }

  static int CountInstructions(const Action &preparation, const Action &operation) {
    Traced process = Victim(preparation, operation);
    const auto instructions = static_cast<int>(process.Steps(PTRACE_SINGLESTEP, UINT_MAX));
    process.Kill();
    return instructions;
  }

  void ExpectUsableStore(int stop) {
    ASSERT_EQ(survivor_->Use(), 0) << "killed at stop " << stop;
    Child newcomer([this] {
      OpenStore();
      const int result = UseStore("newcomer");
      BerkDb_Close();
      return result;
    });
    ASSERT_EQ(newcomer.Wait(), 0) << "killed at stop " << stop;
  }

  void RenewSurvivor() {
    EXPECT_EQ(survivor_->Close(), 0);
    survivor_.emplace(home_);
  }

  void Finish() {
    EXPECT_EQ(survivor_->Close(), 0);
    ExpectSoundFile();
  }

  std::optional<Starter> victims_;
  std::optional<Survivor> survivor_;
};

const int kLongOnes = Count("DEVSUPPORT_STORE_CALLS", 150);

void SetAfter() { BerkDb_Set(g_uDb.tb_pb, kName, kAfter); }
void DeleteName() { BerkDb_Del(g_uDb.tb_pb, kName); }
void ReadName() { Get(g_uDb.tb_pb, kName); }
void ReadByIndex() {
  char primary[64];
  char data[64];
  BerkDb_PGet(g_uDb.stb_pb, kBefore, 3, primary, sizeof primary, data, sizeof data);
}
void Search() {
  TDbFindRec records[4];
  std::int32_t count = 4;
  BerkDb_FindPrefix(g_uDb.stb_1_pb, "2", records, &count);
}

TEST_F(KilledAtEachCall, OfOpening) {
  KillAtEachStopOf([] {}, [this] { OpenStore(); }, std::min(kLongOnes, 20));
}

TEST_F(KilledAtEachCall, OfClosing) {
  KillAtEachStopOf([this] { OpenStore(); }, BerkDb_Close, std::min(kLongOnes, 4));
}

TEST_F(KilledAtEachCall, OfAStore) {
  KillAtEachStopOf([this] { OpenStore(); }, SetAfter);
}

TEST_F(KilledAtEachCall, OfAStore_LetsAnotherOneClose) { KillBesideOneThatCloses(SetAfter); }

TEST_F(KilledAtEachCall, OfADeletion) {
  KillAtEachStopOf([this] { OpenStore(); }, DeleteName);
}

TEST_F(KilledAtEachCall, OfHealingByAnOperation) {
  KillAtEachStopOf(
      [this] {
        OpenStore();
        DieElsewhere();
      },
      SetAfter, kLongOnes);
}

TEST_F(KilledAtEachCall, OfHealingByOpening) {
  KillAtEachStopOf([this] { DieElsewhere(); }, [this] { OpenStore(); }, kLongOnes);
}

using KilledAtAnyInstruction = KilledAtEachCall;

TEST_F(KilledAtAnyInstruction, OfARead) {
  KillAtInstructionsOf([this] { OpenStore(); }, ReadName);
}

TEST_F(KilledAtAnyInstruction, OfAReadByIndex) {
  KillAtInstructionsOf([this] { OpenStore(); }, ReadByIndex);
}

TEST_F(KilledAtAnyInstruction, OfASearch) {
  KillAtInstructionsOf([this] { OpenStore(); }, Search);
}

}  // namespace
