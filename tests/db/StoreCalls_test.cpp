// SPDX-License-Identifier: MIT
// The calls that the store's own code makes fail in turn, in ways that tests/faults has not: interrupted, cut short,
// refused while the library's calls work. What was acknowledged must be there afterwards.

#include <db.h>
#include <dirent.h>
#include <pthread.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <type_traits>
#include <vector>

#include "db/for_project/RecordAccess.h"
#include "db/for_project/StoreTables.h"
#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

namespace {

struct Failure {
  const char *function;
  std::intptr_t result;
  int error;
};
Failure g_failure = {"", 0, 0};

template <typename Result>
Result Failed() {
  if constexpr (std::is_pointer_v<Result>)
    return reinterpret_cast<Result>(g_failure.result);
  else
    return static_cast<Result>(g_failure.result);
}

}  // namespace

#define POINT(Result, function, parameters, arguments) \
  DEVSUPPORT_FAULT_POINT(Result, function, parameters, arguments, Failed<Result>(), g_failure.error)

POINT(int, fstat, (int fd, struct stat *status), (fd, status))
POINT(int, fstatvfs, (int fd, struct statvfs *status), (fd, status))
POINT(ssize_t, read, (int fd, void *bytes, std::size_t count), (fd, bytes, count))
POINT(ssize_t, write, (int fd, const void *bytes, std::size_t count), (fd, bytes, count))
POINT(int, fsync, (int fd), (fd))
POINT(int, renameat, (int from, const char *old, int to, const char *name), (from, old, to, name))
POINT(char *, realpath, (const char *path, char *absolute), (path, absolute))
POINT(char *, strdup, (const char *text), (text))
POINT(void *, malloc, (std::size_t bytes), (bytes))
POINT(void *, realloc, (void *old, std::size_t bytes), (old, bytes))
POINT(void *, mmap, (void *at, std::size_t bytes, int protection, int flags, int fd, off_t offset),
      (at, bytes, protection, flags, fd, offset))
POINT(DIR *, fdopendir, (int fd), (fd))
POINT(int, kill, (pid_t pid, int signal), (pid, signal))
POINT(int, semget, (key_t key, int count, int flags), (key, count, flags))
POINT(int, shmget, (key_t key, std::size_t bytes, int flags), (key, bytes, flags))
POINT(int, shmctl, (int id, int command, shmid_ds *status), (id, command, status))
POINT(void *, shmat, (int id, const void *at, int flags), (id, at, flags))
POINT(int, pthread_mutexattr_init, (pthread_mutexattr_t * attributes), (attributes))
POINT(int, pthread_mutexattr_setpshared, (pthread_mutexattr_t * attributes, int shared), (attributes, shared))
POINT(int, pthread_mutexattr_setrobust, (pthread_mutexattr_t * attributes, int robust), (attributes, robust))
POINT(int, pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex))
POINT(int, db_env_create, (DB_ENV * *ppEnv, u_int32_t flags), (ppEnv, flags))
POINT(int, db_create, (DB * *ppDb, DB_ENV *pEnv, u_int32_t flags), (ppDb, pEnv, flags))
// On this processor, the further argument of these is passed as a declared one is.
POINT(int, openat, (int folder, const char *path, int flags, int mode), (folder, path, flags, mode))
POINT(int, semctl, (int id, int index, int command, void *argument), (id, index, command, argument))

// Giving a semaphore back does not fail while it exists; it can be interrupted.
extern "C" int __real_semop(int id, sembuf *steps, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *steps, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *steps, std::size_t count) {
  const bool mayFail = count == 2 || g_failure.error == EINTR;
  if (!mayFail || !devsupport::test::MustFail("semop")) return __real_semop(id, steps, count);
  errno = g_failure.error;
  return -1;
}

namespace {

using namespace devsupport::test;
using devsupport::store::ApplyChanges;
using devsupport::store::Change;
using devsupport::store::RecordWalk;

constexpr Failure kFailures[] = {
    {"fstat", -1, EIO},
    {"fstatvfs", -1, EIO},
    {"read", -1, EINTR},
    {"read", -1, EIO},
    {"write", 1, 0},
    {"write", -1, EIO},
    {"fsync", -1, EIO},
    {"fsync", -1, EINVAL},
    {"renameat", -1, EIO},
    {"realpath", 0, ENOMEM},
    {"strdup", 0, ENOMEM},
    {"malloc", 0, ENOMEM},
    {"realloc", 0, ENOMEM},
    {"mmap", -1, ENOMEM},
    {"fdopendir", 0, ENOMEM},
    {"kill", -1, EPERM},
    {"semop", -1, EINTR},
    {"semop", -1, EINVAL},
    {"semop", -1, EIDRM},
    {"semop", -1, ENOMEM},
    {"semget", -1, ENOSPC},
    {"semctl", -1, EPERM},
    {"shmget", -1, ENOSPC},
    {"shmctl", -1, EPERM},
    {"shmat", -1, ENOMEM},
    {"pthread_mutexattr_init", ENOMEM, 0},
    {"pthread_mutexattr_setpshared", ENOTSUP, 0},
    {"pthread_mutexattr_setrobust", ENOTSUP, 0},
    {"pthread_mutex_trylock", ENOTRECOVERABLE, 0},
    {"pthread_mutex_trylock", EBUSY, 0},
    {"db_env_create", ENOMEM, 0},
    {"db_create", ENOMEM, 0},
    {"openat", -1, EINTR},
    {"openat", -1, EMFILE},
};

constexpr int kNoFurtherCall = 10;
constexpr std::uint8_t kPhoneBook = 2;
constexpr std::uint8_t kNumbers = 3;  // an index of it
constexpr std::uint8_t kTones = 12;
constexpr int kEntries = 450;  // more than two batches of a walk

class StoreCalls : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
    std::vector<std::string> keys;
    for (int n = 0; n < kEntries; ++n)
      keys.push_back("name" + std::to_string(n) + '\0' + "6263" + std::to_string(n) + '\0');
    std::vector<Change> changes;
    for (const std::string &key : keys) changes.push_back({Change::Kind::Put, kPhoneBook, key, "9;y"});
    ASSERT_EQ(ApplyChanges(changes, nullptr).nResult, 0);
    BerkDb_Close();
  }

  /// Runs it, in a process each, with the first call of each function failing, with the second, and so on.
  /// live  calls its argument around what must meet the failure; returns whether BerkDb_Set worked there
  template <typename TLive>
  void FailEach(int mostCalls, TLive live) {
    int met = 0;
    for (const Failure &failure : kFailures) {
      int status = 0;
      for (int nth = 1; nth <= mostCalls && status == 0; ++nth) {
        Child process([&] { return LiveOnce(failure, nth, live); });
        status = process.Wait();
        ASSERT_TRUE(status == 0 || status == kNoFurtherCall)
            << failure.function << ", error " << failure.error << ", call " << nth << ": " << status;
        if (status == 0) ++met;
      }
    }
    EXPECT_GT(met, 20);
    Open();
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
    BerkDb_Close();
    ExpectSoundFile();
  }

 private:
  template <typename TLive>
  int LiveOnce(const Failure &failure, int nth, TLive live) {
    const CapturedOutput err(stderr);
    g_failure = failure;
    bool happened = false;
    const bool stored = live([&](const auto &operation) {
      const FailCall fail(failure.function, nth);
      operation();
      happened = fail.Happened();
    });
    BerkDb_Close();
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
    if (Get(g_uDb.tb_pb, "Bob 1") != "123;x") return 3;
    if (stored && Get(g_uDb.tb_tone, "k") != "v") return 4;
    if (!happened && !stored) return 5;
    if (BerkDb_Del(g_uDb.tb_tone, "k") == BERKDB_ERROR) return 6;
    BerkDb_Close();
    return happened ? 0 : kNoFurtherCall;
  }
};

TEST_F(StoreCalls, WithoutMemoryForTheHomesPath_RefuseTheOpening) {
  Child process([this] {
    // In a folder that is gone, the path stays relative.
    const std::string gone = home_ + "/gone";
    if (::mkdir(gone.c_str(), 0700) != 0 || ::chdir(gone.c_str()) != 0 || ::rmdir(gone.c_str()) != 0) return 1;
    g_failure = {"strdup", 0, ENOMEM};
    const FailCall fail("strdup", 1);
    EXPECT_EQ(TryToOpen("."), RefusedOpening(".", "Cannot allocate memory"));
    return 0;
  });
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(StoreCalls, WithoutMemoryForOldHandles_CloseAllTheSame) {
  const Starter victims([this](int) { return DieInside(home_); });
  Child process([&] {
    const CapturedOutput err(stderr);
    Open();
    EXPECT_EQ(victims.Run(0), 1000 + SIGKILL);
    g_failure = {"malloc", 0, ENOMEM};
    const FailCall fail("malloc", 1);
    BerkDb_Close();
    EXPECT_TRUE(fail.Happened());
    return 0;
  });
  EXPECT_EQ(process.Wait(), 0);
  Open();
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
}

TEST_F(StoreCalls, OnAFullMediumWhileAnotherHasTheStoreOpen_OpenWithTheReserve) {
  Event opened;
  const Child other([&] {
    Open();
    opened.Announce();
    return ::pause();
  });
  opened.Wait();
  int withReserve = 0;
  for (int nth = 1; nth <= 12; ++nth) {
    Child process([&] {
      const CapturedOutput err(stderr);
      g_failure = {"openat", -1, ENOSPC};
      const FailCall fail("openat", nth);
      if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1 || !fail.Happened()) return 0;
      const bool whole = Get(g_uDb.tb_pb, "Bob 1") == "123;x";
      BerkDb_Close();
      return whole ? kNoFurtherCall : 1;
    });
    const int status = process.Wait();
    EXPECT_TRUE(status == 0 || status == kNoFurtherCall) << nth << ": " << status;
    withReserve += status == kNoFurtherCall ? 1 : 0;
  }
  EXPECT_GT(withReserve, 0);
}

TEST_F(StoreCalls, ThatFailInALife_LoseNothingAcknowledged) {
  FailEach(12, [this](const auto &strike) {
    bool stored = false;
    ::unlink((home_ + "/store.reserve").c_str());
    strike([&] {
      if (BerkDb_Open(home_.c_str(), nullptr, nullptr) == 1)
        stored = BerkDb_Set(g_uDb.tb_tone, "k", "v") == BERKDB_OK;
      BerkDb_Close();
    });
    return stored;
  });
}

TEST_F(StoreCalls, ThatFailAfterADeath_LoseNothingAcknowledged) {
  FailEach(4, [this](const auto &strike) {
    Child victim([this] { return DieInside(home_); });
    if (victim.Wait() != 1000 + SIGKILL) return false;
    bool stored = false;
    strike([&] {
      if (BerkDb_Open(home_.c_str(), nullptr, nullptr) == 1)
        stored = BerkDb_Set(g_uDb.tb_tone, "k", "v") == BERKDB_OK;
    });
    return stored;
  });
}

TEST_F(StoreCalls, ThatFailWhileTheStoreHeals_LoseNothingAcknowledged) {
  FailEach(4, [this](const auto &strike) {
    const Starter victims([this](int) { return DieInside(home_); });
    Open();
    if (victims.Run(0) != 1000 + SIGKILL) return false;
    bool stored = false;
    strike([&] { stored = BerkDb_Set(g_uDb.tb_tone, "k", "v") == BERKDB_OK; });
    return stored;
  });
}

TEST_F(StoreCalls, ThatFailInWalksAndBatches_LoseNothingAcknowledged) {
  FailEach(24, [this](const auto &strike) {
    Open();
    bool stored = false;
    strike([&] {
      int read = 0;
      for (const auto row : {kPhoneBook, kNumbers}) {
        RecordWalk walk(*g_auDbTbl[row].ppDb, devsupport::store::kTableRules[row], row == kPhoneBook ? "A" : "");
        for (devsupport::store::WholeRecord record; walk.Next(record) == 0;) ++read;
      }
      const Change change = {Change::Kind::Put, kTones, {"k", 2}, {"v", 2}};
      stored = ApplyChanges({&change, 1}, nullptr).nResult == 0 && read == 2 * (kEntries + 1);
    });
    return stored;
  });
}

}  // namespace
