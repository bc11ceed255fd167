// SPDX-License-Identifier: MIT
/* Mutexes between the threads of one process. */
#ifndef DEVSUPPORT_IPC_THREADMUTEX_H
#define DEVSUPPORT_IPC_THREADMUTEX_H

#include <devsupport/Api.h>
#include <pthread.h>

DEVSUPPORT_BEGIN_API

/* Every operation takes the caller's mutex (NULL is not allowed), returns the thread library's result unchanged
   (0, or an error number; errno is not used) and prints nothing. The caller places and owns the mutex. */

/// Makes a mutex with the default attributes, not held.
/// puMutex    out     not a living mutex
/// Returns    0, or the error number of pthread_mutex_init.
/// Threads    one thread per mutex.
/// Signals    no.
int ThreadMutex_Create(pthread_mutex_t *puMutex);

/// Ends a mutex, which must not be held. Its memory stays the caller's.
/// puMutex    in,out  made by ThreadMutex_Create
/// Returns    0, or the error number of pthread_mutex_destroy.
/// Threads    no other thread may use the mutex any more.
/// Signals    no.
int ThreadMutex_Close(pthread_mutex_t *puMutex);

/// Waits until the mutex is free and takes it.
/// puMutex    in,out  made by ThreadMutex_Create; a thread that holds it already waits for ever
/// Returns    0, or the error number of pthread_mutex_lock.
/// Threads    safe.
/// Signals    no.
int ThreadMutex_Lock(pthread_mutex_t *puMutex);

/// Gives the mutex back.
/// puMutex    in,out  held by the calling thread
/// Returns    0, or the error number of pthread_mutex_unlock.
/// Threads    safe.
/// Signals    no.
int ThreadMutex_UnLock(pthread_mutex_t *puMutex);

/// Takes the mutex if it is free; never waits.
/// puMutex    in,out  made by ThreadMutex_Create
/// Returns    0 taken, EBUSY it is held, or another error number of pthread_mutex_trylock.
/// Threads    safe.
/// Signals    no.
int ThreadMutex_TryLock(pthread_mutex_t *puMutex);

DEVSUPPORT_END_API

#endif
