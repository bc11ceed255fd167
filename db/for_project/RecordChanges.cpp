// SPDX-License-Identifier: MIT
// Several changes as one transaction.
//
// The store's lock table is small, and a transaction needs a lock for each page that it changes. But a process inside
// the gate is alone in the shared memory and needs no locks: they are switched off meanwhile
// (docs/decisions/store-changes.md).

#include <cerrno>

#include "db/for_project/DbLibrary.h"
#include "db/for_project/DbText.h"
#include "db/for_project/Environment.h"
#include "db/for_project/Operation.h"
#include "db/for_project/RecordAccess.h"

namespace devsupport::store {

namespace {

// Does without the library's locks while it lives.
class WithoutLocks {
 public:
  WithoutLocks() { g_pEnv->set_flags(g_pEnv, DB_NOLOCKING, 1); }
  ~WithoutLocks() { g_pEnv->set_flags(g_pEnv, DB_NOLOCKING, 0); }
  WithoutLocks(const WithoutLocks &) = delete;
  WithoutLocks &operator=(const WithoutLocks &) = delete;
};

// Makes the changes one after the other inside a transaction.
class Changer {
 public:
  Changer(DB_TXN *pTxn, ChangeResult &result) : pTxn_(pTxn), result_(result) {}
  Changer(const Changer &) = delete;
  Changer &operator=(const Changer &) = delete;

  int Make(const Change &change) {
    DB *pDb = *g_auDbTbl[change.byTable].ppDb;
    DBT key = InputRecord(change.key.data(), static_cast<std::uint32_t>(change.key.size()));
    const int nThere = pDb->get(pDb, pTxn_, &key, before_.Record(), 0);
    if (nThere != 0 && nThere != kNotFound) return nThere;
    return change.kind == Change::Kind::Put ? Put(pDb, key, change.value, nThere == 0)
                                            : Delete(pDb, key, change.kind, nThere == 0);
  }

 private:
  // A record that is stored already is not written again, to save the flash memory.
  int Put(DB *pDb, DBT &key, std::string_view value, bool bThere) {
    if (bThere && before_.View() == value) {
      ++result_.counts.dwUnchanged;
      return 0;
    }
    DBT record = InputRecord(value.data(), static_cast<std::uint32_t>(value.size()));
    ++(bThere ? result_.counts.dwChanged : result_.counts.dwAdded);
    return pDb->put(pDb, pTxn_, &key, &record, 0);
  }

  int Delete(DB *pDb, DBT &key, Change::Kind kind, bool bThere) {
    if (!bThere) return kind == Change::Kind::Delete ? kNotFound : 0;
    ++result_.counts.dwDeleted;
    return pDb->del(pDb, pTxn_, &key, 0);
  }

  DB_TXN *pTxn_;
  ChangeResult &result_;
  GrownBytes before_;
};

int MakeAll(DB_TXN *pTxn, std::span<const Change> changes, bool (*pfnGoOn)(), ChangeResult &result) {
  Changer changer(pTxn, result);
  for (const Change &change : changes) {
    if (pfnGoOn != nullptr && !pfnGoOn()) return ECANCELED;
    if (const int nResult = changer.Make(change); nResult != 0) return nResult;
    ++result.dwDone;
  }
  return 0;
}

int RunTransaction(std::span<const Change> changes, bool (*pfnGoOn)(), ChangeResult &result) {
  result = {};
  const WithoutLocks withoutLocks;
  DB_TXN *pTxn = nullptr;
  if (const int nResult = g_pEnv->txn_begin(g_pEnv, nullptr, &pTxn, DB_TXN_SYNC); nResult != 0) return nResult;
  const int nResult = MakeAll(pTxn, changes, pfnGoOn, result);
  if (nResult == 0) return pTxn->commit(pTxn, DB_TXN_SYNC);
  const int nAborted = pTxn->abort(pTxn);
  return nAborted != 0 ? nAborted : nResult;
}

}  // namespace

std::uint32_t CountedChanges() { return g_gate.Record().dwChanges.load(); }

ChangeResult ApplyChanges(std::span<const Change> changes, bool (*pfnGoOn)(), const std::uint32_t *pdwCounted) {
  ChangeResult result;
  if (!g_gate.IsAttached()) {
    result.nResult = EINVAL;
    return result;
  }
  const int nResult = RunChange(g_uDb.tb_parameter, [&](DB * /*pCurrent*/) {
    if (pdwCounted != nullptr && CountedChanges() != *pdwCounted) return EAGAIN;
    // Without locks nothing would keep the pages of an open cursor as they are.
    if (g_gate.Cursors() != 0) return static_cast<int>(DB_LOCK_NOTGRANTED);
    int nDone = RunTransaction(changes, pfnGoOn, result);
    if (nDone == 0) nDone = g_pEnv->log_flush(g_pEnv, nullptr);
    if (nDone != 0) return nDone;
    g_gate.CountChange(kCheckpointChanges, changes.size());
    // The many log files of a large transaction go as soon as they can, and the file has what was changed.
    g_pEnv->txn_checkpoint(g_pEnv, 0, 0, 0);
    return 0;
  });
  result.nResult = nResult;
  return result;
}

}  // namespace devsupport::store
