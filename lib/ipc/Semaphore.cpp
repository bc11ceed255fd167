// SPDX-License-Identifier: MIT
// The lock between processes: thin calls on a System V semaphore set that holds exactly one semaphore.

#include <devsupport/ipc/Semaphore.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include "lib/ipc/SemaphoreOperation.h"

#include <cstdint>

namespace {

constexpr int kMode = 0666;
constexpr int kFree = 1;

// The fourth argument of semctl(), which every program has to declare for itself.
union SemctlArgument {
  int val;
  struct semid_ds *buf;
  unsigned short *array;
};

}  // namespace

std::int32_t Semaphore_Create(std::int32_t nKey) {
  const std::int32_t nNewId = ::semget(nKey, 1, IPC_CREAT | IPC_EXCL | kMode);
  if (nNewId == -1) {
    // Kept: whatever the exclusive request failed for, the plain one follows; a set that only this one makes
    // keeps the system's value 0, because it looks like a set that another process holds.
    return ::semget(nKey, 1, IPC_CREAT | kMode);
  }
  SemctlArgument argument{};
  argument.val = kFree;
  if (::semctl(nNewId, 0, SETVAL, argument) == -1) {
    Semaphore_Close(nNewId);
    return -1;
  }
  return nNewId;
}

int Semaphore_Close(std::int32_t nSemId) { return ::semctl(nSemId, 0, IPC_RMID) != -1 ? 1 : 0; }

// Kept: one call. A wait that a signal interrupts is a failed lock; a caller that needs it tries again.
int Semaphore_Lock(std::int32_t nSemId) {
  return devsupport::OperateSemaphore(nSemId, devsupport::kTakeSemaphore) ? 1 : 0;
}

int Semaphore_Unlock(std::int32_t nSemId) {
  return devsupport::OperateSemaphore(nSemId, devsupport::kGiveSemaphore) ? 1 : 0;
}
