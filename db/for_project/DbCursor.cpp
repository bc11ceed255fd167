// SPDX-License-Identifier: MIT
// Cursors: the single step that callers ask for, and the walk of the prefix search.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "db/for_project/DbText.h"
#include "db/for_project/Operation.h"

namespace devsupport::store {

namespace {

// Whether a step's result is for RunInside: it tries the operation again, and rebuilds a broken store before.
bool IsForRunInside(int nResult) { return IsConflict(nResult) || nResult == DB_RUNRECOVERY; }

// What a step of BerkDb_CursorGet may fill.
constexpr std::int32_t kStepBytes = 256;

// One field of a search result takes a text and cuts it. The last character is a terminator in any case, so that a
// reader of the whole field finds one; between the two terminators the field stays as the caller had it.
template <std::size_t kWidth>
void CopyText(char (&szField)[kWidth], const DBT &record) {
  const std::string_view text = First(TextOf(Bytes(record)), kWidth - 1);
  if (!text.empty()) std::memcpy(szField, text.data(), text.size());
  szField[text.size()] = '\0';
  szField[kWidth - 1] = '\0';
}

// The walk over the records with a prefix, on a table or on an index of the phone book.
class PrefixWalk {
 public:
  PrefixWalk(const DB *pDb, std::string_view prefix, std::span<TDbFindRec> records)
      : prefix_(prefix), records_(records), bIndex_(IsPhoneBookIndex(pDb)) {}
  PrefixWalk(const PrefixWalk &) = delete;
  PrefixWalk &operator=(const PrefixWalk &) = delete;

  /// Walks from the start. Returns 0, or the library's result when there is no cursor or a conflict.
  int Run(DB *pDb);

  /// Whether the last run found more than there is room for.
  bool IsFull() const { return bFull_; }

  /// Records filled by the last run.
  std::size_t Found() const { return dwFound_; }

 private:
  int Walk(DBC *pCursor);
  int Step(DBC *pCursor, std::uint32_t dwOperation);
  bool Matches() const;
  void Keep(TDbFindRec &found) const;

  std::string_view prefix_;
  std::span<TDbFindRec> records_;
  bool bIndex_;
  std::size_t dwFound_ = 0;
  bool bFull_ = false;

  // Kept: a record that does not fit here ends the walk as if the table ended.
  char szKey_[sizeof TDbFindRec::szKey];
  char szPrimary_[sizeof TDbFindRec::szKey];
  char szData_[sizeof TDbFindRec::szData];
  // Set once: in a record in the caller's memory, a step changes only the size.
  DBT key_ = OutputRecord(szKey_, sizeof szKey_);
  DBT primary_ = OutputRecord(szPrimary_, sizeof szPrimary_);
  DBT data_ = OutputRecord(szData_, sizeof szData_);
};

int PrefixWalk::Run(DB *pDb) {
  DBC *pCursor = nullptr;
  if (const int nResult = pDb->cursor(pDb, nullptr, &pCursor, 0); nResult != 0) return nResult;
  const int nResult = Walk(pCursor);
  const int nClosed = pCursor->close(pCursor);
  if (nClosed != 0) Report(pDb, nClosed);
  return nResult;
}

int PrefixWalk::Walk(DBC *pCursor) {
  dwFound_ = 0;
  bFull_ = false;
  // An empty prefix is before every key of an ascending table, but after those of "tb_dm".
  std::uint32_t dwOperation = prefix_.empty() ? kStepFirst : kStepToRange;
  for (;; dwOperation = kStepNext) {
    const int nResult = Step(pCursor, dwOperation);
    if (IsForRunInside(nResult)) return nResult;
    if (nResult != 0 || !Matches()) return 0;
    bFull_ = dwFound_ == records_.size();
    if (bFull_) return 0;
    Keep(records_[dwFound_++]);
  }
}

int PrefixWalk::Step(DBC *pCursor, std::uint32_t dwOperation) {
  if (dwOperation == kStepToRange) {
    // Kept: the terminator is part of what is looked for, so a key without one that ends where the prefix ends is
    // passed over.
    std::memcpy(szKey_, prefix_.data(), prefix_.size());
    szKey_[prefix_.size()] = '\0';
    key_.size = static_cast<std::uint32_t>(prefix_.size() + 1);
  }
  return bIndex_ ? pCursor->pget(pCursor, &key_, &primary_, &data_, dwOperation)
                 : pCursor->get(pCursor, &key_, &data_, dwOperation);
}

bool PrefixWalk::Matches() const { return First(Bytes(key_), prefix_.size()) == prefix_; }

void PrefixWalk::Keep(TDbFindRec &found) const {
  // Kept: without an index, the field for its key is left as the caller had it.
  if (bIndex_) CopyText(found.szSecondKey, key_);
  CopyText(found.szKey, bIndex_ ? primary_ : key_);
  CopyText(found.szData, data_);
}

}  // namespace

}  // namespace devsupport::store

using namespace devsupport::store;  // NOLINT(google-build-using-namespace): the store's own

int BerkDb_CursorGet(struct __db *pDb, struct __dbc **ppCursor, char *pKey, int32_t nKeyBytes, char *pBuf,
                     int32_t nBufBytes, uint32_t dwFlags, int *pnResult) {
  *ppCursor = nullptr;
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  int nStep = 0;
  RunInside(pDb, [&](DB *p) {
    DBC *pCursor = nullptr;
    const int nResult = p->cursor(p, nullptr, &pCursor, 0);
    if (nResult != 0) {
      if (pCursor != nullptr) pCursor->close(pCursor);
      return nResult;
    }
    DBT key = OutputRecord(pKey, kStepBytes);
    key.size = static_cast<std::uint32_t>(std::max<std::int32_t>(nKeyBytes, 0));
    DBT value = OutputRecord(pBuf, nBufBytes < 1 ? kStepBytes : std::min(nBufBytes, kStepBytes));
    nStep = pCursor->get(pCursor, &key, &value, dwFlags & ~kWriteLockHint);
    if (IsForRunInside(nStep)) {
      pCursor->close(pCursor);
      return nStep;
    }
    g_gate.CountCursor(true);
    *ppCursor = pCursor;
    return 0;
  });
  if (*ppCursor == nullptr) return BERKDB_NO_CURSOR;
  *pnResult = nStep;
  return BERKDB_OK;
}

int BerkDb_CursorClose(struct __dbc *pCursor) {
  if (pCursor == nullptr) return 1;
  DB *pDb = pCursor->dbp;
  const int nResult = RunInside(pDb, [&](DB * /*pCurrent*/) {
    // The store was rebuilt: the cursor went with its environment, and its memory stays as it is.
    if (IsRetired(pDb)) return static_cast<int>(EBADF);
    g_gate.CountCursor(false);
    return pCursor->close(pCursor);
  });
  if (nResult == 0) return 1;
  Report(pDb, nResult);
  return 0;
}

int BerkDb_FindPrefix(struct __db *pDb, const char *pPrefix, TDbFindRec *pRecs, int32_t *pnCount) {
  if (pDb == nullptr) return BERKDB_NO_TABLE;
  if (pPrefix == nullptr || pRecs == nullptr || pnCount == nullptr || *pnCount < 1) return BERKDB_REFUSED;
  const std::string_view prefix(pPrefix);
  if (prefix.size() >= sizeof TDbFindRec::szKey) {
    *pnCount = 0;
    return BERKDB_OK;
  }
  PrefixWalk walk(pDb, prefix, {pRecs, static_cast<std::size_t>(*pnCount)});
  const int nResult = RunInside(pDb, [&](DB *p) { return walk.Run(p); });
  if (nResult != 0) {
    Report(pDb, nResult);
    return BERKDB_ERROR;
  }
  if (walk.IsFull()) return BERKDB_BUFFER_SMALL;
  *pnCount = static_cast<int32_t>(walk.Found());
  return BERKDB_OK;
}
