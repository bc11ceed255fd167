// SPDX-License-Identifier: MIT
// Forked children that never use the store, cursors and handles of dead processes, standard descriptors that were
// closed before the store was opened, and too many processes at the same time.

#include <db.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;

constexpr int kMostAtOnce = 23;

class Leftovers : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "first"), BERKDB_OK);
    BerkDb_Close();
  }

  /// Opens, changes, closes: 0 when all goes well.
  int Use() {
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
    const int stored = BerkDb_Set(g_uDb.tb_tone, "k", "used");
    BerkDb_Close();
    return stored;
  }
};

TEST_F(Leftovers, AnIdleForkedChild_BlocksNoProcessAfterItsParentClosed) {
  Event closed;
  Event checked;
  Child parent([&] {
    Open();
    const Child idle([] { return ::pause(); });
    BerkDb_Close();
    closed.Announce();
    checked.Wait();
    Open();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "again"), BERKDB_OK);
    BerkDb_Close();
    return 0;
  });
  closed.Wait();
  Child other([this] { return Use(); });
  EXPECT_EQ(other.Wait(), 0);
  checked.Announce();
  EXPECT_EQ(parent.Wait(), 0);
  EXPECT_TRUE(Verify());
}

TEST_F(Leftovers, AnIdleForkedChildOfADeadParent_BlocksNoProcess) {
  Event forked;
  Event finish;
  Child parent([&] {
    Open();
    const pid_t idle = ::fork();
    if (idle == 0) {
      finish.Wait();
      ::_exit(0);
    }
    forked.Announce();
    return ::pause();
  });
  forked.Wait();
  parent.Signal(SIGKILL);
  parent.Wait();
  Child other([this] { return Use(); });
  EXPECT_EQ(other.Wait(), 0);
  finish.Announce();
}

TEST_F(Leftovers, AChildForkedDuringItsParentsWork_LeavesItUndisturbedWhenItEnds) {
  Open();
  for (int i = 0; i < 5; ++i) {
    const std::string value = std::to_string(i);
    Child child([] { return 0; });
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", value.c_str()), BERKDB_OK);
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(Get(g_uDb.tb_tone, "k"), value);
  }
}

TEST_F(Leftovers, TheCursorOfADeadProcess_BlocksNoProcess) {
  Event holds;
  Child holder([&] {
    Open();
    EXPECT_NE(CursorOnFirst(g_uDb.tb_tone), nullptr);
    holds.Announce();
    return ::pause();
  });
  holds.Wait();
  Open();
  holder.Signal(SIGKILL);
  holder.Wait();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "changed"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "changed");
}

TEST_F(Leftovers, ProcessesThatExitWithoutClosing_UseNothingUp) {
  Event leave;
  Child daemon([&] {
    Open();
    leave.Wait();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "daemon", "works"), BERKDB_OK);
    BerkDb_Close();
    return 0;
  });
  for (int i = 0; i < 3 * kMostAtOnce; ++i) {
    Child forgetful([this] {
      if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
      return BerkDb_Set(g_uDb.tb_tone, "k", "forgetful");
    });
    ASSERT_EQ(forgetful.Wait(), 0) << "process " << i;
  }
  leave.Announce();
  EXPECT_EQ(daemon.Wait(), 0);
}

TEST_F(Leftovers, TwentyThreeAtOnce_AllWorkAndTheNextGetsAMessage) {
  Event opened;
  Event leave;
  std::vector<Child> processes;
  for (int i = 0; i < kMostAtOnce; ++i) {
    processes.emplace_back([&, i] {
      Open();
      const std::string key = std::to_string(i);
      EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, key.c_str(), "here"), BERKDB_OK);
      opened.Announce();
      leave.Wait();
      EXPECT_EQ(Get(g_uDb.tb_tone, key.c_str()), "here");
      BerkDb_Close();
      return 0;
    });
  }
  for (int i = 0; i < kMostAtOnce; ++i) opened.Wait();
  {
    CapturedOutput err(stderr);
    std::int32_t code = -4711;
    EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, &code), 0);
    EXPECT_EQ(code, BERKDB_OPEN_ENVIRONMENT);
    BerkDb_Close();
    EXPECT_EQ(err.Take(), "23 processes have the store open; its lock table has no room for another one" +
                              kSourceLine + "FAIL to open environment " + home_ + ": Cannot allocate memory" +
                              kSourceLine);
  }
  leave.Announce();
  for (int i = 1; i < kMostAtOnce; ++i) leave.Announce();
  for (Child &process : processes) EXPECT_EQ(process.Wait(), 0);
  Open();
}

TEST_F(Leftovers, WhenOneOfTooManyDies_TheNextOpens) {
  Event opened;
  Event leave;
  std::vector<Child> processes;
  for (int i = 0; i < kMostAtOnce; ++i) {
    processes.emplace_back([&] {
      Open();
      opened.Announce();
      leave.Wait();
      BerkDb_Close();
      return 0;
    });
  }
  for (int i = 0; i < kMostAtOnce; ++i) opened.Wait();
  processes.front().Signal(SIGKILL);
  EXPECT_EQ(processes.front().Wait(), 1000 + SIGKILL);
  Open();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "let in"), BERKDB_OK);
  for (int i = 1; i < kMostAtOnce; ++i) leave.Announce();
  for (int i = 1; i < kMostAtOnce; ++i) EXPECT_EQ(processes[static_cast<std::size_t>(i)].Wait(), 0);
}

// --- closed standard descriptors

/// Descriptors of this process from 0 to 2 that lead to something below a folder.
int StandardDescriptorsInto(const std::string &folder) {
  int count = 0;
  for (const char *fd : {"0", "1", "2"}) {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink("/proc/self/fd/" + std::string(fd), error);
    if (!error && target.starts_with(folder)) ++count;
  }
  return count;
}

TEST_F(Leftovers, ClosedStandardDescriptors_NeverBecomeTheStores) {
  Child daemon([this] {
    for (int fd = 0; fd < 3; ++fd) ::close(fd);
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
    if (StandardDescriptorsInto(home_) != 0) return 3;
    // Enough data for several log files.
    const std::string value(2000, 'x');
    for (int i = 0; i < 200; ++i) {
      if (BerkDb_Set(g_uDb.tb_tone, std::to_string(i % 9).c_str(), value.c_str()) != BERKDB_OK) return 4;
      if (StandardDescriptorsInto(home_) != 0) return 5;
    }
    if (BerkDb_Set(g_uDb.tb_tone, nullptr, "says something") != BERKDB_ERROR) return 6;
    if (Get(g_uDb.tb_tone, "k") != "first") return 7;
    BerkDb_Close();
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 8;
    if (Get(g_uDb.tb_tone, "k") != "first") return 9;
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(daemon.Wait(), 0);
  EXPECT_TRUE(Verify());
}

TEST_F(Leftovers, MappingsOfOtherProgramsAndFurtherOnesOfTheStore_StayWhenAProcessFollows) {
  constexpr key_t kFirstRegion = 0x12345678;
  constexpr std::size_t kBytes = 4096;
  const Starter victims([this](int) { return DieInside(home_); });
  const int segment = ::shmget(kFirstRegion + 16, kBytes, IPC_CREAT | IPC_EXCL | 0600);
  auto *const attached = static_cast<char *>(::shmat(segment, nullptr, 0));
  Open();
  const std::string path = home_ + "/" + std::string(250, 'x');
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::ftruncate(file, kBytes), 0);
  auto *const mapped = static_cast<char *>(::mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  ::close(file);
  ASSERT_NE(mapped, MAP_FAILED);
  for (const int further : {0, 20}) {
    for (int i = 0; i < further; ++i) ::shmat(::shmget(kFirstRegion, 0, 0), nullptr, 0);
    ASSERT_EQ(victims.Run(0), 1000 + SIGKILL);
    EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "first");
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "also", "stored"), BERKDB_OK);
  }
  mapped[0] = attached[0] = 'x';  // would end the process if they were gone
  Reopen();
  EXPECT_EQ(Get(g_uDb.tb_tone, "also"), "stored");
  ::munmap(mapped, kBytes);
  ::shmdt(attached);
}

}  // namespace
