// SPDX-License-Identifier: MIT
// A store that cannot be opened: the code and the report of each cause, and the store's error output.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <sys/file.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "db/for_project/OpenReport.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(int, semop, (int id, sembuf *steps, std::size_t count), (id, steps, count), -1, ENOLCK)
DEVSUPPORT_FAULT_POINT(int, db_env_create, (DB_ENV * *ppEnv, u_int32_t flags), (ppEnv, flags), ENOMEM, 0)

namespace {

using namespace devsupport::test;

// The number of the store's handle that g_spoil spoils, counted from 1; 0 for none.
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

class FailedOpen : public StoreTest {
 protected:
  static void ExpectNoTable(const Opening &opening, const std::string &report) {
    EXPECT_EQ(opening.opened, 0);
    EXPECT_EQ(opening.code, BERKDB_OPEN_TABLE);
    EXPECT_NE(opening.printed.find("FAIL to open database " + report), std::string::npos) << opening.printed;
  }
};

TEST_F(FailedOpen, WithoutItsHome_IsCode1AndMakesNothing) {
  const std::string missing = home_ + "/missing";
  EXPECT_EQ(TryToOpen(missing), RefusedOpening(missing, "No such file or directory"));
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(FailedOpen, WhoseLockCannotBeTaken_IsCode1) {
  const FailCall fail("semop", 1);
  EXPECT_EQ(TryToOpen(home_), RefusedOpening(home_, "No locks available"));
}

TEST_F(FailedOpen, AfterAFailedOne_WorksOnceThatIsClosed) {
  CapturedOutput err(stderr);
  ASSERT_EQ(BerkDb_Open((home_ + "/missing").c_str(), nullptr, nullptr), 0);
  EXPECT_NE(BerkDb_GetEnv(), nullptr);
  EXPECT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 0);
  BerkDb_Close();
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
  err.Take();
  Open();
}

TEST_F(FailedOpen, OfAFileThatIsNoDatabase_IsCode3AndNamesTheFirstTable) {
  std::ofstream(FilePath()) << std::string(10000, 'x');
  ExpectNoTable(TryToOpen(home_), "tb_parameter: Invalid argument" + kSourceLine);
  EXPECT_NE(g_uDb.tb_parameter, nullptr) << "only closing clears what a failed open left";
  EXPECT_EQ(g_uDb.tb_dm, nullptr);
  BerkDb_Close();
  std::filesystem::remove(FilePath());
  Open();
}

TEST_F(FailedOpen, OfATableWithAnotherKindOfContent_IsCode3AndNamesThatTable) {
  Open();
  BerkDb_Close();
  // The same file with tb_dm as a hash table.
  DB *pFile = nullptr;
  ASSERT_EQ(db_create(&pFile, nullptr, 0), 0);
  ASSERT_EQ(pFile->remove(pFile, FilePath().c_str(), "tb_dm", 0), 0);
  ASSERT_EQ(db_create(&pFile, nullptr, 0), 0);
  ASSERT_EQ(pFile->open(pFile, nullptr, FilePath().c_str(), "tb_dm", DB_HASH, DB_CREATE, 0), 0);
  pFile->close(pFile, 0);
  ExpectNoTable(TryToOpen(home_), "tb_dm: ");
  EXPECT_NE(g_uDb.tb_tone, nullptr) << "tables opened before stay open";
}

TEST_F(FailedOpen, WithoutTheRightToTheFile_IsCode3) {
  std::ofstream(FilePath()) << "somebody's";
  ASSERT_EQ(::chmod(FilePath().c_str(), 0), 0);
  ASSERT_EQ(::chmod(home_.c_str(), 0777), 0);
  Child stranger([&] {
    if (::getuid() == 0 && ::setuid(65534) != 0) return 1;
    ExpectNoTable(TryToOpen(home_), "tb_parameter: Permission denied" + kSourceLine);
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(stranger.Wait(), 0);
}

TEST_F(FailedOpen, WithoutTheRightToTheHome_IsCode1) {
  ASSERT_EQ(::chmod(home_.c_str(), 0), 0);
  Child stranger([&] {
    if (::getuid() == 0 && ::setuid(65534) != 0) return 1;
    EXPECT_EQ(TryToOpen(home_), RefusedOpening(home_, "Permission denied"));
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(stranger.Wait(), 0);
  ::chmod(home_.c_str(), 0700);
}

class SpoiltHandle : public StoreTest {
 protected:
  void TearDown() override {
    SpoilHandle(0, nullptr);
    StoreTest::TearDown();
  }

  // Opens the store with a bad n-th handle. 1 to 8 are the generic tables; the others follow in their order.
  void OpenWith(int nth, void (*spoil)(DB *), int code, const std::string &report) {
    SpoilHandle(nth, spoil);
    EXPECT_EQ(TryToOpen(home_), (Opening{0, code, report + kSourceLine}));
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
  EXPECT_EQ(TryToOpen(home_),
            (Opening{0, BERKDB_OPEN_ENVIRONMENT, "FAIL to create environment: (12) Cannot allocate memory\n"}));
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
}

TEST_F(SpoiltHandle, OfTheEnvironmentThatReplacesABrokenOne_IsCode1) {
  Event broken;
  const Child other([&] {
    Open();
    const CapturedOutput err(stderr);
    BerkDb_GetEnv()->set_flags(BerkDb_GetEnv(), DB_PANIC_ENVIRONMENT, 1);
    broken.Announce();
    return ::pause();
  });
  broken.Wait();
  const FailCall fail("db_env_create", 2);
  const Opening opening = TryToOpen(home_);
  EXPECT_EQ(opening.code, BERKDB_OPEN_ENVIRONMENT);
  EXPECT_TRUE(opening.printed.ends_with(RefusedOpening(home_, "Cannot allocate memory").printed)) << opening.printed;
  EXPECT_EQ(BerkDb_GetEnv(), nullptr);
  Open();
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

// An opening after a closing without a seal compares the indexes with their tables.
TEST_F(SpoiltHandle, WithoutACursor_HasItsIndexBuiltAnew) {
  for (const int nth : {3, 11, 0}) {  // tb_pb and stb_pb, after the handle that checks the pages; and none
    Open();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123;x"), BERKDB_OK);
    BerkDb_Close();
    DB *pIndex = nullptr;
    u_int32_t removed = 0;
    ASSERT_EQ(db_create(&pIndex, nullptr, 0), 0);
    ASSERT_EQ(pIndex->open(pIndex, nullptr, FilePath().c_str(), "stb_pb", DB_UNKNOWN, 0, 0), 0);
    DBT wrong{};
    wrong.size = 1;
    wrong.data = &wrong;
    EXPECT_EQ(
        nth == 3 ? pIndex->truncate(pIndex, nullptr, &removed, 0) : pIndex->put(pIndex, nullptr, &wrong, &wrong, 0),
        0);
    pIndex->close(pIndex, 0);
    std::filesystem::remove(FilePath() + ".seal");
    SpoilHandle(nth, [](DB *pDb) { pDb->cursor = [](DB *, DB_TXN *, DBC **, u_int32_t) { return ENOMEM; }; });
    EXPECT_EQ(TryToOpen(home_), (Opening{1, 0, ""}));
    SpoilHandle(0, nullptr);
    BerkDb_Close();
    ExpectSoundFile();
  }
}

// --- the report of each code

class OpenReport : public StoreTest {
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

TEST_F(OpenReport, OfAnyOtherCode_ReportsAMissingCase) {
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

TEST(ErrCall, PrintsEveryOtherPercentUnchanged) {
  EXPECT_EQ(Said("%s %n %d% %5$s %"), "%s %n %d% %5$s %" + kSourceLine);
  EXPECT_EQ(Said("%%%s"), "%%s" + kSourceLine);
}

TEST(ErrCall, WithoutAMessage_PrintsTheSource) {
  EXPECT_EQ(Said(""), kSourceLine);
  EXPECT_EQ(Said(nullptr), kSourceLine);
}

}  // namespace
