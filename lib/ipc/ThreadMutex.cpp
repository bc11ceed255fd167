// SPDX-License-Identifier: MIT
// Mutexes between threads: the thread library's own, under the names that the rest of the library uses.

#include <devsupport/ipc/ThreadMutex.h>

int ThreadMutex_Create(pthread_mutex_t *puMutex) { return pthread_mutex_init(puMutex, nullptr); }

int ThreadMutex_Close(pthread_mutex_t *puMutex) { return pthread_mutex_destroy(puMutex); }

int ThreadMutex_Lock(pthread_mutex_t *puMutex) { return pthread_mutex_lock(puMutex); }

int ThreadMutex_UnLock(pthread_mutex_t *puMutex) { return pthread_mutex_unlock(puMutex); }

int ThreadMutex_TryLock(pthread_mutex_t *puMutex) { return pthread_mutex_trylock(puMutex); }
