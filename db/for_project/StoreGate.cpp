// The lock around the store's shared memory: a robust mutex in a segment of its own, with a queue in front of it; or
// a semaphore, where the system has no robust mutexes (user-mode emulators have none).

#include "db/for_project/StoreGate.h"

#include <db.h>
#include <devsupport/ipc/Semaphore.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace devsupport::store {

namespace {

constexpr std::uint32_t kGateReady = 0x47415431;  // "GAT1"
constexpr long kMsPerSecond = 1000;
constexpr long kNsPerMs = 1000000;
constexpr long kNsPerSecond = 1000000000;

// The wait is cut into slices because its end is given in wall-clock time, and that jumps when the device learns
// what time it is: after each slice the patience, which counts in steady time, decides.
constexpr long kSliceMs = 500;

bool InitialiseMutex(pthread_mutex_t *pMutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  const bool bDone = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                     pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                     pthread_mutex_init(pMutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return bDone;
}

// A new semaphore in the place of what an earlier gate left there. Returns its identifier or -1.
std::int32_t MakeSemaphore() {
  Semaphore_Close(Semaphore_Create(StoreGate::kKey));
  return Semaphore_Create(StoreGate::kKey);
}

// Makes the gate's lock. All processes find in the record which one it is.
bool InitialiseLock(GateRecord &record) {
  record.nSemId = GateRecord::kNoSemaphore;
  if (InitialiseMutex(&record.queue) && InitialiseMutex(&record.inside)) return true;
  record.nSemId = MakeSemaphore();
  return record.nSemId != GateRecord::kNoSemaphore;
}

timespec EndOfSlice(long nMs) {
  timespec end;
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += nMs / kMsPerSecond;
  end.tv_nsec += nMs % kMsPerSecond * kNsPerMs;
  if (end.tv_nsec >= kNsPerSecond) {
    end.tv_nsec -= kNsPerSecond;
    ++end.tv_sec;
  }
  return end;
}

// Waits for one of the two mutexes. Returns what pthread_mutex_lock would, or ETIMEDOUT.
int LockWithin(pthread_mutex_t *pMutex, Patience &patience) {
  for (;;) {
    const long nLeft = patience.LeftMs();
    if (nLeft <= 0) return ETIMEDOUT;
    const timespec end = EndOfSlice(std::min(nLeft, kSliceMs));
    const int nError = pthread_mutex_timedlock(pMutex, &end);
    if (nError != ETIMEDOUT) return nError;
  }
}

// Waits for the semaphore, which the kernel hands out in the order of asking. False when it cannot be had in time.
bool TakeWithin(std::int32_t nSemId, Patience &patience) {
  for (;;) {
    const long nLeft = patience.LeftMs();
    if (nLeft <= 0) return false;
    const timespec wait = {nLeft / kMsPerSecond, nLeft % kMsPerSecond * kNsPerMs};
    sembuf take = {0, -1, SEM_UNDO};
    if (semtimedop(nSemId, &take, 1, &wait) == 0) return true;
    if (errno != EINTR && errno != EAGAIN) return false;
  }
}

}  // namespace

StoreGate g_gate;

long Patience::LeftMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  if (!started_) {
    started_ = true;
    start_ = now;
  }
  const auto nSeconds = static_cast<long>(now.tv_sec - start_.tv_sec);
  if (nSeconds > kLimitMs / kMsPerSecond) return 0;
  return kLimitMs - nSeconds * kMsPerSecond - (now.tv_nsec - start_.tv_nsec) / kNsPerMs;
}

bool Patience::Pause() {
  if (LeftMs() <= kPauseMs) return false;
  const timespec pause = {0, kPauseMs * kNsPerMs};
  nanosleep(&pause, nullptr);
  return true;
}

bool StoreGate::Attach(bool bFirst) {
  int bCreated = 0;
  void *pShared = ShareMem_Create(kKey, sizeof(GateRecord), &segment_, &bCreated);
  if (pShared == nullptr) return false;
  auto *pRecord = static_cast<GateRecord *>(pShared);
  if (bFirst || pRecord->dwReady != kGateReady) {
    pRecord = ::new (pShared) GateRecord{};
    if (!InitialiseLock(*pRecord)) {
      int bWasLast = 0;
      ShareMem_Close(&segment_, 0, &bWasLast);
      return false;
    }
    pRecord->dwReady = kGateReady;
  }
  pRecord_ = pRecord;
  return true;
}

void StoreGate::Detach() {
  int bWasLast = 0;
  if (pRecord_ != nullptr) ShareMem_Close(&segment_, 0, &bWasLast);
  pRecord_ = nullptr;
}

// The queue keeps the gate fair: without it, a process that writes in a loop closes the gate again before the one it
// has just woken up gets there. Only the head of the queue waits at the gate itself, and as long as anybody waits,
// nobody takes the gate past the queue.
int StoreGate::EnterQueued(Patience &patience) {
  pRecord_->dwQueued.fetch_add(1, std::memory_order_relaxed);
  int nError = LockWithin(&pRecord_->queue, patience);
  if (nError == EOWNERDEAD) {
    // It died waiting, before it was inside: nothing is lost but its place.
    pthread_mutex_consistent(&pRecord_->queue);
    nError = 0;
  }
  if (nError == 0) {
    nError = LockWithin(&pRecord_->inside, patience);
    pthread_mutex_unlock(&pRecord_->queue);
  }
  pRecord_->dwQueued.fetch_sub(1, std::memory_order_relaxed);
  return Admit(nError);
}

// The kernel gives the semaphore back for the dead, but tells nobody. So whoever is inside says so, and who finds it
// said by another one knows that he died there.
int StoreGate::EnterBySemaphore(Patience &patience) {
  if (!TakeWithin(pRecord_->nSemId, patience)) return DB_LOCK_NOTGRANTED;
  if (pRecord_->dwInside.exchange(1) == 0) return 0;
  Semaphore_Unlock(pRecord_->nSemId);
  return DB_RUNRECOVERY;
}

void StoreGate::LeaveBySemaphore() {
  pRecord_->dwInside.store(0);
  Semaphore_Unlock(pRecord_->nSemId);
}

// The dead one may have left anything behind, so the gate lets nobody in any more, until the next first opener makes
// a new one. (The mutex could stay shut by itself, but the C library's trylock forgets to unlock such a one.)
int StoreGate::Refuse(int nError) {
  if (nError != 0 && nError != EOWNERDEAD) return DB_LOCK_NOTGRANTED;
  if (nError == EOWNERDEAD) {
    ++pRecord_->dwDeaths;
    pthread_mutex_consistent(&pRecord_->inside);
  }
  pthread_mutex_unlock(&pRecord_->inside);
  return DB_RUNRECOVERY;
}

}  // namespace devsupport::store
