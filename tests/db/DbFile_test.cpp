// SPDX-License-Identifier: MIT
// Single files with one table, without the environment.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <malloc.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;

int g_openHandles = 0;
std::function<void()> g_meanwhile;  // another thread's work while a handle is made
int (*g_realClose)(DB *pDb, u_int32_t flags) = nullptr;
bool g_withoutMemory = false;  // for the library, while a file is opened
decltype(DB::open) g_realOpen = nullptr;

void TakeMemory() {
  db_env_set_func_malloc([](std::size_t) -> void * {
    errno = ENOMEM;
    return nullptr;
  });
}

int OpenMaybeWithoutMemory(DB *pDb, DB_TXN *txn, const char *file, const char *table, DBTYPE type, u_int32_t flags,
                           int mode) {
  if (g_withoutMemory) TakeMemory();
  const int opened = g_realOpen(pDb, txn, file, table, type, flags, mode);
  db_env_set_func_malloc(nullptr);
  return opened;
}

int CountedClose(DB *pDb, u_int32_t flags) {
  --g_openHandles;
  return g_realClose(pDb, flags);
}

}  // namespace

extern "C" int __real_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags);
extern "C" int __wrap_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags);
extern "C" int __wrap_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags) {
  if (MustFail("db_create")) return ENOMEM;
  if (const auto other = std::exchange(g_meanwhile, nullptr)) std::thread(other).join();
  const int result = __real_db_create(ppDb, pEnv, flags);
  g_realClose = (*ppDb)->close;
  (*ppDb)->close = CountedClose;
  g_realOpen = (*ppDb)->open;
  (*ppDb)->open = OpenMaybeWithoutMemory;
  ++g_openHandles;
  return result;
}

namespace {

class SingleFile : public StoreTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(g_openHandles, 0) << "a handle was left behind";
    StoreTest::TearDown();
  }
};

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
  const FailCall fail("db_create", 1);
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_OpenFile((home_ + "/one.db").c_str(), 0), nullptr);
  EXPECT_EQ(err.Take(), "Fail: Cannot allocate memory\n");
}

TEST_F(SingleFile, Open_WhileAnotherThreadOpens_KeepsNoMemory) {
  std::size_t held[4] = {};
  for (std::size_t &bytes : held) {
    g_meanwhile = [this] {
      DB *pOther = BerkDb_OpenFile((home_ + "/other.db").c_str(), 0);
      BerkDb_CloseFile(&pOther);
    };
    DB *pDb = BerkDb_OpenFile((home_ + "/one.db").c_str(), 0);
    BerkDb_CloseFile(&pDb);
    bytes = ::mallinfo2().uordblks;
  }
  EXPECT_EQ(held[3], held[2]);
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

TEST_F(SingleFile, Open_WithoutMemory_ReportsAndKeepsTheHandle) {
  Child process([this] {
    const std::string path = home_ + "/one.db";
    CapturedOutput err(stderr);
    g_withoutMemory = true;
    EXPECT_EQ(BerkDb_OpenFile(path.c_str(), 0), nullptr);
    const std::string said = err.Take();
    EXPECT_NE(said.find("Database '" + path + "' open failed: Cannot allocate memory\n"), std::string::npos) << said;
    EXPECT_EQ(g_openHandles, 1);
    return 0;
  });
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(SingleFile, WithoutMemory_RefusesAChangeAndTakesTheNext) {
  DB *pDb = BerkDb_OpenFile((home_ + "/one.db").c_str(), 0);
  ASSERT_NE(pDb, nullptr);
  TakeMemory();
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Set(pDb, "key", "value"), BERKDB_ERROR);
  db_env_set_func_malloc(nullptr);
  EXPECT_EQ(BerkDb_Set(pDb, "key", "value"), BERKDB_OK) << err.Take();
  EXPECT_EQ(BerkDb_CloseFile(&pDb), 1);
}

TEST_F(SingleFile, Cursor_StepsAndIsClosed) {
  DB *pDb = BerkDb_OpenFile((home_ + "/one.db").c_str(), 0);
  ASSERT_NE(pDb, nullptr);
  EXPECT_EQ(BerkDb_Set(pDb, "key", "value"), BERKDB_OK);
  EXPECT_EQ(BerkDb_CursorClose(CursorOnFirst(pDb)), 1);
  EXPECT_EQ(BerkDb_CloseFile(&pDb), 1);
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
