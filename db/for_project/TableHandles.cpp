// SPDX-License-Identifier: MIT
// Opens, closes and remembers table handles.

#include "db/for_project/TableHandles.h"

#include <devsupport/db/BerkeleyDB.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "db/for_project/DbLibrary.h"
#include "db/for_project/OpenReport.h"
#include "db/for_project/StoreCheck.h"
#include "db/for_project/StoreGate.h"
#include "db/for_project/StoreTables.h"

namespace devsupport::store {

namespace {

// The handles of one closed environment.
struct RetiredHandles {
  DB *apDb[BERKDB_TABLES];
  RetiredHandles *pNext;
};
std::atomic<RetiredHandles *> g_pRetired = nullptr;

// Other threads read the slots while the store is rebuilt.
DB *Load(DB *const *ppSlot) { return __atomic_load_n(ppSlot, __ATOMIC_ACQUIRE); }
void Store(DB **ppSlot, DB *pDb) { __atomic_store_n(ppSlot, pDb, __ATOMIC_RELEASE); }

int RowInSlots(const DB *pDb) {
  for (int nRow = 0; nRow < BERKDB_TABLES; ++nRow) {
    if (Load(g_auDbTbl[nRow].ppDb) == pDb) return nRow;
  }
  return -1;
}

int RowInRetired(const DB *pDb) {
  for (const RetiredHandles *p = g_pRetired.load(std::memory_order_acquire); p != nullptr; p = p->pNext) {
    for (int nRow = 0; nRow < BERKDB_TABLES; ++nRow) {
      if (p->apDb[nRow] == pDb) return nRow;
    }
  }
  return -1;
}

// Kept: what associate answers does not fail the opening. An index that is not bound lacks what is written from now
// on; it is noted, and the next first opener compares the index with its table.
void Associate(DB_ENV *pEnv, DB *pPrimary, DB *pIndex, const TableRule &rule, bool bCheck) {
  std::uint32_t dwFlags = rule.dwAssociateFlags;
  bool bSure = true;
  // Building an index is one transaction. It may need more locks than there are, and no other process is inside.
  if (bCheck) pEnv->set_flags(pEnv, DB_NOLOCKING, 1);
  if (bCheck && !IndexAgrees(pPrimary, pIndex, rule.pfnKey)) {
    bSure = EmptyIndex(pIndex);
    dwFlags |= kBuildIndex;  // leaves one alone that has entries
  }
  const int nResult = pPrimary->associate(pPrimary, nullptr, pIndex, rule.pfnKey, dwFlags);
  if (bCheck) pEnv->set_flags(pEnv, DB_NOLOCKING, 0);
  if (nResult != 0 || !bSure) g_gate.Record().bIndexDoubt = 1;
}

// Creates, sets up and opens the table of a row. Reports a failure.
bool OpenTable(DB_ENV *pEnv, int nRow, const char *pFile, bool bCheckIndexes, int &nCode) {
  const TableRule &rule = kTableRules[nRow];
  DB *pDb = nullptr;
  int nStep = BERKDB_OPEN_CREATE;
  int nResult = db_create(&pDb, pEnv, 0);
  if (nResult == 0) {
    Store(g_auDbTbl[nRow].ppDb, pDb);
    nResult = SetUpTable(pDb, rule, nStep);
  }
  if (nResult == 0) {
    pDb->set_pagesize(pDb, kPageBytes);
    pDb->set_errpfx(pDb, "BerkDb_Open");
    pDb->set_errcall(pDb, BerkDb_ErrCall);
    nStep = BERKDB_OPEN_TABLE;
    nResult = pDb->open(pDb, nullptr, pFile, rule.pName, DB_BTREE, kTableOpenFlags, 0);
  }
  if (nResult != 0) {
    ReportOpenFailure(pEnv, pDb, nStep, nResult, rule.pName);
    nCode = nStep;
    return false;
  }
  if (rule.IsIndex()) Associate(pEnv, *g_auDbTbl[rule.nPrimary].ppDb, pDb, rule, bCheckIndexes);
  return true;
}

}  // namespace

bool OpenTables(DB_ENV *pEnv, const char *pFile, bool bCheckIndexes, int &nCode) {
  for (const std::uint32_t dwGeneric : {1U, 0U}) {
    for (int nRow = 0; nRow < BERKDB_TABLES; ++nRow) {
      if (g_auDbTbl[nRow].generic != dwGeneric) continue;
      if (!OpenTable(pEnv, nRow, pFile, bCheckIndexes, nCode)) return false;
    }
  }
  return true;
}

// In the catalogue's order: the library also closes a table before its indexes.
bool CloseTables(DB_ENV *pEnv) {
  bool bAll = true;
  for (const TDbTbl &row : g_auDbTbl) {
    DB *pDb = *row.ppDb;
    if (pDb == nullptr) continue;
    // Closing frees the handle in any case, so the report goes through the environment.
    const int nResult = pDb->close(pDb, 0);
    if (nResult != 0) pEnv->err(pEnv, nResult, "FAIL to close database %s", row.pName);
    bAll = bAll && nResult == 0;
  }
  return bAll;
}

void ForgetTables() {
  for (const TDbTbl &row : g_auDbTbl) Store(row.ppDb, nullptr);
}

bool RetireTables() {
  void *pMemory = std::malloc(sizeof(RetiredHandles));
  if (pMemory == nullptr) return false;
  auto *pRetired = ::new (pMemory) RetiredHandles{};
  for (int nRow = 0; nRow < BERKDB_TABLES; ++nRow) pRetired->apDb[nRow] = *g_auDbTbl[nRow].ppDb;
  pRetired->pNext = g_pRetired.load(std::memory_order_relaxed);
  g_pRetired.store(pRetired, std::memory_order_release);
  return true;
}

DB *CurrentHandle(DB *pDb) {
  if (g_pRetired.load(std::memory_order_relaxed) == nullptr) [[likely]]
    return pDb;
  if (RowInSlots(pDb) >= 0) return pDb;
  const int nRow = RowInRetired(pDb);
  DB *pCurrent = nRow < 0 ? nullptr : Load(g_auDbTbl[nRow].ppDb);
  return pCurrent != nullptr ? pCurrent : pDb;
}

int RowOf(const DB *pDb) {
  if (pDb == nullptr) return -1;
  // The slots first: a handle is remembered as an old one before another one takes its slot.
  const int nRow = RowInSlots(pDb);
  return nRow >= 0 || g_pRetired.load(std::memory_order_relaxed) == nullptr ? nRow : RowInRetired(pDb);
}

bool IsPhoneBook(const DB *pDb) {
  if (g_pRetired.load(std::memory_order_relaxed) == nullptr) [[likely]]
    return pDb == g_uDb.tb_pb;
  return RowOf(pDb) == BerkDb_FindTbl(&g_uDb.tb_pb) - g_auDbTbl;
}

bool IsPhoneBookIndex(const DB *pDb) {
  if (g_pRetired.load(std::memory_order_relaxed) == nullptr) [[likely]]
    return pDb == g_uDb.stb_pb || pDb == g_uDb.stb_1_pb;
  const int nRow = RowOf(pDb);
  return nRow == BerkDb_FindTbl(&g_uDb.stb_pb) - g_auDbTbl || nRow == BerkDb_FindTbl(&g_uDb.stb_1_pb) - g_auDbTbl;
}

bool IsRetired(const DB *pDb) { return RowInRetired(pDb) >= 0; }

}  // namespace devsupport::store
