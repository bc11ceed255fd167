// SPDX-License-Identifier: MIT
// The opening lock and the queue at the gate: System V semaphores with undo.

#include "db/for_project/StoreSemaphores.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>

#include "db/for_project/StoreKeys.h"

namespace devsupport::store {

namespace {

// Callers of semctl define its argument themselves.
union SemaphoreArgument {
  int val;
  semid_ds *buf;
  unsigned short *array;
};

// Waits until the semaphore is 0 and makes it 1, in one step.
struct TakeSteps {
  sembuf steps[2];

  explicit TakeSteps(unsigned short which) : steps{{which, 0, 0}, {which, 1, SEM_UNDO}} {}
};

}  // namespace

StoreSemaphores g_semaphores;

int StoreSemaphores::Attach(const struct stat &home) {
  SemaphoreArgument argument = {};
  semid_ds status = {};
  argument.buf = &status;
  nId_ = semget(kGateKey, kCount, IPC_CREAT | IPC_EXCL | kObjectMode);
  const bool bCreated = nId_ >= 0;
  // This also finds a set with fewer semaphores, which is checked before it is used.
  if (!bCreated && errno == EEXIST) nId_ = semget(kGateKey, 0, 0);
  if (nId_ < 0 || semctl(nId_, 0, IPC_STAT, argument) != 0) return errno;
  if (bCreated) {
    status.sem_perm.gid = home.st_gid;
    semctl(nId_, 0, IPC_SET, argument);  // an owner outside the home's group: the set stays his own group's
    return 0;
  }
  if (IsOurs(status.sem_perm, home) && status.sem_nsems == kCount) return 0;
  ReportForeign("set of semaphores", status.sem_perm);
  nId_ = -1;
  return EACCES;
}

int StoreSemaphores::TakeOpening(const struct stat &home) {
  for (;;) {
    if (nId_ < 0) {
      if (const int nError = Attach(home); nError != 0) return nError;
    }
    TakeSteps take(kOpening);
    if (semop(nId_, take.steps, 2) == 0) return 0;
    if (errno == EIDRM || errno == EINVAL) {
      nId_ = -1;  // the set was removed while we waited: make or attach the next one
    } else if (errno != EINTR) {
      return errno;
    }
  }
}

bool StoreSemaphores::Take(Which which, Deadline &deadline) const {
  for (;;) {
    const long nLeft = deadline.LeftMs();
    if (nLeft <= 0) return false;
    const timespec wait = {nLeft / 1000, nLeft % 1000 * 1000000};
    TakeSteps take(which);
    if (semtimedop(nId_, take.steps, 2, &wait) == 0) return true;
    if (errno != EINTR && errno != EAGAIN) return false;
  }
}

void StoreSemaphores::Release(Which which) const {
  const int nError = errno;
  sembuf give = {which, -1, SEM_UNDO | IPC_NOWAIT};
  while (semop(nId_, &give, 1) != 0 && errno == EINTR) {
  }
  errno = nError;
}

}  // namespace devsupport::store
