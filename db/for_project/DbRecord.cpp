// SPDX-License-Identifier: MIT
// Reads, writes and deletes single records.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "db/for_project/Environment.h"
#include "db/for_project/Operation.h"
#include "db/for_project/RecordKey.h"
#include "lib/Layout.h"

// The records' layout, in bytes.
DEVSUPPORT_RECORD_BYTES(TDbFindRec, 192);
DEVSUPPORT_FIELD_AT(TDbFindRec, szSecondKey, 0);
DEVSUPPORT_FIELD_AT(TDbFindRec, szKey, 32);
DEVSUPPORT_FIELD_AT(TDbFindRec, szData, 64);

namespace devsupport::store {

int CodeOf(DB *pDb, int nResult) {
  if (nResult == 0) [[likely]]
    return BERKDB_OK;
  if (nResult == kNotFound) return BERKDB_NOT_FOUND;
  if (nResult == kBufferSmall) return BERKDB_BUFFER_SMALL;
  Report(pDb, nResult);
  return BERKDB_ERROR;
}

void Report(DB *pDb, int nResult) {
  DB *pCurrent = CurrentHandle(pDb);
  pCurrent->err(pCurrent, nResult, "%s", db_strerror(nResult));
}

void PrintResult(int nResult) { std::fprintf(stderr, "(%d) %s\n", nResult, db_strerror(nResult)); }

namespace {

KeyForm FormOf(const DB *pDb) { return IsPhoneBook(pDb) ? KeyForm::PhoneBook : KeyForm::AsItStands; }

// Reads into the caller's buffer. Returns the library's result.
int ReadRecord(DB *pDb, const char *pKey, KeyForm form, char *pBuf, std::int32_t nBufBytes) {
  return WithKey(pKey, form, [=](DBT *pRecord) {
    DBT value = OutputRecord(pBuf, nBufBytes);
    const int nResult = RunInside(pDb, [&](DB *p) { return p->get(p, nullptr, pRecord, &value, 0); });
    if (nResult == 0) Terminate(value);
    return nResult;
  });
}

// Makes the library remove old log files when enough has been written since the last time. The change is safe without
// it, so a failure does not matter to the caller.
void CheckpointWhenDue(std::size_t dwBytes) {
  if (g_gate.CountChange(kCheckpointChanges, dwBytes)) g_pEnv->txn_checkpoint(g_pEnv, kCheckpointKiB, 0, 0);
}

enum class Flush : bool { No, Yes };

// Writes the table to its file after a change that went well. The library acknowledges changes whose log records it
// could not write when that happens at the end of a log file: only asking for the log to be written tells.
int Finish(DB *pDb, int nResult, Flush flush, std::size_t dwBytes) {
  if (nResult == 0 && g_gate.IsAttached()) nResult = g_pEnv->log_flush(g_pEnv, nullptr);
  if (nResult == 0 && flush == Flush::Yes) nResult = pDb->sync(pDb, 0);
  if (nResult == 0) CheckpointWhenDue(dwBytes);
  return nResult;
}

int WriteRecord(DB *pDb, const char *pKey, KeyForm form, const void *pData, std::size_t dwBytes, Flush flush) {
  if ((pData == nullptr && dwBytes != 0) || dwBytes > INT32_MAX) return EINVAL;
  return WithKey(pKey, form, [=](DBT *pRecord) {
    DBT value = InputRecord(pData, static_cast<std::uint32_t>(dwBytes));
    return RunChange(pDb, [&](DB *p) { return Finish(p, p->put(p, nullptr, pRecord, &value, 0), flush, dwBytes); });
  });
}

int WriteText(DB *pDb, const char *pKey, KeyForm form, const char *pValue) {
  if (pValue == nullptr) return EINVAL;
  return WriteRecord(pDb, pKey, form, pValue, std::strlen(pValue) + 1, Flush::Yes);
}

int DeleteRecord(DB *pDb, const char *pKey, KeyForm form) {
  return WithKey(pKey, form, [=](DBT *pRecord) {
    return RunChange(pDb, [&](DB *p) { return Finish(p, p->del(p, nullptr, pRecord, 0), Flush::Yes, 0); });
  });
}

// The writing operations have one code for all failures, and print the text twice.
int CodeOfWrite(DB *pDb, int nResult) {
  if (nResult == 0) return BERKDB_OK;
  Report(pDb, nResult);
  PrintResult(nResult);
  return BERKDB_ERROR;
}

}  // namespace

}  // namespace devsupport::store

using namespace devsupport::store;  // NOLINT(google-build-using-namespace): the store's own

int BerkDb_Get(struct __db *pDb, const char *pKey, char *pBuf, int32_t nBufBytes) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  if (IsPhoneBookIndex(pDb) || pBuf == nullptr) return BERKDB_REFUSED;
  return CodeOf(pDb, ReadRecord(pDb, pKey, FormOf(pDb), pBuf, nBufBytes));
}

int BerkDb_Read(struct __db *pDb, const char *pKey, char *pBuf, int32_t nBufBytes) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  return CodeOf(pDb, ReadRecord(pDb, pKey, KeyForm::AsItStands, pBuf, nBufBytes));
}

int BerkDb_GetStr(struct __db *pDb, const char *pKey, char *pBuf, int32_t nBufBytes) {
  return BerkDb_Read(pDb, pKey, pBuf, nBufBytes) == BERKDB_OK ? 1 : 0;
}

int BerkDb_Put(struct __db *pDb, const char *pKey, const void *pData, int32_t nBytes) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  // A negative size becomes one that WriteRecord refuses.
  const auto dwBytes = static_cast<std::size_t>(nBytes);
  return CodeOfWrite(pDb, WriteRecord(pDb, pKey, KeyForm::AsItStands, pData, dwBytes, Flush::No));
}

int BerkDb_Set(struct __db *pDb, const char *pKey, const char *pValue) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  return CodeOfWrite(pDb, WriteText(pDb, pKey, FormOf(pDb), pValue));
}

int BerkDb_PutStr(struct __db *pDb, const char *pKey, const char *pValue) {
  if (pDb == nullptr) return 0;
  return CodeOf(pDb, WriteText(pDb, pKey, KeyForm::AsItStands, pValue)) == BERKDB_OK ? 1 : 0;
}

int BerkDb_Del(struct __db *pDb, const char *pKey) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  return CodeOf(pDb, DeleteRecord(pDb, pKey, FormOf(pDb)));
}

int BerkDb_PGet(struct __db *pDb, const char *pKey, int32_t nKeyBytes, char *pPrimary, int32_t nPrimaryBytes,
                char *pBuf, int32_t nBufBytes) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  if (!IsPhoneBookIndex(pDb) || pPrimary == nullptr || pBuf == nullptr) return BERKDB_REFUSED;
  if (pKey == nullptr) return CodeOf(pDb, EINVAL);
  const std::size_t dwKey = nKeyBytes < 1 ? std::strlen(pKey) + 1 : static_cast<std::size_t>(nKeyBytes);
  DBT key = InputRecord(pKey, static_cast<std::uint32_t>(dwKey));
  DBT primary = OutputRecord(pPrimary, nPrimaryBytes);
  DBT value = OutputRecord(pBuf, nBufBytes);
  const int nResult = RunInside(pDb, [&](DB *p) { return p->pget(p, nullptr, &key, &primary, &value, 0); });
  if (nResult == 0) {
    Terminate(primary);
    Terminate(value);
  }
  return CodeOf(pDb, nResult);
}
