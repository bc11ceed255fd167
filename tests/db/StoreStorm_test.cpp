// SPDX-License-Identifier: MIT
// Processes are killed at random while others mix all operations and keep journals of acknowledged changes.
// DEVSUPPORT_STORE_ROUNDS=<n> runs n per cent of the usual rounds; TMPDIR=<folder> is where the homes are made.

#include <db.h>
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

std::int64_t Now() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

class Storm : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    // Creates the tables before the first death.
    Open();
    BerkDb_Close();
  }

  static int Rounds(int usual) { return std::max(1, usual * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100); }
};

// --- one process is killed after the other, and the delay of the others is measured

constexpr int kSurvivors = 4;

struct Scene {
  std::array<Journal, kSurvivors> survivors;
  Journal victims;
  std::atomic<bool> over;
  std::atomic<int> death;                             // number of the latest one
  std::atomic<std::int64_t> diedAt;                   // us
  std::array<std::atomic<int>, kSurvivors> answered;  // the latest death after which the survivor succeeded
  std::array<std::atomic<std::int64_t>, kSurvivors> afterwards;  // and the delay, us
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

TEST_F(Storm, FourSurvivors_AllContinueWhenAFifthIsKilled) {
  const TestSeed seed;
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
  const int rounds = Rounds(20);
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

// --- victims of all kinds

constexpr int kStayers = 2;
constexpr int kSlots = 6;

struct Crowd {
  std::array<Journal, kStayers + kSlots> journals;
  std::atomic<bool> over;
};

std::string NameOf(std::size_t worker) { return "w" + std::to_string(worker); }

enum class Role { Busy, Idle, Cursor, Forgetful, Orderly, Staying };
constexpr std::array kMortals{Role::Busy, Role::Busy, Role::Idle, Role::Cursor, Role::Forgetful, Role::Orderly};

// One process of the crowd. When it finds an error, it ends with a status that its parent does not expect.
int Live(const std::string &home, Crowd &crowd, std::size_t self, Role role, std::uint64_t seed) {
  CapturedOutput err(stderr);
  if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) {
    ADD_FAILURE() << err.Take();
    return 2;
  }
  Worker worker(crowd.journals[self], NameOf(self), seed);
  EXPECT_TRUE(worker.HoldsAll()) << err.Take();
  worker.DecideWhatWasUnderWay();
  for (int i = 0; role == Role::Staying ? !crowd.over : role == Role::Busy || i < 20; ++i) {
    if (const ::testing::AssertionResult result = worker.Step(); !result) {
      ADD_FAILURE() << result.message() << "\n" << err.Take();
      return 3;
    }
  }
  char key[256] = "";
  char data[256];
  DBC *cursor = nullptr;
  int step = 0;
  switch (role) {
    case Role::Cursor:
      // It dies at once: as long as it lives, writers have to wait for its page.
      BerkDb_CursorGet(g_uDb.tb_pb, &cursor, key, 0, data, sizeof data, DB_FIRST, &step);
      return ::raise(SIGKILL);
    case Role::Forgetful:
      return 0;
    case Role::Orderly:
    case Role::Staying:
      BerkDb_Close();
      return 0;
    default:
      return ::pause();
  }
}

// The processes that stay change to new regions after each death, which is possible 256 times.
constexpr int kRoundsOfStayers = 60;

TEST_F(Storm, BusyIdleForgetfulAndCursorHoldersKilledAtRandom_LoseNothing) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const SharedBlock<Crowd> crowd;
  const auto start = [&](std::size_t worker, Role role) {
    const std::uint64_t own = random();
    return Child([&, worker, role, own] { return Live(home_, *crowd, worker, role, own); });
  };
  int deaths = 0;
  for (int rounds = Rounds(60); rounds > 0; rounds -= kRoundsOfStayers) {
    crowd->over = false;
    std::vector<Child> stayers;
    for (std::size_t i = 0; i < kStayers; ++i) stayers.push_back(start(i, Role::Staying));
    std::array<std::optional<Child>, kSlots> slots;
    const auto endSlot = [&](std::size_t slot) {
      if (!slots[slot]) return;
      slots[slot]->Signal(SIGKILL);
      const int status = slots[slot]->Wait();
      EXPECT_TRUE(status == 0 || status == 1000 + SIGKILL) << status;
      if (status != 0) ++deaths;
      slots[slot].reset();
    };
    for (int round = 0; round < std::min(rounds, kRoundsOfStayers) && !HasFailure(); ++round) {
      const auto slot = static_cast<std::size_t>(random() % kSlots);
      endSlot(slot);
      slots[slot].emplace(start(kStayers + slot, kMortals[static_cast<std::size_t>(random() % kMortals.size())]));
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
    }
    for (std::size_t slot = 0; slot < kSlots; ++slot) endSlot(slot);
    crowd->over = true;
    for (Child &stayer : stayers) ASSERT_EQ(stayer.Wait(), 0);
    ASSERT_FALSE(HasFailure());
  }
  Open();
  for (std::size_t i = 0; i < kStayers + kSlots; ++i) {
    EXPECT_TRUE(Worker(crowd->journals[i], NameOf(i), 0).HoldsAll());
  }
  BerkDb_Close();
  ExpectSoundFile();
  std::cout << deaths << " of all kinds killed\n";
}

}  // namespace
