// SPDX-License-Identifier: MIT
// The way of every operation on a record into the store: through the gate, again after a lock conflict, and out with
// one of the store's own results.
#pragma once

#include <db.h>

#include <cerrno>

#include "db/for_project/DbLibrary.h"
#include "db/for_project/Environment.h"
#include "db/for_project/StoreGate.h"
#include "db/for_project/TableHandles.h"

namespace devsupport::store {

/// Runs one operation inside the gate, until it finds no lock of another one or the deadline has passed. When a process
/// has died inside, the store is rebuilt before, and the operation does not notice.
/// pDb        in      table that the caller named; the operation is given the handle that means it now
/// operation  in      returns the library's result and leaves nothing open
/// Returns    the last result, or why it could not enter.
template <typename TOperation>
int RunInside(DB *pDb, TOperation operation) {
  Deadline deadline;
  bool bAgain = false;
  for (;;) {
    AfterFailure next = AfterFailure::Answer;
    int nResult = 0;
    {
      const GateLock lock(deadline);
      if (lock.Result() != 0) return lock.Result();
      if (!g_gate.IsCurrent()) [[unlikely]]
        nResult = FollowStore();
      if (nResult == 0) {
        nResult = operation(CurrentHandle(pDb));
        if (IsFailure(nResult)) [[unlikely]]
          next = Judge(nResult, bAgain);
      }
    }
    if (next == AfterFailure::Answer) [[likely]]
      return nResult;
    if (next == AfterFailure::TryAgain) {
      bAgain = true;
    } else if (!deadline.Pause()) {
      // The holder of the lock needs the gate to release it. It has had enough time.
      return nResult;
    }
  }
}

/// Runs a change like RunInside. Without room for it nothing is begun.
template <typename TOperation>
int RunChange(DB *pDb, TOperation operation) {
  return RunInside(pDb, [&](DB *pCurrent) { return HasRoomForChange() ? operation(pCurrent) : ENOSPC; });
}

/// Translates a library result into the store's; results without a code are reported through the table.
int CodeOf(DB *pDb, int nResult);

/// Reports a library result through the table, with the library's text.
void Report(DB *pDb, int nResult);

/// Prints an already reported result once more, in the short form of the writing operations.
void PrintResult(int nResult);

/// A record that the library reads from the caller and never writes to.
inline DBT InputRecord(const void *pData, std::uint32_t dwBytes) {
  DBT record = {};
  // The library's record type has no constant data pointer.
  record.data = const_cast<void *>(pData);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  record.size = dwBytes;
  record.flags = kReadOnlyKey;
  return record;
}

/// A record that the library fills in the caller's memory; without memory there is no room in it.
inline DBT OutputRecord(void *pBuf, std::int32_t nBufBytes) {
  DBT record = {};
  record.data = pBuf;
  record.ulen = pBuf != nullptr && nBufBytes > 0 ? static_cast<std::uint32_t>(nBufBytes) : 0;
  record.flags = kUserMemory;
  return record;
}

/// Puts a terminator after a text that was stored without one, if there is room.
inline void Terminate(const DBT &record) {
  char *pText = static_cast<char *>(record.data);
  if (record.size < record.ulen && (record.size == 0 || pText[record.size - 1] != '\0')) pText[record.size] = '\0';
}

}  // namespace devsupport::store
