// The table catalogue, and the store's opening and closing.

#include <devsupport/db/BerkeleyDB.h>

#include <db.h>

#include <cerrno>
#include <cstdio>
#include <iterator>

#include "db/for_project/DbIndexes.h"
#include "db/for_project/DbLibrary.h"
#include "db/for_project/Environment.h"
#include "db/for_project/OpenReport.h"

using namespace devsupport::store;  // NOLINT(google-build-using-namespace): the store's own

TDbHandles g_uDb = {};

const TDbTbl g_auDbTbl[BERKDB_TABLES] = {
    {"tb_parameter", &g_uDb.tb_parameter, 1},
    {"tb_dm", &g_uDb.tb_dm, 0},
    {"tb_pb", &g_uDb.tb_pb, 1},
    {"stb_pb", &g_uDb.stb_pb, 0},
    {"stb_1_pb", &g_uDb.stb_1_pb, 0},
    {"tb_speedd", &g_uDb.tb_speedd, 1},
    {"tb_dialp", &g_uDb.tb_dialp, 1},
    {"tb_fkey", &g_uDb.tb_fkey, 1},
    {"tb_line", &g_uDb.tb_line, 1},
    {"tb_siptk", &g_uDb.tb_siptk, 1},
    {"tb_route", &g_uDb.tb_route, 0},
    {"stb_route", &g_uDb.stb_route, 0},
    {"tb_tone", &g_uDb.tb_tone, 1},
};

namespace {

constexpr char kDefaultHome[] = "/config_fs/DB/";
constexpr char kDefaultFile[] = "config.db";

// What a table needs besides the default settings, before it is opened and after.
struct TableSettings {
  std::uint32_t dwFlags = 0;
  int (*pfnCompare)(DB *, const DBT *, const DBT *) = nullptr;
  int (*pfnCompareDuplicates)(DB *, const DBT *, const DBT *) = nullptr;
  DB *pPrimary = nullptr;
  int (*pfnKey)(DB *, const DBT *, const DBT *, DBT *) = nullptr;
  std::uint32_t dwAssociateFlags = 0;
};

// Stops a chain of library calls at the first that fails, and remembers which one that was.
struct Step {
  int nResult = 0;
  int nCode = BERKDB_OPEN_OK;

  bool Done(int nLibraryResult, int nCodeOfStep) {
    nResult = nLibraryResult;
    if (nResult != 0) nCode = nCodeOfStep;
    return nResult == 0;
  }
};

bool SetUp(DB *pDb, const TableSettings &settings, Step &step) {
  if (settings.pfnCompare != nullptr &&
      !step.Done(pDb->set_bt_compare(pDb, settings.pfnCompare), BERKDB_OPEN_COMPARE)) {
    return false;
  }
  if (settings.dwFlags != 0 && !step.Done(pDb->set_flags(pDb, settings.dwFlags), BERKDB_OPEN_FLAGS)) return false;
  return settings.pfnCompareDuplicates == nullptr ||
         step.Done(pDb->set_dup_compare(pDb, settings.pfnCompareDuplicates), BERKDB_OPEN_COMPARE);
}

// Creates, sets up and opens the table of a slot. Reports a failure.
bool OpenTable(DB *&pDb, const char *pFile, const TableSettings &settings, int &nCode) {
  const TDbTbl &row = *BerkDb_FindTbl(&pDb);
  Step step;
  if (step.Done(db_create(&pDb, g_pEnv, 0), BERKDB_OPEN_CREATE) && SetUp(pDb, settings, step)) {
    pDb->set_pagesize(pDb, kPageBytes);
    pDb->set_errpfx(pDb, "BerkDb_Open");
    pDb->set_errcall(pDb, BerkDb_ErrCall);
    step.Done(pDb->open(pDb, nullptr, pFile, row.pName, DB_BTREE, kTableOpenFlags, 0), BERKDB_OPEN_TABLE);
  }
  if (step.nCode != BERKDB_OPEN_OK) {
    ReportOpenFailure(g_pEnv, pDb, step.nCode, step.nResult, row.pName);
    nCode = step.nCode;
    return false;
  }
  if (settings.pPrimary != nullptr) {
    settings.pPrimary->associate(settings.pPrimary, nullptr, pDb, settings.pfnKey, settings.dwAssociateFlags);
  }
  return true;
}

bool OpenGenericTables(const char *pFile, int &nCode) {
  for (const TDbTbl &row : g_auDbTbl) {
    if (row.generic == 1 && !OpenTable(*row.ppDb, pFile, {}, nCode)) return false;
  }
  return true;
}

bool OpenTables(const char *pFile, int &nCode) {
  return OpenGenericTables(pFile, nCode) &&  //
         OpenTable(g_uDb.tb_dm, pFile, {.pfnCompare = CompareTbDm}, nCode) &&
         OpenTable(g_uDb.stb_pb, pFile, {.dwFlags = kSortedDuplicates, .pPrimary = g_uDb.tb_pb, .pfnKey = KeyOfStbPb},
                   nCode) &&
         OpenTable(g_uDb.stb_1_pb, pFile,
                   {.dwFlags = kDuplicatesAndSorted, .pPrimary = g_uDb.tb_pb, .pfnKey = KeyOfStb1Pb}, nCode) &&
         OpenTable(g_uDb.tb_route, pFile, {}, nCode) &&
         OpenTable(g_uDb.stb_route, pFile,
                   {.dwFlags = kSortedDuplicates,
                    .pfnCompareDuplicates = CompareStbRouteDuplicates,
                    .pPrimary = g_uDb.tb_route,
                    .pfnKey = KeyOfStbRoute,
                    .dwAssociateFlags = kBuildIndex},
                   nCode);
}

void ForgetTables() {
  for (const TDbTbl &row : g_auDbTbl) *row.ppDb = nullptr;
}

// Indexes before their primaries would be tidier; the catalogue's order it is, and the library does not mind.
void CloseTables() {
  for (const TDbTbl &row : g_auDbTbl) {
    DB *pDb = *row.ppDb;
    if (pDb == nullptr) continue;
    // Closing frees the handle whatever it answers, so that only the environment can still speak for it.
    const int nResult = pDb->close(pDb, 0);
    if (nResult != 0) g_pEnv->err(g_pEnv, nResult, "FAIL to close database %s", row.pName);
  }
}

// A closed environment cannot report itself any more.
void ReportEnvironment(int nResult) {
  if (nResult == 0) return;
  char szText[256];
  std::snprintf(szText, sizeof szText, "FAIL to close database %s: %s", "(environment)", db_strerror(nResult));
  BerkDb_ErrCall(nullptr, nullptr, szText);
}

}  // namespace

int BerkDb_Open(const char *pHome, const char *pFile, int32_t *pnResult) {
  int32_t nUnused = 0;
  if (pnResult == nullptr) pnResult = &nUnused;
  *pnResult = BERKDB_OPEN_OK;
  Turn turn;
  if (!OpenEnvironment(pHome != nullptr ? pHome : kDefaultHome, turn)) {
    *pnResult = BERKDB_OPEN_ENVIRONMENT;
    return 0;
  }
  return OpenTables(pFile != nullptr ? pFile : kDefaultFile, *pnResult) ? 1 : 0;
}

void BerkDb_Close(void) {
  if (g_pEnv == nullptr) return;
  Turn turn;
  const int nGate = turn.TakeToClose();
  if (nGate != 0) {
    g_pEnv->err(g_pEnv, nGate, "FAIL to close database %s", "(environment)");
    AbandonEnvironment(nGate);
  } else {
    CloseTables();
    ReportEnvironment(CloseEnvironment());
  }
  ForgetTables();
}

const TDbTbl *BerkDb_FindTbl(struct __db *const *ppDb) {
  for (const TDbTbl &row : g_auDbTbl) {
    if (row.ppDb == ppDb) return &row;
  }
  return nullptr;
}

const TDbTbl *BerkDb_FindTblByDb(const struct __db *pDb) {
  if (pDb == nullptr) return nullptr;
  for (const TDbTbl &row : g_auDbTbl) {
    if (*row.ppDb == pDb) return &row;
  }
  return nullptr;
}

struct __db_env *BerkDb_GetEnv(void) {
  return g_pEnv;
}
