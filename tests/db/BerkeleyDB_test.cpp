// SPDX-License-Identifier: MIT
// Opening and closing the store, and its catalogue.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/detail/db/BerkeleyDB.h>
#include <devsupport/ipc/ShareMem.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(int, semop, (int id, sembuf *steps, std::size_t count), (id, steps, count), -1, EINTR)

namespace {

using namespace devsupport::test;

constexpr int kShmKey = 0x12345678;

// --- the catalogue

TEST(Catalogue, NamesTheThirteenTablesInOrder) {
  const char *const names[] = {"tb_parameter", "tb_dm",     "tb_pb",   "stb_pb",  "stb_1_pb",
                               "tb_speedd",    "tb_dialp",  "tb_fkey", "tb_line", "tb_siptk",
                               "tb_route",     "stb_route", "tb_tone"};
  const std::uint32_t generic[] = {1, 0, 1, 0, 0, 1, 1, 1, 1, 1, 0, 0, 1};
  ASSERT_EQ(std::size(names), std::size(g_auDbTbl));
  for (std::size_t i = 0; i < std::size(names); ++i) {
    EXPECT_STREQ(g_auDbTbl[i].pName, names[i]);
    EXPECT_EQ(g_auDbTbl[i].generic, generic[i]) << names[i];
    EXPECT_EQ(g_auDbTbl[i].ppDb, reinterpret_cast<DB **>(&g_uDb) + i) << names[i];
  }
}

TEST(Catalogue, FindTbl_FindsTheRowOfEachSlot) {
  EXPECT_EQ(BerkDb_FindTbl(&g_uDb.tb_parameter), &g_auDbTbl[0]);
  EXPECT_EQ(BerkDb_FindTbl(&g_uDb.stb_route), &g_auDbTbl[11]);
  EXPECT_EQ(BerkDb_FindTbl(&g_uDb.tb_tone), &g_auDbTbl[12]);
}

TEST(Catalogue, FindTbl_OfAnotherAddress_ReturnsNull) {
  DB *stranger = nullptr;
  EXPECT_EQ(BerkDb_FindTbl(&stranger), nullptr);
  EXPECT_EQ(BerkDb_FindTbl(nullptr), nullptr);
}

TEST(Catalogue, FindTblByDb_OfNullWhileClosed_ReturnsNull) { EXPECT_EQ(BerkDb_FindTblByDb(nullptr), nullptr); }

// --- opening and closing

class Store : public StoreTest {};

TEST_F(Store, Open_InAnEmptyHome_OpensAllTablesAndPrintsNothing) {
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  const int opened = BerkDb_Open(home_.c_str(), "config.db", &result);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(result, 0);
  EXPECT_NE(BerkDb_GetEnv(), nullptr);
  for (const TDbTbl &row : g_auDbTbl) EXPECT_NE(*row.ppDb, nullptr) << row.pName;
}

TEST_F(Store, Open_WhoseWaitIsInterruptedByASignal_ContinuesToWait) {
  const FailCall interrupted("semop", 1);
  Open();
  EXPECT_TRUE(interrupted.Happened());
}

TEST_F(Store, Open_WithoutAResultPointer_Works) { EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1); }

TEST_F(Store, Open_WithAnotherFile_PutsTheTablesThere) {
  ASSERT_EQ(BerkDb_Open(home_.c_str(), "other.db", nullptr), 1);
  EXPECT_TRUE(std::filesystem::exists(home_ + "/other.db"));
  EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

TEST_F(Store, Open_OfTwoFilesInTurn_FindsBothWhole) {
  CapturedOutput err(stderr);
  for (const char *pBefore : {"<7>", "1"}) {
    for (const char *pFile : {"config.db", "other.db"}) {
      ASSERT_EQ(BerkDb_Open(home_.c_str(), pFile, nullptr), 1) << err.Take();
      EXPECT_EQ(Get(g_uDb.tb_parameter, "k"), pBefore);
      EXPECT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "1"), BERKDB_OK);
      BerkDb_Close();
    }
  }
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Store, Open_WithoutHomeAndFile_UsesTheDefaultsOfTheDevice) {
  // The process has a private root folder in a private mount namespace, so that the machine's is not changed.
  Child device([&] {
    const char *pRoot = home_.c_str();
    const int before = ::open("/", O_RDONLY | O_DIRECTORY);
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", pRoot, "tmpfs", 0, nullptr) != 0 || ::chroot(pRoot) != 0 || ::chdir("/") != 0) {
      return 1;
    }
    std::filesystem::create_directories("/config_fs/DB");
    std::int32_t result = -4711;
    EXPECT_EQ(BerkDb_Open(nullptr, nullptr, &result), 1);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "5"), BERKDB_OK);
    EXPECT_EQ(Get(g_uDb.tb_parameter, "vlan"), "5");
    BerkDb_Close();
    EXPECT_TRUE(std::filesystem::exists("/config_fs/DB/config.db"));
    return ::fchdir(before) == 0 && ::chroot(".") == 0 ? 0 : 2;  // where the counters of executed lines are
  });
  EXPECT_EQ(device.Wait(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(home_));
}

TEST_F(Store, Open_TakesAHomeWithAndWithoutASlash) {
  ASSERT_EQ(BerkDb_Open((home_ + "/").c_str(), nullptr, nullptr), 1);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "5"), BERKDB_OK);
  Reopen();
  EXPECT_EQ(Get(g_uDb.tb_parameter, "vlan"), "5");
}

TEST_F(Store, FindTblByDb_FindsTheRowOfEachHandle) {
  Open();
  for (const TDbTbl &row : g_auDbTbl) EXPECT_EQ(BerkDb_FindTblByDb(*row.ppDb), &row);
  EXPECT_EQ(BerkDb_FindTblByDb(reinterpret_cast<DB *>(&g_uDb)), nullptr);
}

TEST_F(Store, Open_ConfiguresTheEnvironment) {
  Open();
  DB_ENV *pEnv = BerkDb_GetEnv();
  u_int32_t gigabytes = 9;
  u_int32_t bytes = 9;
  int caches = 9;
  EXPECT_EQ(pEnv->get_cache_max(pEnv, &gigabytes, &bytes), 0);
  EXPECT_EQ(gigabytes, 0u);
  EXPECT_LE(bytes, 0x30000u);  // the library adds its own share to small caches
  EXPECT_EQ(pEnv->get_cachesize(pEnv, &gigabytes, &bytes, &caches), 0);
  EXPECT_EQ(caches, 1);
  u_int32_t value = 9;
  EXPECT_EQ(pEnv->get_lg_max(pEnv, &value), 0);
  EXPECT_EQ(value, 0x10000u);
  EXPECT_EQ(pEnv->get_lg_regionmax(pEnv, &value), 0);
  EXPECT_EQ(value, 130000u);
  EXPECT_EQ(pEnv->get_lk_max_lockers(pEnv, &value), 0);
  EXPECT_EQ(value, 600u);
  EXPECT_EQ(pEnv->get_lk_max_locks(pEnv, &value), 0);
  EXPECT_EQ(value, 600u);
  EXPECT_EQ(pEnv->get_lk_max_objects(pEnv, &value), 0);
  EXPECT_EQ(value, 600u);
  EXPECT_EQ(pEnv->get_lk_detect(pEnv, &value), 0);
  EXPECT_EQ(value, static_cast<u_int32_t>(DB_LOCK_DEFAULT));
  EXPECT_EQ(pEnv->get_flags(pEnv, &value), 0);
  EXPECT_NE(value & DB_AUTO_COMMIT, 0u);
  int on = 0;
  EXPECT_EQ(pEnv->log_get_config(pEnv, DB_LOG_AUTO_REMOVE, &on), 0);
  EXPECT_EQ(on, 1);
  long key = 0;
  EXPECT_EQ(pEnv->get_shm_key(pEnv, &key), 0);
  EXPECT_EQ(key, kShmKey);
}

TEST_F(Store, Open_ConfiguresTheTables) {
  Open();
  for (const TDbTbl &row : g_auDbTbl) {
    DB *pDb = *row.ppDb;
    u_int32_t page = 9;
    u_int32_t flags = 9;
    DBTYPE type = DB_UNKNOWN;
    const char *pPrefix = nullptr;
    pDb->get_errpfx(pDb, &pPrefix);
    EXPECT_STREQ(pPrefix, "BerkDb_Open") << row.pName;
    EXPECT_EQ(pDb->get_pagesize(pDb, &page), 0);
    EXPECT_EQ(page, 2048u) << row.pName;
    EXPECT_EQ(pDb->get_type(pDb, &type), 0);
    EXPECT_EQ(type, DB_BTREE) << row.pName;
    EXPECT_EQ(pDb->get_flags(pDb, &flags), 0);
    const bool isIndex = row.pName[0] == 's';
    EXPECT_EQ((flags & DB_DUPSORT) != 0, isIndex) << row.pName;
    EXPECT_EQ(pDb->get_open_flags(pDb, &flags), 0);
    EXPECT_EQ(flags & (DB_CREATE | DB_READ_UNCOMMITTED), static_cast<u_int32_t>(DB_CREATE | DB_READ_UNCOMMITTED));
  }
}

TEST_F(Store, Environment_LivesAtItsKeyAndTheKeysAfterIt) {
  EXPECT_EQ(ShareMem_FindKeyAttchCount(kShmKey), 0);
  Open();
  EXPECT_EQ(ShareMem_FindKeyAttchCount(kShmKey), 1);
  EXPECT_EQ(ShareMem_FindKeyAttchCount(kShmKey + 1), 1);
  BerkDb_Close();
  EXPECT_EQ(ShareMem_FindKeyAttchCount(kShmKey), 0);
  EXPECT_EQ(ShareMem_FindKeyAttchCount(kShmKey + 1), 0);
}

TEST_F(Store, Open_WhenOpenAlready_RefusesAndLeavesTheStoreOpen) {
  Open();
  DB *pBefore = g_uDb.tb_parameter;
  EXPECT_EQ(TryToOpen(home_), RefusedOpening(home_, "Device or resource busy"));
  EXPECT_EQ(g_uDb.tb_parameter, pBefore);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "x"), "<7>");
}

TEST_F(Store, Close_WhenClosed_DoesNothing) {
  CapturedOutput err(stderr);
  BerkDb_Close();
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Store, Close_ClearsEverySlotAndTheEnvironment) {
  Open();
  CapturedOutput err(stderr);
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
  for (const TDbTbl &row : g_auDbTbl) EXPECT_EQ(*row.ppDb, nullptr) << row.pName;
}

TEST_F(Store, Close_ReportsATableThatFailsAndClearsEverySlot) {
  Open();
  DB *pDb = g_uDb.tb_tone;
  auto realClose = pDb->close;
  static decltype(realClose) s_realClose;
  s_realClose = realClose;
  pDb->close = [](DB *pTable, u_int32_t flags) {
    s_realClose(pTable, flags);
    return EIO;
  };
  CapturedOutput err(stderr);
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "FAIL to close database tb_tone: Input/output error" + kSourceLine);
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
  for (const TDbTbl &row : g_auDbTbl) EXPECT_EQ(*row.ppDb, nullptr) << row.pName;
}

TEST_F(Store, Close_ReportsAnEnvironmentThatFailsAndForgetsIt) {
  Open();
  DB_ENV *pEnv = BerkDb_GetEnv();
  static decltype(pEnv->close) s_realClose;
  s_realClose = pEnv->close;
  pEnv->close = [](DB_ENV *pOpen, u_int32_t flags) {
    s_realClose(pOpen, flags);
    return EIO;
  };
  CapturedOutput err(stderr);
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "FAIL to close database (environment): Input/output error" + kSourceLine);
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
  Open();
}

TEST_F(Store, OpenedAgain_HoldsWhatWasStored) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "7"), BERKDB_OK);
  Reopen();
  EXPECT_EQ(Get(g_uDb.tb_parameter, "vlan"), "7");
  BerkDb_Close();
  EXPECT_TRUE(Verify());
}

TEST_F(Store, OpenedAfterARestartOfTheDevice_HoldsWhatWasStoredAndPrintsNothing) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "7"), BERKDB_OK);
  BerkDb_Close();
  ASSERT_EQ(::unshare(CLONE_NEWIPC), 0) << "all segments are gone";
  CapturedOutput err(stderr);
  Open();
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(Get(g_uDb.tb_parameter, "vlan"), "7");
}

TEST_F(Store, CreateEnvir_OpensTheEnvironmentWithoutTables) {
  CapturedOutput err(stderr);
  EXPECT_EQ(_BerkDb_CreateEnvir(home_.c_str()), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_NE(BerkDb_GetEnv(), nullptr);
  EXPECT_EQ(g_uDb.tb_parameter, nullptr);
  EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

// --- first and later processes

TEST_F(Store, Open_WhileAnotherProcessIsAttached_JoinsAndSeesItsData) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "from", "parent"), BERKDB_OK);
  // The store is closed before the fork, so that the child does not inherit it.
  Event opened;
  Event done;
  BerkDb_Close();
  Child other([&] {
    Open();
    BerkDb_Set(g_uDb.tb_parameter, "from", "other");
    opened.Announce();
    done.Wait();
    BerkDb_Close();
    return 0;
  });
  opened.Wait();
  const auto before = std::filesystem::last_write_time(home_ + "/__db.001");
  Open();
  EXPECT_EQ(std::filesystem::last_write_time(home_ + "/__db.001"), before) << "the regions were made anew";
  u_int32_t flags = 0;
  BerkDb_GetEnv()->get_open_flags(BerkDb_GetEnv(), &flags);
  EXPECT_EQ(flags & (DB_CREATE | DB_RECOVER), 0u);
  EXPECT_EQ(
      flags & (DB_SYSTEM_MEM | DB_INIT_TXN | DB_INIT_MPOOL | DB_INIT_LOG | DB_INIT_LOCK | DB_THREAD),
      static_cast<u_int32_t>(DB_SYSTEM_MEM | DB_INIT_TXN | DB_INIT_MPOOL | DB_INIT_LOG | DB_INIT_LOCK | DB_THREAD));
  EXPECT_EQ(Get(g_uDb.tb_parameter, "from"), "other");
  EXPECT_EQ(ShareMem_FindKeyAttchCount(kShmKey), 2);
  done.Announce();
  EXPECT_EQ(other.Wait(), 0);
}

TEST_F(Store, Open_WhenNobodyIsAttached_CreatesAndRecovers) {
  Open();
  u_int32_t flags = 0;
  BerkDb_GetEnv()->get_open_flags(BerkDb_GetEnv(), &flags);
  EXPECT_EQ(flags & (DB_CREATE | DB_RECOVER), static_cast<u_int32_t>(DB_CREATE | DB_RECOVER));
}

TEST_F(StoreTest, AFileWithAPathOfItsOwn_IsOpenedAgain) {
  const std::string path = home_ + "/other.db";
  for (const char *expected : {"<7>", "v"}) {
    ASSERT_EQ(BerkDb_Open(home_.c_str(), path.c_str(), nullptr), 1);
    EXPECT_EQ(Get(g_uDb.tb_tone, "k"), expected);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
    BerkDb_Close();
  }
  EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

}  // namespace
