// SPDX-License-Identifier: MIT
// The table catalogue, and the store's opening and closing.

#include <devsupport/db/BerkeleyDB.h>

#include <db.h>

#include "db/for_project/Environment.h"
#include "db/for_project/TableHandles.h"
#include "lib/Layout.h"

// The records' layout, in bytes.
DEVSUPPORT_DEVICE_RECORD_BYTES(TDbHandles, 52);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_parameter, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_dm, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_pb, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, stb_pb, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, stb_1_pb, 16);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_speedd, 20);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_dialp, 24);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_fkey, 28);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_line, 32);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_siptk, 36);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_route, 40);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, stb_route, 44);
DEVSUPPORT_DEVICE_FIELD_AT(TDbHandles, tb_tone, 48);
DEVSUPPORT_DEVICE_RECORD_BYTES(TDbTbl, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TDbTbl, pName, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TDbTbl, ppDb, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TDbTbl, generic, 8);

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

}  // namespace

int BerkDb_Open(const char *pHome, const char *pFile, int32_t *pnResult) {
  int32_t nUnused = 0;
  if (pnResult == nullptr) pnResult = &nUnused;
  *pnResult = BERKDB_OPEN_OK;
  OpeningLock lock;
  if (!OpenEnvironment(pHome != nullptr ? pHome : kDefaultHome, pFile != nullptr ? pFile : kDefaultFile, lock)) {
    *pnResult = BERKDB_OPEN_ENVIRONMENT;
    return 0;
  }
  return OpenStoreTables(*pnResult) ? 1 : 0;
}

void BerkDb_Close(void) {
  if (g_pEnv == nullptr) return;
  OpeningLock lock;
  const int nGate = lock.TakeToClose();
  if (nGate != 0) {
    g_pEnv->err(g_pEnv, nGate, "FAIL to close database %s", "(environment)");
    AbandonEnvironment();
  } else {
    CloseEnvironment(lock);
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
  const int nRow = RowOf(pDb);
  return nRow < 0 ? nullptr : &g_auDbTbl[nRow];
}

struct __db_env *BerkDb_GetEnv(void) {
  return g_pEnv;
}
