// SPDX-License-Identifier: MIT
// The one system call of every lock and unlock. Inline, because the ring makes two for each cell and little else:
// after a system call each return costs more than what it returns from.
#pragma once

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cstdint>

namespace devsupport {

inline constexpr short kTakeSemaphore = -1;
inline constexpr short kGiveSemaphore = +1;

inline constexpr short kWaitForSemaphore = 0;
inline constexpr short kDoNotWait = IPC_NOWAIT;

/// Changes the semaphore's value; false with errno when it could not: EAGAIN when the value would fall below 0 and the
/// caller does not wait. SEM_UNDO is what keeps a holder that crashes from blocking the others.
inline bool OperateSemaphore(std::int32_t nSemId, short nChange, short nWait = kWaitForSemaphore) {
  sembuf operation{0, nChange, static_cast<short>(SEM_UNDO | nWait)};
  return ::semop(nSemId, &operation, 1) == 0;
}

}  // namespace devsupport
