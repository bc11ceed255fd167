// The store's own lock around everything that a process does inside the shared memory. It is there for the case that
// the library cannot deal with: a process killed while it holds one of the library's mutexes, for which all others
// would wait without end. The kernel gives this lock up for the dead, and tells the next one who asks
// (docs/decisions/store-locking.md). A system without robust mutexes gets a semaphore instead.
#pragma once

#include <devsupport/detail/Layout.h>
#include <devsupport/ipc/ShareMem.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace devsupport::store {

/// How long one operation may wait, for whatever reason: the time runs from its first wait on.
class Patience {
 public:
  static constexpr long kLimitMs = 8000;
  static constexpr long kPauseMs = 10;

  /// Milliseconds that are left.
  long LeftMs();

  /// Sleeps for a moment; false when there is no time left for it.
  bool Pause();

 private:
  bool started_ = false;
  timespec start_ = {};
};

/// What lies in the gate's segment. All processes of a device run the same library, so that they agree on the layout.
struct GateRecord {
  std::uint32_t dwReady;                // kGateReady once the rest is initialised
  std::uint32_t dwDeaths;               // somebody died inside
  std::uint32_t dwChanges;              // since the gate is new; these two belong to the one that is inside
  std::atomic<std::uint32_t> dwQueued;  // processes that wait, or died waiting
  std::int32_t nSemId;                  // the semaphore that stands in for the mutexes, or kNoSemaphore
  std::atomic<std::uint32_t> dwInside;  // with the semaphore: 1 while somebody is inside, and for good when he died
  pthread_mutex_t queue;                // held by the one that is next
  pthread_mutex_t inside;               // held by the one that is inside

  static constexpr std::int32_t kNoSemaphore = -1;
};
DEVSUPPORT_RECORD_BYTES(GateRecord, 24 + 2 * sizeof(pthread_mutex_t));
DEVSUPPORT_FIELD_AT(GateRecord, dwReady, 0);
DEVSUPPORT_FIELD_AT(GateRecord, dwDeaths, 4);
DEVSUPPORT_FIELD_AT(GateRecord, dwChanges, 8);
DEVSUPPORT_FIELD_AT(GateRecord, dwQueued, 12);
DEVSUPPORT_FIELD_AT(GateRecord, nSemId, 16);
DEVSUPPORT_FIELD_AT(GateRecord, dwInside, 20);
DEVSUPPORT_FIELD_AT(GateRecord, queue, 24);
DEVSUPPORT_FIELD_AT(GateRecord, inside, 24 + sizeof(pthread_mutex_t));
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "shared between processes");
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "shared between processes");

class StoreGate {
 public:
  /// The key before the environment's first region.
  static constexpr std::int32_t kKey = 0x12345677;

  /// Attaches the gate's segment; initialises it when bFirst says that nobody uses the store, and when it is new.
  /// Call it with the home locked.
  bool Attach(bool bFirst);
  void Detach();
  bool IsAttached() const { return pRecord_ != nullptr; }

  /// Waits for the gate and closes it behind the caller. Returns 0, or the library's result that says why not:
  /// DB_RUNRECOVERY when somebody died inside, DB_LOCK_NOTGRANTED when the patience is over.
  int Enter(Patience &patience) {
    if (pRecord_ == nullptr) return 0;  // a table outside the environment
    if (pRecord_->nSemId != GateRecord::kNoSemaphore) [[unlikely]]
      return EnterBySemaphore(patience);
    if (pRecord_->dwQueued.load(std::memory_order_relaxed) != 0) return EnterQueued(patience);
    const int nError = pthread_mutex_trylock(&pRecord_->inside);
    return nError == EBUSY ? EnterQueued(patience) : Admit(nError);
  }

  /// Counts a change of the caller, who is inside; true at every dwEvery-th of all processes.
  bool CountChange(std::uint32_t dwEvery) { return pRecord_ != nullptr && ++pRecord_->dwChanges % dwEvery == 0; }

  void Leave() {
    if (pRecord_ == nullptr) return;
    if (pRecord_->nSemId != GateRecord::kNoSemaphore) [[unlikely]]
      return LeaveBySemaphore();
    pthread_mutex_unlock(&pRecord_->inside);
  }

 private:
  int EnterQueued(Patience &patience);
  int EnterBySemaphore(Patience &patience);
  void LeaveBySemaphore();

  /// What becomes of a caller whose lock of the mutex inside ended like this.
  int Admit(int nError) {
    if (nError == 0 && pRecord_->dwDeaths == 0) [[likely]]
      return 0;
    return Refuse(nError);
  }
  int Refuse(int nError);

  GateRecord *pRecord_ = nullptr;
  TShareMem segment_ = {};
};

/// The gate of the store that this process has open.
extern StoreGate g_gate;

/// Holds the gate while it lives.
class Inside {
 public:
  explicit Inside(Patience &patience) : nResult_(g_gate.Enter(patience)) {}
  ~Inside() {
    if (nResult_ == 0) g_gate.Leave();
  }
  Inside(const Inside &) = delete;
  Inside &operator=(const Inside &) = delete;

  /// 0 inside; otherwise as StoreGate::Enter.
  int Result() const { return nResult_; }

 private:
  int nResult_;
};

}  // namespace devsupport::store
