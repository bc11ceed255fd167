// SPDX-License-Identifier: MIT
// The lock around the store's shared memory: a robust mutex in a separate segment, with a queue before it; or the
// queue's semaphore alone, where the system has no robust mutexes (user-mode emulators have none).

#include "db/for_project/StoreGate.h"

#include <db.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "db/for_project/OpenReport.h"
#include "db/for_project/Processes.h"
#include "db/for_project/StoreKeys.h"
#include "db/for_project/StoreSemaphores.h"

#if defined(__GLIBC__) && defined(__GLIBC_PREREQ)
#if __GLIBC_PREREQ(2, 30)
#define HAS_CLOCKLOCK  // pthread_mutex_clocklock
#endif
#endif

namespace devsupport::store {

namespace {

// An operation inside takes about a microsecond when it only reads. So a caller first lets the others run for a
// moment: being put to sleep and woken by the kernel costs ten times as much.
constexpr int kYields = 30;

// A change counts once more for each so many bytes, so that few large ones lead to a checkpoint, too.
constexpr std::size_t kBytesPerChange = 256;

// Whether the kernel releases the mutexes of dead processes. User-mode emulators do not, and not every C library
// requests it.
bool HasRobustLists() {
  void *pHead = nullptr;
  std::size_t dwBytes = 0;
  return syscall(SYS_get_robust_list, 0, &pHead, &dwBytes) == 0;
}

bool InitialiseMutex(pthread_mutex_t *pMutex) {
  pthread_mutexattr_t attributes;
  if (!HasRobustLists() || pthread_mutexattr_init(&attributes) != 0) return false;
  const bool bDone = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                     pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                     pthread_mutex_init(pMutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return bDone;
}

// Waits for the mutex as the head of the queue. Returns what pthread_mutex_lock would, or ETIMEDOUT.
int LockWithin(pthread_mutex_t *pMutex, Deadline &deadline) {
#if defined(HAS_CLOCKLOCK)
  const long nLeft = deadline.LeftMs();
  timespec end;
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_sec += nLeft / 1000;
  end.tv_nsec += nLeft % 1000 * 1000000;
  if (end.tv_nsec >= 1000000000) {
    end.tv_nsec -= 1000000000;
    ++end.tv_sec;
  }
  return pthread_mutex_clocklock(pMutex, CLOCK_MONOTONIC, &end);
#else
  // A timed lock counts in wall-clock time here, and that jumps when the device learns what time it is.
  for (;;) {
    const int nError = pthread_mutex_trylock(pMutex);
    if (nError != EBUSY) return nError;
    if (!deadline.Pause(1)) return ETIMEDOUT;
  }
#endif
}

// Attaches a segment that belongs to us. Returns nullptr with errno.
void *AttachSegment(const struct stat &home) {
  int nId = shmget(kGateKey, sizeof(GateRecord), IPC_CREAT | IPC_EXCL | kObjectMode);
  const bool bCreated = nId >= 0;
  if (!bCreated && errno == EEXIST) nId = shmget(kGateKey, 0, 0);
  shmid_ds status = {};
  if (nId < 0 || shmctl(nId, IPC_STAT, &status) != 0) return nullptr;
  if (bCreated) {
    status.shm_perm.gid = home.st_gid;
    shmctl(nId, IPC_SET, &status);  // an owner outside the home's group: the segment stays his own group's
  } else if (!IsOurs(status.shm_perm, home) || status.shm_segsz < sizeof(GateRecord)) {
    ReportForeign("segment", status.shm_perm);
    errno = EACCES;
    return nullptr;
  }
  void *pShared = shmat(nId, nullptr, 0);
  return reinterpret_cast<std::intptr_t>(pShared) == -1 ? nullptr : pShared;
}

}  // namespace

StoreGate g_gate;

int StoreGate::Attach(const struct stat &home) {
  void *pShared = AttachSegment(home);
  if (pShared == nullptr) return errno;
  nPid_ = getpid();
  dwGeneration_ = 0;
  dwOwnCursors_ = 0;
  pRecord_ = static_cast<GateRecord *>(pShared);
  if (pRecord_->dwMagic == GateRecord::kMagic && pRecord_->dwBytes == sizeof(GateRecord)) return 0;
  if (pRecord_->dwMagic == 0) {
    // New, or its creator died before it was complete. No process can have used it.
    pRecord_ = ::new (pShared) GateRecord{};
    Reset();
    return 0;
  }
  ReportSentence("the segment at key 0x%x does not hold this library's gate; remove it with ipcrm",
                 static_cast<unsigned>(kGateKey));
  Detach();
  return EACCES;
}

void StoreGate::Detach() {
  if (pRecord_ != nullptr) shmdt(pRecord_);
  pRecord_ = nullptr;
}

void StoreGate::Reset() {
  pRecord_->dwMagic = 0;
  pRecord_->dwQueued.store(0);
  pRecord_->nInside.store(0);
  pRecord_->dwCursors = 0;
  std::memset(pRecord_->aMembers, 0, sizeof pRecord_->aMembers);
  pRecord_->bSemaphore = InitialiseMutex(&pRecord_->inside) ? 0 : 1;
  pRecord_->dwBytes = sizeof(GateRecord);
  pRecord_->dwMagic = GateRecord::kMagic;
}

bool StoreGate::IsOf(const struct stat &home) const {
  return pRecord_->qwInode == home.st_ino && pRecord_->qwDevice == home.st_dev;
}

void StoreGate::BindTo(const struct stat &home, const char *pPath) {
  pRecord_->qwDevice = home.st_dev;
  pRecord_->qwInode = home.st_ino;
  std::strncpy(pRecord_->szHome, pPath, GateRecord::kHomeBytes - 1);
  pRecord_->szHome[GateRecord::kHomeBytes - 1] = '\0';
}

int StoreGate::EnterContended(Deadline &deadline) {
  for (int i = 0; i < kYields; ++i) {
    sched_yield();
    if (pRecord_->dwQueued.load(std::memory_order_relaxed) != 0) continue;
    const int nError = pthread_mutex_trylock(&pRecord_->inside);
    if (nError != EBUSY) return Admit(nError);
  }
  return EnterQueued(deadline);
}

// The queue keeps the gate fair: without it, a process that writes in a loop closes the gate again before the one it
// has just woken up gets there. Only the head of the queue waits at the gate itself, and while it waits, no process
// takes the gate without the queue. Without a queue (when the semaphores were removed) the gate is still a lock.
int StoreGate::EnterQueued(Deadline &deadline) {
  const bool bHead = g_semaphores.Take(StoreSemaphores::kQueue, deadline);
  if (!bHead && deadline.LeftMs() <= 0) return DB_LOCK_NOTGRANTED;
  pRecord_->dwQueued.store(1, std::memory_order_relaxed);
  const int nError = LockWithin(&pRecord_->inside, deadline);
  pRecord_->dwQueued.store(0, std::memory_order_relaxed);
  if (bHead) g_semaphores.Release(StoreSemaphores::kQueue);
  return Admit(nError);
}

// The kernel gives the semaphore of a dead process back, but does not report it. So the process inside writes its
// number down, and one that finds the number of another process knows that this one died inside.
int StoreGate::EnterBySemaphore(Deadline &deadline) {
  if (!g_semaphores.Take(StoreSemaphores::kQueue, deadline)) return DB_LOCK_NOTGRANTED;
  if (pRecord_->nInside.exchange(nPid_) != 0) DemandRebuild();
  return 0;
}

void StoreGate::LeaveBySemaphore() { g_semaphores.Release(StoreSemaphores::kQueue); }

int StoreGate::AdmitAfter(int nError) {
  if (nError != EOWNERDEAD) return DB_LOCK_NOTGRANTED;
  pthread_mutex_consistent(&pRecord_->inside);
  DemandRebuild();
  return Admit(0);
}

void StoreGate::BeginGeneration() {
  pRecord_->dwCursors = 0;
  ForgetDead();
  if (++pRecord_->dwLastGeneration == 0) ++pRecord_->dwLastGeneration;
  pRecord_->dwGeneration.store(pRecord_->dwLastGeneration, std::memory_order_relaxed);
}

bool StoreGate::Join() {
  GateMember *pFree = nullptr;
  for (GateMember &member : pRecord_->aMembers) {
    if (member.nPid == nPid_) return true;  // a rebuild may have kept our place
    if (member.nPid == 0 && pFree == nullptr) pFree = &member;
  }
  if (pFree == nullptr) return false;
  *pFree = {nPid_, 0, StartOf(nPid_)};
  return true;
}

void StoreGate::Quit() {
  for (GateMember &member : pRecord_->aMembers) {
    if (member.nPid == nPid_) member = {};
  }
  // After a rebuild the count has only the cursors of the others.
  if (IsCurrent()) pRecord_->dwCursors -= std::min(dwOwnCursors_, pRecord_->dwCursors);
  dwOwnCursors_ = 0;
}

bool StoreGate::HasLivingOthers() const {
  for (const GateMember &member : pRecord_->aMembers) {
    if (member.nPid != 0 && member.nPid != nPid_ && IsAlive(member.nPid, member.qwStart)) return true;
  }
  return false;
}

bool StoreGate::HasDead() const {
  if (pRecord_ == nullptr) return false;
  for (const GateMember &member : pRecord_->aMembers) {
    if (member.nPid != 0 && !IsAlive(member.nPid, member.qwStart)) return true;
  }
  return false;
}

void StoreGate::ForgetDead() {
  for (GateMember &member : pRecord_->aMembers) {
    if (member.nPid != 0 && !IsAlive(member.nPid, member.qwStart)) member = {};
  }
}

bool StoreGate::CountChange(std::uint32_t dwEvery, std::size_t dwBytes) {
  if (pRecord_ == nullptr) return false;
  const std::uint32_t dwBefore = pRecord_->dwChanges.load(std::memory_order_relaxed);
  const auto dwAfter = dwBefore + 1 + static_cast<std::uint32_t>(dwBytes / kBytesPerChange);
  pRecord_->dwChanges.store(dwAfter, std::memory_order_relaxed);
  return dwBefore / dwEvery != dwAfter / dwEvery;
}

void StoreGate::CountCursor(bool bOpened) {
  if (pRecord_ == nullptr) return;
  if (bOpened) {
    ++pRecord_->dwCursors;
    ++dwOwnCursors_;
  } else if (dwOwnCursors_ != 0) {
    --pRecord_->dwCursors;
    --dwOwnCursors_;
  }
}

}  // namespace devsupport::store
