// The environment of this process: opened, found healthy or not, closed, one process after the other.
#pragma once

#include <db.h>

#include "db/for_project/StoreGate.h"

namespace devsupport::store {

/// The environment; nullptr while the store is closed.
extern DB_ENV *g_pEnv;

/// The turn of this process to open or close: the home's lock, and the gate. Both are given up when it goes.
class Turn {
 public:
  Turn() = default;
  ~Turn();
  Turn(const Turn &) = delete;
  Turn &operator=(const Turn &) = delete;

  /// Waits for the processes that open or close at the moment; the kernel ends the turn of one that dies.
  /// Returns 0 or an error number.
  int TakeToOpen(const char *pHome);

  /// Enters the gate. Returns as StoreGate::Enter.
  int EnterGate();

  /// Waits likewise, and enters the gate when there is shared memory to go into. Returns as StoreGate::Enter.
  int TakeToClose();

 private:
  bool bInside_ = false;
};

/// Steps 1 to the last of opening the environment. The turn stays with the caller, who opens the tables.
bool OpenEnvironment(const char *pHome, Turn &turn);

/// Closes the environment and forgets it. Returns the library's result.
int CloseEnvironment();

/// Lets go of an environment that cannot be closed, without touching what the processes share: nGate says why
/// (StoreGate::Enter). Files and shared memory are let go of, the handles stay allocated.
void AbandonEnvironment(int nGate);

}  // namespace devsupport::store
