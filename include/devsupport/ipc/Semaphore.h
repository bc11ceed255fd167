// SPDX-License-Identifier: MIT
/* A lock between processes: one two-state System V semaphore per key, which the kernel frees when its holder dies. */
#ifndef DEVSUPPORT_IPC_SEMAPHORE_H
#define DEVSUPPORT_IPC_SEMAPHORE_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// Finds the semaphore of a key, or makes it: mode 0666, one semaphore, value 1 = free, 0 = held.
/// nKey       in      System V key
/// Returns    the identifier; -1 when the set can neither be made nor found, or not be set to 1 (it is removed then).
///            The value of a set that was there already is not changed: a holder keeps it.
/// Prints     nothing; errno says why.
/// Order      the first of several starters makes the set; the others wait in their first lock until it is free.
///            A set that only the second, plain request could make has value 0: its first lock waits.
/// Threads    safe.
/// Signals    no.
int32_t Semaphore_Create(int32_t nKey);

/// Removes the set for every process, held or not; a process that waits for it gets a failed lock.
/// nSemId     in      identifier from Semaphore_Create
/// Returns    1 the set was removed, 0 it was not.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
int Semaphore_Close(int32_t nSemId);

/// Takes the semaphore, waiting until it is free. The kernel gives it back when the process ends while it holds it.
/// nSemId     in      identifier from Semaphore_Create
/// Returns    1 taken, 0 not: a signal interrupted the wait (errno EINTR; not tried again), the set was removed or
///            never was one.
/// Prints     nothing.
/// Threads    safe; the semaphore belongs to the process, so that any of its threads may give it back.
/// Cost       one system call.
/// Signals    no.
int Semaphore_Lock(int32_t nSemId);

/// Gives the semaphore back. Nothing checks that it was taken: without a lock before it the value becomes 2,
/// and two processes can then hold it at once.
/// nSemId     in      identifier from Semaphore_Create
/// Returns    1 given back, 0 not: the set was removed or never existed.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
/// Cost       one system call.
int Semaphore_Unlock(int32_t nSemId);

DEVSUPPORT_END_API

#endif
