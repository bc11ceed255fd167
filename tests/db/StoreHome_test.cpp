// SPDX-License-Identifier: MIT
// One home at a time: a copy, a second home, or a foreign object at the store's keys does no harm.

#include <db.h>
#include <devsupport/ipc/ShareMem.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "db/for_project/StoreGate.h"
#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/Command.h"

namespace {

using namespace devsupport::test;
namespace fs = std::filesystem;

constexpr key_t kGateKey = 0x12345677;

struct Refusal {
  int opened;
  std::int32_t code;
  std::string said;
};

Refusal TryToOpen(const std::string &home) {
  CapturedOutput err(stderr);
  std::int32_t code = -4711;
  const int opened = BerkDb_Open(home.c_str(), nullptr, &code);
  BerkDb_Close();
  return {opened, code, err.Take()};
}

void Copy(const fs::path &from, const fs::path &to) { fs::copy(from, to, fs::copy_options::recursive); }

class Homes : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    other_ = home_ + "-other";
    moved_ = home_ + "-moved";
  }
  void TearDown() override {
    StoreTest::TearDown();
    fs::remove_all(other_);
    fs::remove_all(moved_);
  }

  /// Opens a home, checks its content and changes it. Returns 0 when all succeeded.
  static int UseAlone(const std::string &home, const char *expected, const char *value) {
    if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) return 2;
    const bool found = Get(g_uDb.tb_tone, "k") == expected;
    const bool stored = BerkDb_Set(g_uDb.tb_tone, "k", value) == BERKDB_OK;
    BerkDb_Close();
    return found && stored ? 0 : 3;
  }

  std::string other_;
  std::string moved_;
};

TEST_F(Homes, ACopyOfALiveHome_IsRefusedAndHarmsNothing) {
  Event copied;
  Child copy([&] {
    copied.Wait();
    const Refusal refusal = TryToOpen(other_);
    EXPECT_EQ(refusal.opened, 0);
    EXPECT_EQ(refusal.code, BERKDB_OPEN_ENVIRONMENT);
    EXPECT_EQ(refusal.said, "the store is in use with the home " + home_ + "; the home " + other_ +
                                " cannot be opened beside it" + kSourceLine + "FAIL to open environment " + other_ +
                                ": Device or resource busy" + kSourceLine);
    return 0;
  });
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "1"), BERKDB_OK);
  Copy(home_, other_);
  copied.Announce();
  EXPECT_EQ(copy.Wait(), 0);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "2"), BERKDB_OK);
  Reopen();
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "2");
  BerkDb_Close();
  EXPECT_TRUE(Verify());
}

TEST_F(Homes, ACopyAndItsOriginal_OpenInTurn) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "both"), BERKDB_OK);
  Copy(home_, other_);  // with a region file that names the live segments
  BerkDb_Close();
  EXPECT_EQ(UseAlone(other_, "both", "copy"), 0);
  EXPECT_EQ(UseAlone(home_, "both", "original"), 0);
  EXPECT_EQ(UseAlone(other_, "copy", "copy 2"), 0);
  EXPECT_EQ(UseAlone(home_, "original", "original 2"), 0);
  EXPECT_TRUE(Verify());
}

TEST_F(Homes, AMovedHomeAndAnOldBackup_Open) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "old"), BERKDB_OK);
  BerkDb_Close();
  Copy(home_, other_);
  EXPECT_EQ(UseAlone(home_, "old", "new"), 0);
  fs::rename(home_, moved_);
  EXPECT_EQ(UseAlone(moved_, "new", "newer"), 0);
  fs::rename(other_, home_);
  EXPECT_EQ(UseAlone(home_, "old", "older"), 0);
}

TEST_F(Homes, ACopyOfAHomeWhoseProcessWasKilled_Opens) {
  Child victim([this] { return DieInside(home_); });
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  Copy(home_, other_);
  EXPECT_EQ(UseAlone(other_, "<7>", "copy"), 0);
  EXPECT_EQ(UseAlone(home_, "<7>", "original"), 0);
}

TEST_F(Homes, TwoUsedInTurns_NeverDisturbEachOther) {
  ASSERT_EQ(::mkdir(other_.c_str(), 0700), 0);
  const auto use = [](const std::string &home) {
    const int rounds = 3 * Count("DEVSUPPORT_STORE_ROUNDS", 100);
    std::string last = "<7>";
    for (int round = 0; round < rounds; ++round) {
      CapturedOutput err(stderr);
      std::int32_t code = -4711;
      const int opened = BerkDb_Open(home.c_str(), nullptr, &code);
      if (opened == 1) {
        EXPECT_EQ(Get(g_uDb.tb_tone, "k"), last);
        last = std::to_string(round);
        EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", last.c_str()), BERKDB_OK);
      } else {
        EXPECT_EQ(code, BERKDB_OPEN_ENVIRONMENT);
      }
      BerkDb_Close();
      const std::string said = err.Take();
      EXPECT_TRUE(opened != 1 || said.empty()) << said;
      if (::testing::Test::HasFailure()) return 1;
    }
    return 0;
  };
  Child first([&] { return use(home_); });
  Child second([&] { return use(other_); });
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  Open();
  BerkDb_Close();
  EXPECT_TRUE(Verify());
}

TEST_F(Homes, AHomeWithTheSameNumberOnAnotherMedium_IsAnotherHome) {
  Open();
  struct stat home = {};
  ASSERT_EQ(::stat(home_.c_str(), &home), 0);
  EXPECT_TRUE(devsupport::store::g_gate.IsOf(home));
  ++home.st_dev;
  EXPECT_FALSE(devsupport::store::g_gate.IsOf(home));
}

TEST_F(Homes, AFifoWithTheNameOfAnOldLockFile_BlocksNoProcess) {
  ASSERT_EQ(::mkfifo((home_ + "/open.lock").c_str(), 0600), 0);
  Open();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
}

// --- rights, and objects of other programs at the store's keys

TEST_F(Homes, SharedObjects_HaveTheRightsOfTheHome) {
  constexpr gid_t kGroup = 4711;
  if (::chown(home_.c_str(), static_cast<uid_t>(-1), kGroup) != 0) GTEST_SKIP() << "needs the right to give groups";
  Open();
  shmid_ds segment{};
  ASSERT_EQ(::shmctl(::shmget(kGateKey, 0, 0), IPC_STAT, &segment), 0);
  EXPECT_EQ(segment.shm_perm.mode & 0777, 0660);
  EXPECT_EQ(segment.shm_perm.gid, kGroup);
  if (const int set = ::semget(kGateKey, 0, 0); set >= 0) {
    semid_ds state{};
    ASSERT_EQ(::semctl(set, 0, IPC_STAT, &state), 0);
    EXPECT_EQ(state.sem_perm.mode & 0777, 0660);
    EXPECT_EQ(state.sem_perm.gid, kGroup);
  }
}

TEST_F(Homes, AnotherUser_CannotTouchTheSharedObjects) {
  Event opened;
  Child stranger([&] {
    opened.Wait();
    if (::setgid(4712) != 0 || ::setuid(4712) != 0) return 77;
    EXPECT_LT(::shmget(kGateKey, 0, 0600), 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_LT(::semget(kGateKey, 0, 0600), 0);
    return 0;
  });
  Open();
  opened.Announce();
  const int status = stranger.Wait();
  if (status == 77) GTEST_SKIP() << "needs the right to become another user";
  EXPECT_EQ(status, 0);
}

constexpr uid_t kOwner = 4715;
constexpr uid_t kMember = 4716;
constexpr gid_t kSharedGroup = 4717;

/// A home of kOwner that kSharedGroup may use.
class SharedHome : public Homes {
 protected:
  void SetUp() override {
    Homes::SetUp();
    if (IsSkipped()) return;
    if (::geteuid() != 0) GTEST_SKIP() << "needs the right to become another user";
    ASSERT_EQ(::chown(home_.c_str(), kOwner, kSharedGroup), 0);
    ASSERT_EQ(::chmod(home_.c_str(), 0770), 0);
  }

  /// Runs a step as another user. What the process counts is written as root again.
  static int As(uid_t user, const std::function<int()> &step) {
    Child process([&] {
      ::umask(0007);
      if (::setgroups(0, nullptr) != 0 || ::setegid(kSharedGroup) != 0 || ::seteuid(user) != 0) return 77;
      const int status = step();
      return ::seteuid(0) == 0 ? status : 78;
    });
    return process.Wait();
  }
};

TEST_F(SharedHome, CanBeUsedByItsOwnerAndThenByRoot) {
  EXPECT_EQ(As(kOwner, [this] { return UseAlone(home_, "<7>", "owner"); }), 0);
  EXPECT_EQ(UseAlone(home_, "owner", "root"), 0);
}

TEST_F(SharedHome, WithObjectsOfAMemberOfItsGroup_IsUsedByThatMemberOnly) {
  EXPECT_EQ(As(kMember, [this] { return UseAlone(home_, "<7>", "1"); }), 0);
  EXPECT_EQ(As(kMember, [this] { return UseAlone(home_, "1", "2"); }), 0);
  EXPECT_EQ(As(kOwner,
               [this] {
                 const Refusal refusal = TryToOpen(home_);
                 EXPECT_EQ(refusal.opened, 0);
                 EXPECT_EQ(refusal.code, BERKDB_OPEN_ENVIRONMENT);
                 EXPECT_NE(refusal.said.find("is not the store's (creator 4716, mode 660)"), std::string::npos)
                     << refusal.said;
                 return 0;
               }),
            0);
  EXPECT_EQ(As(kMember, [this] { return UseAlone(home_, "2", "3"); }), 0);
}

struct Foreign {
  const char *name;
  int (*make)();
};

int MakeSegment(std::size_t bytes, int mode, uid_t owner, int fill) {
  const int id = ::shmget(kGateKey, bytes, IPC_CREAT | IPC_EXCL | mode);
  void *const memory = ::shmat(id, nullptr, 0);
  std::memset(memory, fill, bytes);
  ::shmdt(memory);
  shmid_ds state{};
  ::shmctl(id, IPC_STAT, &state);
  state.shm_perm.uid = owner;
  return ::shmctl(id, IPC_SET, &state);
}

int MakeSemaphore(int count, int mode, uid_t owner) {
  const int id = ::semget(kGateKey, count, IPC_CREAT | IPC_EXCL | mode);
  semid_ds state{};
  ::semctl(id, 0, IPC_STAT, &state);
  state.sem_perm.uid = owner;
  return ::semctl(id, 0, IPC_SET, &state);
}

const Foreign kForeign[] = {
    {"SegmentForEverybody", [] { return MakeSegment(8192, 0666, ::geteuid(), 0); }},
    {"SegmentOfAnotherUser", [] { return MakeSegment(8192, 0660, 4713, 0); }},
    {"SegmentThatIsTooSmall", [] { return MakeSegment(8, 0660, ::geteuid(), 0); }},
    {"SegmentWithOtherContent", [] { return MakeSegment(8192, 0660, ::geteuid(), 0x5A); }},
    {"SemaphoreForEverybody", [] { return MakeSemaphore(1, 0666, ::geteuid()); }},
    {"SemaphoreOfAnotherUser", [] { return MakeSemaphore(1, 0660, 4713); }},
    {"ManySemaphores", [] { return MakeSemaphore(200, 0660, ::geteuid()); }},
};

class ForeignObject : public Homes, public ::testing::WithParamInterface<Foreign> {};

TEST_P(ForeignObject, AtTheGatesKey_IsRefusedWithAMessage) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs the right to give objects to others";
  ASSERT_EQ(GetParam().make(), 0);
  const Refusal refusal = TryToOpen(home_);
  EXPECT_EQ(refusal.opened, 0);
  EXPECT_EQ(refusal.code, BERKDB_OPEN_ENVIRONMENT);
  EXPECT_NE(refusal.said.find("0x12345677"), std::string::npos) << refusal.said;
  EXPECT_EQ(refusal.said.find("Cannot allocate memory"), std::string::npos) << refusal.said;
  // After its removal the store can be opened.
  ::shmctl(::shmget(kGateKey, 0, 0), IPC_RMID, nullptr);
  ::semctl(::semget(kGateKey, 0, 0), 0, IPC_RMID);
  Open();
}

INSTANTIATE_TEST_SUITE_P(Like, ForeignObject, ::testing::ValuesIn(kForeign),
                         [](const auto &foreign) { return foreign.param.name; });

}  // namespace
