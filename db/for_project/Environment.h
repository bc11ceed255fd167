// SPDX-License-Identifier: MIT
// The environment of this process: opened, closed, and rebuilt after a process has died inside.
#pragma once

#include <db.h>

#include "db/for_project/StoreGate.h"

namespace devsupport::store {

/// The environment; nullptr while the store is closed. Other threads may read it while the store is rebuilt.
extern DB_ENV *g_pEnv;

/// What this process does alone on the whole device: opening or closing. It takes the opening lock, then the gate, and
/// gives both back at its end. When the store is closed by then, it detaches everything.
class OpeningLock {
 public:
  OpeningLock() = default;
  ~OpeningLock();
  OpeningLock(const OpeningLock &) = delete;
  OpeningLock &operator=(const OpeningLock &) = delete;

  /// Waits for the processes that open or close at the moment, and attaches the gate. Returns 0 or an error number.
  int TakeToOpen(const char *pHome);

  /// Waits likewise, and enters the gate when there is shared memory to go into. Returns as StoreGate::Enter.
  int TakeToClose();

  /// Enters the gate. Returns as StoreGate::Enter.
  int EnterGate();
  void LeaveGate();

 private:
  bool bLocked_ = false;
  bool bInside_ = false;
};

/// Opens the environment. The caller keeps the lock and opens the tables with
/// OpenStoreTables. pFile may be nullptr when there are to be no tables.
bool OpenEnvironment(const char *pHome, const char *pFile, OpeningLock &lock);

/// Opens the tables of the environment. Returns as OpenTables.
bool OpenStoreTables(int &nCode);

/// Closes tables and environment and reports what fails. The last process seals the file.
void CloseEnvironment(OpeningLock &lock);

/// Drops an environment that cannot be closed, without changing the data that processes share. Files and shared memory
/// are closed and detached; the handles stay allocated.
void AbandonEnvironment();

/// Changes to the current regions, inside the gate: rebuilds them when a process has died inside, and joins them when
/// another process has already rebuilt them. Returns 0 or the library's result.
int FollowStore();

/// What an operation does after it failed inside the gate.
enum class AfterFailure : unsigned char {
  Answer,    // it has its result
  Wait,      // it met a lock: again after a moment
  TryAgain,  // the store was rebuilt: again at once
};

/// Decides what follows a failed result, inside the gate. Rebuilds the store when the result means that it is broken,
/// or when a dead process keeps what the operation needs.
/// bAgain     in      the operation was tried again already
AfterFailure Judge(int nResult, bool bAgain);

/// Whether there is room for a change: false while the reserve is used and cannot be made again. Inside the gate.
bool HasRoomForChange();

}  // namespace devsupport::store
