// Opening and closing the store, its catalogue, and what it says when it cannot be opened.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/detail/db/BerkeleyDB.h>
#include <devsupport/ipc/ShareMem.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "db/Store.h"
#include "db/for_project/OpenReport.h"
#include "support/CapturedOutput.h"
#include "support/Child.h"
#include "support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(int, db_env_create, (DB_ENV * *ppEnv, u_int32_t flags), (ppEnv, flags), ENOMEM, 0)

namespace {

using namespace devsupport::test;

constexpr int kShmKey = 0x12345678;

// What the n-th handle that the store makes does wrong; counted from 1, 0 = none does.
int g_badHandle = 0;
int g_handles = 0;
void (*g_spoil)(DB *) = nullptr;

void SpoilHandle(int nth, void (*spoil)(DB *)) {
  g_badHandle = nth;
  g_handles = 0;
  g_spoil = spoil;
}

}  // namespace

extern "C" int __real_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags);
extern "C" int __wrap_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags);
extern "C" int __wrap_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags) {
  const bool bad = ++g_handles == g_badHandle;
  if (bad && g_spoil == nullptr) return ENOMEM;
  const int result = __real_db_create(ppDb, pEnv, flags);
  if (bad) g_spoil(*ppDb);
  return result;
}

namespace {

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

TEST_F(Store, Open_WithoutAResultPointer_Works) { EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1); }

TEST_F(Store, Open_WithAnotherFile_PutsTheTablesThere) {
  ASSERT_EQ(BerkDb_Open(home_.c_str(), "other.db", nullptr), 1);
  EXPECT_TRUE(std::filesystem::exists(home_ + "/other.db"));
  EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

TEST_F(Store, Open_WithoutHomeAndFile_UsesTheDevicesOwn) {
  // A root of its own in a mount namespace of its own: the machine's is not touched.
  Child device([&] {
    const char *pRoot = home_.c_str();
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
    return 0;
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

TEST_F(Store, Environment_LivesAtItsKeyAndTheKeysBehindIt) {
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
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, &result), 0);
  EXPECT_EQ(err.Take(), "FAIL to open environment " + home_ + ": Device or resource busy" + kSourceLine);
  EXPECT_EQ(result, BERKDB_OPEN_ENVIRONMENT);
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
  // The child has not opened the store: its image is a new one.
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

// --- orders and secondary keys

TEST_F(Store, TbDm_RunsDownwards) {
  Open();
  for (const char *key : {"a", "c", "b", "ab"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key, key), BERKDB_OK);
  BerkDb_Close();
  Records keys = Dump("tb_dm");
  EXPECT_EQ(
      keys,
      (Records{{Text("c"), Text("c")}, {Text("b"), Text("b")}, {Text("ab"), Text("ab")}, {Text("a"), Text("a")}}));
  EXPECT_TRUE(Verify());
}

TEST_F(Store, StbPb_KeyIsTheTextBeforeTheSemicolonWithoutTerminator) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123;x"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_pb"), (Records{{Raw("123"), Text("Bob\0"
                                                       "262")}}));
}

TEST_F(Store, StbPb_KeyWithoutSemicolonIsTheWholeTextWithTerminator) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_pb"), (Records{{Text("123"), Text("Bob\0"
                                                        "262")}}));
}

TEST_F(Store, StbPb_KeyOfAValueWithoutTerminatorIsTheWholeValue) {
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Bob", "123", 3), BERKDB_OK);
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Empty", nullptr, 0), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_pb"), (Records{{"", Text("Empty")}, {Raw("123"), Text("Bob")}}));
}

TEST_F(Store, Stb1Pb_KeyIsTheDigitsWithTerminator) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "x"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_1_pb"), (Records{{Text("26201"), Text("Bob 1\0"
                                                            "26201")}}));
}

TEST_F(Store, Stb1Pb_KeyOfARecordWithoutDigitsIsEmpty) {
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Bob", "x", 2), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_1_pb"), (Records{{"", Text("Bob")}}));
}

TEST_F(Store, StbRoute_KeyIsTheFirstThreeBytesOfTheRoutesKey) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route,
                       "\x01"
                       "23456",
                       "x"),
            BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "", "one byte"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "\x02", "two bytes"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_route"), (Records{{Raw("\0"), Text("")},
                                        {Raw("\x01"
                                             "23"),
                                         Text("\x01"
                                              "23456")},
                                        {Raw("\x02\0"), Text("\x02")}}));
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Store, StbRoute_DuplicatesRunDownwardsByNumberAsTextAndRest) {
  Open();
  // Same first three bytes, so duplicates of one another in the index; of different length and end.
  for (const char *key : {"\x05"
                          "12",
                          "\x05"
                          "129",
                          "\x05"
                          "12a",
                          "\x05"
                          "120"}) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, key, "x"), BERKDB_OK);
  }
  BerkDb_Close();
  const std::string group =
      "\x05"
      "12";
  EXPECT_EQ(Dump("stb_route"), (Records{{group, Text("\x05"
                                                     "12a")},
                                        {group, Text("\x05"
                                                     "129")},
                                        {group, Text("\x05"
                                                     "120")},
                                        {group, Text("\x05"
                                                     "12")}}));
}

TEST_F(Store, StbRoute_LongRoutesThatBeginAlikeAreNotTakenForOne) {
  Open();
  const std::string begin =
      "\x80"
      "12345678901234567890";
  for (const char *end : {"a", "b", "c"})
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, (begin + end).c_str(), end), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_route").size(), 3u);
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Store, StbRoute_IsBuiltFromTheRoutesWhenItIsEmpty) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route,
                       "\x01"
                       "23456",
                       "x"),
            BERKDB_OK);
  BerkDb_Close();
  DB *pFile = nullptr;
  ASSERT_EQ(db_create(&pFile, nullptr, 0), 0);
  ASSERT_EQ(pFile->remove(pFile, FilePath().c_str(), "stb_route", 0), 0);
  Open();
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_route"), (Records{{Raw("\x01"
                                             "23"),
                                         Text("\x01"
                                              "23456")}}));
}

// --- failures

TEST_F(Store, Open_WithoutItsHome_IsCode1AndLeavesNothingBehind) {
  const std::string missing = home_ + "/missing";
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  EXPECT_EQ(BerkDb_Open(missing.c_str(), nullptr, &result), 0);
  EXPECT_EQ(err.Take(), "FAIL to open environment " + missing + ": No such file or directory" + kSourceLine);
  EXPECT_EQ(result, BERKDB_OPEN_ENVIRONMENT);
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(Store, Open_AfterAFailedOne_WorksOnceThatIsClosed) {
  CapturedOutput err(stderr);
  ASSERT_EQ(BerkDb_Open((home_ + "/missing").c_str(), nullptr, nullptr), 0);
  EXPECT_NE(BerkDb_GetEnv(), nullptr);
  EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 0);
  BerkDb_Close();
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
  err.Take();
  Open();
}

TEST_F(Store, Open_OfAFileThatIsNoDatabase_IsCode3AndNamesTheFirstTable) {
  std::ofstream(FilePath()) << std::string(10000, 'x');
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, &result), 0);
  const std::string said = err.Take();
  EXPECT_EQ(result, BERKDB_OPEN_TABLE);
  EXPECT_NE(said.find("FAIL to open database tb_parameter: Invalid argument" + kSourceLine), std::string::npos)
      << said;
  EXPECT_NE(g_uDb.tb_parameter, nullptr) << "only closing clears what a failed open left";
  EXPECT_EQ(g_uDb.tb_dm, nullptr);
  BerkDb_Close();
  std::filesystem::remove(FilePath());
  Open();
}

TEST_F(Store, Open_OfATableWithAnotherKindOfContent_IsCode3AndNamesThatTable) {
  Open();
  BerkDb_Close();
  // The same file with tb_dm as a hash table.
  DB *pFile = nullptr;
  ASSERT_EQ(db_create(&pFile, nullptr, 0), 0);
  ASSERT_EQ(pFile->remove(pFile, FilePath().c_str(), "tb_dm", 0), 0);
  ASSERT_EQ(db_create(&pFile, nullptr, 0), 0);
  ASSERT_EQ(pFile->open(pFile, nullptr, FilePath().c_str(), "tb_dm", DB_HASH, DB_CREATE, 0), 0);
  pFile->close(pFile, 0);
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, &result), 0);
  const std::string said = err.Take();
  EXPECT_EQ(result, BERKDB_OPEN_TABLE);
  EXPECT_NE(said.find("FAIL to open database tb_dm: "), std::string::npos) << said;
  EXPECT_NE(g_uDb.tb_tone, nullptr) << "tables opened before stay open";
}

TEST_F(Store, Open_WithoutTheRightToTheFile_IsCode3) {
  std::ofstream(FilePath()) << "somebody's";
  ASSERT_EQ(::chmod(FilePath().c_str(), 0), 0);
  ASSERT_EQ(::chmod(home_.c_str(), 0777), 0);
  Child stranger([&] {
    if (::getuid() == 0 && ::setuid(65534) != 0) return 1;
    CapturedOutput err(stderr);
    std::int32_t result = -4711;
    const int opened = BerkDb_Open(home_.c_str(), nullptr, &result);
    const std::string said = err.Take();
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(result, BERKDB_OPEN_TABLE) << said;
    EXPECT_NE(said.find("FAIL to open database tb_parameter: Permission denied" + kSourceLine), std::string::npos)
        << said;
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(stranger.Wait(), 0);
}

TEST_F(Store, Open_WithoutTheRightToTheHome_IsCode1) {
  ASSERT_EQ(::chmod(home_.c_str(), 0), 0);
  Child stranger([&] {
    if (::getuid() == 0 && ::setuid(65534) != 0) return 1;
    CapturedOutput err(stderr);
    std::int32_t result = -4711;
    const int opened = BerkDb_Open(home_.c_str(), nullptr, &result);
    EXPECT_EQ(err.Take(), "FAIL to open environment " + home_ + ": Permission denied" + kSourceLine);
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(result, BERKDB_OPEN_ENVIRONMENT);
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(stranger.Wait(), 0);
  ::chmod(home_.c_str(), 0700);
}

class SpoiltHandle : public Store {
 protected:
  void TearDown() override {
    SpoilHandle(0, nullptr);
    Store::TearDown();
  }

  // Opens the store with a bad n-th handle: 1 to 8 are the generic tables, then come the others in their order.
  void OpenWith(int nth, void (*spoil)(DB *), int code, const std::string &report) {
    SpoilHandle(nth, spoil);
    CapturedOutput err(stderr);
    std::int32_t result = -4711;
    const int opened = BerkDb_Open(home_.c_str(), nullptr, &result);
    EXPECT_EQ(err.Take(), report + kSourceLine);
    EXPECT_EQ(opened, 0);
    EXPECT_EQ(result, code);
    SpoilHandle(0, nullptr);
    BerkDb_Close();
    Open();
  }

  static void NoFlags(DB *pDb) {
    pDb->set_flags = [](DB *, u_int32_t) { return EINVAL; };
  }
  static void NoOrder(DB *pDb) {
    pDb->set_bt_compare = [](DB *, int (*)(DB *, const DBT *, const DBT *)) { return EINVAL; };
    pDb->set_dup_compare = [](DB *, int (*)(DB *, const DBT *, const DBT *)) { return EINVAL; };
  }
};

TEST_F(SpoiltHandle, OfTheEnvironment_IsCode1OnStandardError) {
  const FailCall fail("db_env_create", 1);
  CapturedOutput err(stderr);
  std::int32_t result = -4711;
  EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, &result), 0);
  EXPECT_EQ(err.Take(), "FAIL to create environment: (12) Cannot allocate memory\n");
  EXPECT_EQ(result, BERKDB_OPEN_ENVIRONMENT);
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
}

TEST_F(SpoiltHandle, ThatCannotBeCreated_IsCode2) {
  OpenWith(1, nullptr, 2, "FAIL to create database tb_parameter: Cannot allocate memory");
}
TEST_F(SpoiltHandle, OfTbDmThatCannotBeCreated_IsCode2) {
  OpenWith(9, nullptr, 2, "FAIL to create database tb_dm: Cannot allocate memory");
}
TEST_F(SpoiltHandle, OfStbRouteThatCannotBeCreated_IsCode2) {
  OpenWith(13, nullptr, 2, "FAIL to create database stb_route: Cannot allocate memory");
}
TEST_F(SpoiltHandle, OfTbDmWithoutItsOrder_IsCode4) {
  OpenWith(9, NoOrder, 4, "FAIL to set btree compare function of database tb_dm: Invalid argument");
}
TEST_F(SpoiltHandle, OfStbPbWithoutItsFlags_IsCode5) {
  OpenWith(10, NoFlags, 5, "FAIL to set flags for secondary database stb_pb: Invalid argument");
}
TEST_F(SpoiltHandle, OfStb1PbWithoutItsFlags_IsCode5) {
  OpenWith(11, NoFlags, 5, "FAIL to set flags for secondary database stb_1_pb: Invalid argument");
}
TEST_F(SpoiltHandle, OfStbRouteWithoutItsFlags_IsCode5) {
  OpenWith(13, NoFlags, 5, "FAIL to set flags for secondary database stb_route: Invalid argument");
}
TEST_F(SpoiltHandle, OfStbRouteWithoutItsOrder_IsCode4) {
  OpenWith(13, NoOrder, 4, "FAIL to set btree compare function of database stb_route: Invalid argument");
}

// --- the report of each code

class OpenReport : public Store {
 protected:
  std::string Report(DB *pDb, int code) {
    CapturedOutput err(stderr);
    devsupport::store::ReportOpenFailure(BerkDb_GetEnv(), pDb, code, ENOMEM, "tb_x");
    return err.Take();
  }
};

TEST_F(OpenReport, OfEachCode_NamesTheTable) {
  Open();
  const std::string end = ": Cannot allocate memory" + kSourceLine;
  EXPECT_EQ(Report(nullptr, 2), "FAIL to create database tb_x" + end);
  EXPECT_EQ(Report(g_uDb.tb_dm, 3), "FAIL to open database tb_x" + end);
  EXPECT_EQ(Report(g_uDb.tb_dm, 4), "FAIL to set btree compare function of database tb_x" + end);
  EXPECT_EQ(Report(g_uDb.tb_dm, 5), "FAIL to set flags for secondary database tb_x" + end);
}

TEST_F(OpenReport, OfAnyOtherCode_SaysThatItIsLost) {
  Open();
  EXPECT_EQ(Report(g_uDb.tb_dm, 17), "BerkDb_Open: loss switch case, nCase=17  \\db/for_project/BerkeleyDB 499\n");
}

// --- the error callback

std::string Said(const char *message) {
  CapturedOutput err(stderr);
  BerkDb_ErrCall(nullptr, "prefix", message);
  return err.Take();
}

TEST(ErrCall, PrintsTheMessageAndItsSource) { EXPECT_EQ(Said("no space"), "no space" + kSourceLine); }

TEST(ErrCall, TakesADoublePercentForOne) { EXPECT_EQ(Said("100%% of %%d"), "100% of %d" + kSourceLine); }

TEST(ErrCall, PrintsEveryOtherPercentAsItStands) {
  EXPECT_EQ(Said("%s %n %d% %5$s %"), "%s %n %d% %5$s %" + kSourceLine);
  EXPECT_EQ(Said("%%%s"), "%%s" + kSourceLine);
}

TEST(ErrCall, WithoutAMessage_PrintsTheSource) {
  EXPECT_EQ(Said(""), kSourceLine);
  EXPECT_EQ(Said(nullptr), kSourceLine);
}

// --- single files

class SingleFile : public Store {};

TEST_F(SingleFile, Open_MakesAFileThatTheRecordOperationsTake) {
  CapturedOutput err(stderr);
  DB *pDb = BerkDb_OpenFile((home_ + "/one.db").c_str(), 0);
  ASSERT_NE(pDb, nullptr);
  EXPECT_EQ(BerkDb_Set(pDb, "key", "value"), BERKDB_OK);
  EXPECT_EQ(Get(pDb, "key"), "value");
  EXPECT_EQ(BerkDb_CloseFile(&pDb), 1);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(pDb, nullptr);
}

TEST_F(SingleFile, Open_SetsTheFlagsItIsGiven) {
  DB *pDb = BerkDb_OpenFile((home_ + "/one.db").c_str(), DB_DUPSORT);
  ASSERT_NE(pDb, nullptr);
  u_int32_t flags = 0;
  EXPECT_EQ(pDb->get_flags(pDb, &flags), 0);
  EXPECT_NE(flags & DB_DUPSORT, 0u);
  BerkDb_CloseFile(&pDb);
}

TEST_F(SingleFile, Open_WithoutAHandle_SaysFail) {
  SpoilHandle(1, nullptr);
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_OpenFile((home_ + "/one.db").c_str(), 0), nullptr);
  SpoilHandle(0, nullptr);
  EXPECT_EQ(err.Take(), "Fail: Cannot allocate memory\n");
}

TEST_F(SingleFile, Open_InAMissingFolder_ReportsAndReturnsNull) {
  const std::string path = home_ + "/missing/one.db";
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_OpenFile(path.c_str(), 0), nullptr);
  const std::string said = err.Take();
  EXPECT_NE(said.find("Database '" + path + "' open failed: No such file or directory\n"), std::string::npos) << said;
}

TEST_F(SingleFile, Open_WithFlagsThatNoTableHas_ReportsAndReturnsNull) {
  const std::string path = home_ + "/one.db";
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_OpenFile(path.c_str(), 0x80000000u), nullptr);
  const std::string said = err.Take();
  EXPECT_NE(said.find("Database '" + path + "' set_flags() failed: Invalid argument\n"), std::string::npos) << said;
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SingleFile, Close_OfNothing_IsASuccess) {
  DB *pDb = nullptr;
  EXPECT_EQ(BerkDb_CloseFile(&pDb), 1);
}

TEST_F(SingleFile, Close_ThatFails_ReportsAndKeepsThePointer) {
  DB *pDb = BerkDb_OpenFile((home_ + "/one.db").c_str(), 0);
  ASSERT_NE(pDb, nullptr);
  static decltype(pDb->close) s_realClose;
  s_realClose = pDb->close;
  pDb->close = [](DB *pOpen, u_int32_t flags) {
    s_realClose(pOpen, flags);
    return EIO;
  };
  DB *pGiven = pDb;
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_CloseFile(&pGiven), 0);
  EXPECT_EQ(err.Take(), "database close failed: Input/output error\n");
  EXPECT_EQ(pGiven, pDb);
}

}  // namespace
