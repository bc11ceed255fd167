// SPDX-License-Identifier: MIT
// The store's own lock around everything that a process does inside the shared memory. It is there for the case that
// the library cannot deal with: a process killed while it holds one of the library's mutexes, for which all others
// would wait without end. The kernel releases this lock when its holder dies, and tells the next process that takes
// it (docs/decisions/store-locking.md). A system without robust mutexes gets a semaphore instead.
#pragma once

#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "db/for_project/Deadline.h"

namespace devsupport::store {

/// One process that has the store open.
struct GateMember {
  std::int32_t nPid;  // 0: the place is free
  std::uint32_t dwUnused;
  std::uint64_t
      qwStart;  // start of the process in the kernel's clock ticks; distinguishes it from a later one with its number
};

/// What lies in the gate's segment. All processes of a device run the same library, so that they agree on the layout.
/// Only the process inside changes it; the atomic fields are read from outside, too.
struct GateRecord {
  static constexpr std::uint32_t kMagic = 0x47415432;  // "GAT2"
  static constexpr std::uint32_t kMembers = 23;        // as many as the environment's 600 locks are enough for
  static constexpr std::size_t kHomeBytes = 256;

  std::uint32_t dwMagic;     // kMagic once the rest is initialised
  std::uint32_t dwBytes;     // of this record
  std::uint32_t bSemaphore;  // 1: the queue's semaphore is the gate, because there are no robust mutexes
  // Of the environment's regions: changes whenever they are rebuilt. 0: they must be rebuilt before any process uses
  // them, because a process died inside, or while it made them.
  std::atomic<std::uint32_t> dwGeneration;
  std::uint32_t dwLastGeneration;        // the last one that was given
  std::atomic<std::uint32_t> dwQueued;   // 1 while the head of the queue waits for the gate
  std::atomic<std::int32_t> nInside;     // process number of the one that is inside; 0 for none
  std::atomic<std::uint32_t> dwChanges;  // changes of records; a large record counts for several
  std::uint32_t dwCursors;               // open ones, of all processes
  std::uint32_t bIndexDoubt;             // an index could not be bound to its table: it may lack entries
  std::uint32_t bNoReserve;              // the reserve file is used up: no changes until there is room for a new one
  std::uint32_t dwUnused;
  std::uint64_t qwDevice;  // of the home
  std::uint64_t qwInode;
  char szHome[kHomeBytes];  // for messages; cut when it is longer
  GateMember aMembers[kMembers];
  pthread_mutex_t inside;  // held by the one that is inside
};
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "shared between processes");
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "shared between processes");

class StoreGate {
 public:
  /// Attaches the gate's segment; makes it when it is missing. Call it with the opening lock taken. Reports a foreign
  /// segment. Returns 0 or an error number.
  int Attach(const struct stat &home);
  void Detach();
  bool IsAttached() const { return pRecord_ != nullptr; }

  /// Makes a new lock and forgets all members. Only when no living process has the store open.
  void Reset();

  /// The home that the gate belongs to.
  bool IsOf(const struct stat &home) const;
  const char *Home() const { return pRecord_->szHome; }
  void BindTo(const struct stat &home, const char *pPath);

  /// Waits for the gate and closes it after the caller. Returns 0, or DB_LOCK_NOTGRANTED when the deadline is over.
  /// When a process died inside, NeedsRebuild returns true.
  int Enter(Deadline &deadline) {
    if (pRecord_ == nullptr) return 0;  // a table outside the environment
    if (pRecord_->bSemaphore != 0) [[unlikely]]
      return EnterBySemaphore(deadline);
    if (pRecord_->dwQueued.load(std::memory_order_relaxed) != 0) return EnterContended(deadline);
    const int nError = pthread_mutex_trylock(&pRecord_->inside);
    return nError == EBUSY ? EnterContended(deadline) : Admit(nError);
  }
  void Leave() {
    if (pRecord_ == nullptr) return;
    pRecord_->nInside.store(0, std::memory_order_relaxed);
    if (pRecord_->bSemaphore != 0) [[unlikely]]
      return LeaveBySemaphore();
    pthread_mutex_unlock(&pRecord_->inside);
  }

  // Everything below is for the process that is inside.

  /// Whether this process uses the current regions.
  bool IsCurrent() const {
    return pRecord_ == nullptr || pRecord_->dwGeneration.load(std::memory_order_relaxed) == dwGeneration_;
  }
  bool NeedsRebuild() const { return pRecord_->dwGeneration.load(std::memory_order_relaxed) == 0; }
  void DemandRebuild() { pRecord_->dwGeneration.store(0, std::memory_order_relaxed); }
  /// The regions are new: gives them a generation, and forgets what belonged to the old ones, dead members included.
  void BeginGeneration();
  /// This process now uses the current regions. Its cursors were in the old ones.
  void Adopt() {
    dwGeneration_ = pRecord_->dwGeneration.load(std::memory_order_relaxed);
    dwOwnCursors_ = 0;
  }

  /// Gives this process a place among the members. False when all are taken.
  bool Join();
  void Quit();
  /// Members other than this process.
  bool HasLivingOthers() const;
  bool HasDead() const;
  void ForgetDead();

  /// Counts a change; a large record counts for several. True at every dwEvery-th of all processes.
  bool CountChange(std::uint32_t dwEvery, std::size_t dwBytes);
  void CountCursor(bool bOpened);
  /// Open cursors of all processes.
  std::uint32_t Cursors() const { return pRecord_->dwCursors; }

  GateRecord &Record() { return *pRecord_; }

 private:
  int EnterContended(Deadline &deadline);
  int EnterQueued(Deadline &deadline);
  int EnterBySemaphore(Deadline &deadline);
  void LeaveBySemaphore();

  /// What becomes of a caller whose lock of the mutex ended like this.
  int Admit(int nError) {
    if (nError != 0) [[unlikely]]
      return AdmitAfter(nError);
    pRecord_->nInside.store(nPid_, std::memory_order_relaxed);
    return 0;
  }
  int AdmitAfter(int nError);

  GateRecord *pRecord_ = nullptr;
  std::uint32_t dwGeneration_ = 0;
  std::uint32_t dwOwnCursors_ = 0;
  std::int32_t nPid_ = 0;
};

/// The gate of the store that this process has open.
extern StoreGate g_gate;

/// Holds the gate while it lives.
class GateLock {
 public:
  explicit GateLock(Deadline &deadline) : nResult_(g_gate.Enter(deadline)) {}
  ~GateLock() {
    if (nResult_ == 0) g_gate.Leave();
  }
  GateLock(const GateLock &) = delete;
  GateLock &operator=(const GateLock &) = delete;

  /// 0 inside; otherwise as StoreGate::Enter.
  int Result() const { return nResult_; }

 private:
  int nResult_;
};

}  // namespace devsupport::store
