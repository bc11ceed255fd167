// SPDX-License-Identifier: MIT
// Timers: numbered millisecond timers in arrays, whose callbacks run inside a real-time signal.
//
// The main flow and the handler share the table and the cells without a lock, since a handler must not wait for
// what it interrupted. Why that is right, with the handler in the same thread or in another one:
//
//  - Table: an array is complete before its entry is published (release), and the handler reads the entry before
//    it looks inside (acquire). Head and cell count never change afterwards.
//  - Cell: its flags and its generation are one atomic word, which decides everything else. Timer_Set writes timer
//    and callback while no flag is set, and sets the flags last: code that sees the flags sees what belongs to them.
//  - The thread or handler that clears the flags owns the timer and deletes it, so every timer is deleted once
//  although
// handlers
//    and the main flow may try together. (A second delete would be an error at best; a C library that keeps a heap
//    block for timer_t would free it twice.) Only a timer that is just being started is left to Timer_Set.
//  - Timer and callback are read before the compare-exchange that acts on the word. It succeeds only when the word
//    has not changed since, so they belong to that very arming: the word counts armings in 24 bits, and no
//    cell is armed 16 million times within those few instructions.
//
// The cells' atomics use the default order, in which all of this reads as one interleaving; beside the system call
// that comes with every step its barrier costs nothing. That they are lock-free is what makes them usable in a
// handler, and what keeps the compiler from moving them across each other.

#include <devsupport/ipc/Timer.h>
#include "lib/Layout.h"
#include "lib/ipc/PreservedErrno.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

using devsupport::PreservedErrno;

namespace {

constexpr std::size_t kMaxArrays = 64;
constexpr std::uint16_t kNoArray = 0xFFFF;

// A cell's flags. Without any it has no timer.
constexpr std::uint32_t kActive = 1;     // armed
constexpr std::uint32_t kUnstarted = 2;  // not armed, but holds a timer that could not be started
constexpr std::uint32_t kStarting = 4;   // Timer_Set is at work on the timer; no other code may delete it

// What a cell is in, in one word: the flags in the low byte, where the device has its active flag, and above it how
// often the cell has been armed. The lowest byte of that is the generation, which is all that a signal can carry.
using TStateWord = std::uint32_t;

constexpr TStateWord StateWord(std::uint32_t dwFlags, std::uint32_t nArming) { return dwFlags | nArming << 8; }
constexpr std::uint32_t Arming(TStateWord dwState) { return dwState >> 8; }
constexpr bool IsActive(TStateWord dwState) { return (dwState & kActive) != 0; }
constexpr bool IsEnded(TStateWord dwState) { return (dwState & (kActive | kUnstarted)) == 0; }
constexpr bool IsCurrent(TStateWord dwState, std::uint32_t nGeneration) {
  return IsActive(dwState) && (Arming(dwState) & 0xFFu) == nGeneration;
}
constexpr TStateWord Ended(TStateWord dwState) { return dwState & ~(kActive | kUnstarted); }
constexpr bool HasTimer(TStateWord dwState) { return (dwState & 0xFFu) != 0; }

struct TTimerCell {
  std::atomic<timer_t> hTimer{};
  std::atomic<TTimerFunc> pfnCallback{};
  std::atomic<TStateWord> dwState{};
};
DEVSUPPORT_DEVICE_RECORD_BYTES(TTimerCell, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerCell, hTimer, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerCell, pfnCallback, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerCell, dwState, 8);

struct TTimerArray {
  std::uint16_t wSignal;
  std::uint8_t byCount;
  std::int32_t bOneShot;
  TTimerFunc pfnDefault;

  TTimerCell *Cells() { return reinterpret_cast<TTimerCell *>(this + 1); }
  TTimerCell *Find(std::uint32_t nAryIdx) { return nAryIdx < byCount ? Cells() + nAryIdx : nullptr; }
};
DEVSUPPORT_DEVICE_RECORD_BYTES(TTimerArray, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerArray, wSignal, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerArray, byCount, 2);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerArray, bOneShot, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TTimerArray, pfnDefault, 8);

static_assert(std::atomic<timer_t>::is_always_lock_free && std::atomic<TTimerFunc>::is_always_lock_free &&
              std::atomic<TStateWord>::is_always_lock_free && std::atomic<TTimerArray *>::is_always_lock_free);
static_assert(sizeof(TTimerArray) % alignof(TTimerCell) == 0, "the cells follow the head");

constinit std::atomic<TTimerArray *> g_apArray[kMaxArrays];

// What a timer carries in its signal: the cell and the arming that it belongs to.
struct TSignalValue {
  std::uint32_t nAryIdx;
  std::uint32_t nAryNo;
  std::uint32_t nGeneration;

  int Encode() const { return static_cast<int>(nAryIdx | nAryNo << 18 | nGeneration << 24); }
  static TSignalValue Decode(int nValue) {
    const auto dwValue = static_cast<std::uint32_t>(nValue);
    return {dwValue & 0x3FFFFu, dwValue >> 18 & 0x3Fu, dwValue >> 24};
  }
};

enum TFailCase { kOutOfRange = 1, kTimerCall = 2, kSetTime = 3 };

struct TOperation {
  const char *pName;
  const char *pTimerCall;  // after kTimerCall
};
constexpr TOperation kSet{"Timer_Set", "timer_create"};
constexpr TOperation kDel{"Timer_Del", "timer_delete"};

// Reports a failed operation and gives its result.
int Fail(const TOperation &operation, TFailCase eCase, std::uint32_t nAryIdx, unsigned nCount) {
  const PreservedErrno preserved;
  switch (eCase) {
    case kOutOfRange:
      std::fprintf(stderr, "%s: nAryIdx=%d out range, MaxAryCnt=%d\n", operation.pName, static_cast<int>(nAryIdx),
                   static_cast<int>(nCount));
      break;
    case kTimerCall:
      std::fprintf(stderr, "%s: %s() failed! [%s]\n", operation.pName, operation.pTimerCall, std::strerror(errno));
      break;
    case kSetTime:
      std::fprintf(stderr, "%s: timer_settime() failed! [%s]\n", operation.pName, std::strerror(errno));
      break;
    default:  // Kept: no case comes here; the next one to be added has a text at once.
      std::fprintf(stderr, "%s: fail, eCase=%d\n", operation.pName, eCase);
      break;
  }
  return 0;
}

TTimerArray *FindArray(const std::uint16_t *pwAryNo) {
  return *pwAryNo < kMaxArrays ? g_apArray[*pwAryNo].load(std::memory_order_acquire) : nullptr;
}

// Enters an array in the first empty entry from nFirst on. Returns the entry's index, kMaxArrays when all are taken.
std::size_t Publish(TTimerArray *puArray, std::size_t nFirst) {
  for (std::size_t nAryNo = nFirst; nAryNo < kMaxArrays; ++nAryNo) {
    TTimerArray *puEmpty = nullptr;
    if (g_apArray[nAryNo].compare_exchange_strong(puEmpty, puArray, std::memory_order_release,
                                                  std::memory_order_relaxed))
      return nAryNo;
  }
  return kMaxArrays;
}

std::size_t FindEmptyEntry() {
  std::size_t nAryNo = 0;
  while (nAryNo < kMaxArrays && g_apArray[nAryNo].load(std::memory_order_relaxed) != nullptr) ++nAryNo;
  return nAryNo;
}

bool InstallHandler(int nSignal) {
  struct sigaction action {};
  action.sa_sigaction = Timer_OnSignal;
  action.sa_flags = SA_SIGINFO;
  return sigaction(nSignal, &action, nullptr) == 0;
}

// The block has room for nCount cells. Only those are set up that the 8-bit count leaves within reach.
TTimerArray *NewArray(std::int32_t nCount, int bOneShot, TTimerFunc pfnDefault, int nSignal) {
  constexpr std::size_t kMaxCells = (PTRDIFF_MAX - sizeof(TTimerArray)) / sizeof(TTimerCell);
  if (nCount < 0 || static_cast<std::size_t>(nCount) > kMaxCells) return nullptr;
  void *pBlock = std::malloc(sizeof(TTimerArray) + static_cast<std::size_t>(nCount) * sizeof(TTimerCell));
  if (pBlock == nullptr) return nullptr;
  // Kept: the count is stored in eight bits and wraps, while the block is made for all of it.
  auto *puArray = ::new (pBlock)
      TTimerArray{static_cast<std::uint16_t>(nSignal), static_cast<std::uint8_t>(nCount), bOneShot, pfnDefault};
  for (unsigned nAryIdx = 0; nAryIdx < puArray->byCount; ++nAryIdx) ::new (puArray->Cells() + nAryIdx) TTimerCell;
  return puArray;
}

// Ends what the cell holds and deletes its timer; the result of that is not used.
void Release(TTimerCell &cell) {
  TStateWord dwState = cell.dwState;
  while (HasTimer(dwState)) {
    const timer_t hTimer = cell.hTimer;
    if (cell.dwState.compare_exchange_weak(dwState, StateWord(0, Arming(dwState)))) {
      timer_delete(hTimer);
      return;
    }
  }
}

void ReleaseAll(TTimerArray &array) {
  for (unsigned nAryIdx = 0; nAryIdx < array.byCount; ++nAryIdx) Release(array.Cells()[nAryIdx]);
}

int CreateTimer(const TTimerArray &array, const TSignalValue &value, timer_t *phTimer) {
  struct sigevent event {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = array.wSignal;
  event.sigev_value.sival_int = value.Encode();
  return timer_create(CLOCK_REALTIME, &event, phTimer);
}

// Kept: the timer always repeats for the kernel; an array's cells expire once because the handler ends them. A period
// of 0 is the kernel's word for "stop": the cell is then active with a timer that never runs.
int StartTimer(timer_t hTimer, std::uint32_t dwPeriodMs) {
  const struct timespec period {
    static_cast<time_t>(dwPeriodMs / 1000), static_cast<long>(dwPeriodMs % 1000) * 1'000'000L
  };
  const struct itimerspec both { period, period };
  return timer_settime(hTimer, 0, &both, nullptr);
}

}  // namespace

int Timer_CreateAry(std::int32_t nCount, int bOneShot, TTimerFunc pfnDefault, int nSignal, std::uint16_t *pwAryNo) {
  *pwAryNo = kNoArray;
  if (nSignal < 1) nSignal = __libc_current_sigrtmin() + 1;
  // Kept: installed again with every array, and kept when there is no room for this one.
  if (!InstallHandler(nSignal)) {
    const PreservedErrno preserved;
    std::perror("sigaction");
    return 0;
  }
  const std::size_t nEmpty = FindEmptyEntry();
  if (nEmpty == kMaxArrays) return 0;
  TTimerArray *puArray = NewArray(nCount, bOneShot, pfnDefault, nSignal);
  if (puArray == nullptr) return 0;
  const std::size_t nAryNo = Publish(puArray, nEmpty);
  if (nAryNo == kMaxArrays) {  // other threads were faster
    std::free(puArray);
    return 0;
  }
  *pwAryNo = static_cast<std::uint16_t>(nAryNo);
  return 1;
}

int Timer_Set(const std::uint16_t *pwAryNo, std::uint32_t nAryIdx, std::uint32_t dwPeriodMs, TTimerFunc pfn) {
  TTimerArray *puArray = FindArray(pwAryNo);
  if (puArray == nullptr) return 0;
  TTimerCell *puCell = puArray->Find(nAryIdx);
  if (puCell == nullptr) return Fail(kSet, kOutOfRange, nAryIdx, puArray->byCount);
  Release(*puCell);

  const std::uint32_t nArming = Arming(puCell->dwState) + 1;
  const TSignalValue value{nAryIdx, *pwAryNo, nArming & 0xFFu};
  timer_t hTimer{};
  if (CreateTimer(*puArray, value, &hTimer) != 0) return Fail(kSet, kTimerCall, nAryIdx, puArray->byCount);
  puCell->hTimer = hTimer;
  puCell->pfnCallback = pfn != nullptr ? pfn : puArray->pfnDefault;

  // The cell is active before its timer runs. The other way round, an expiry between the two would be taken for a
  // late one: the handler would delete the timer, and the cell would then be active for ever without one. The
  // kernel's own locks order this store before anything that the started timer does, on every processor.
  TStateWord dwState = StateWord(kActive | kStarting, nArming);
  puCell->dwState = dwState;
  const bool bStarted = StartTimer(hTimer, dwPeriodMs) == 0;
  // Kept: a timer that could not be started is not deleted; the cell holds it until it is used again.
  const TStateWord dwNext = StateWord(bStarted ? kActive : kUnstarted, nArming);
  // When the word has changed, a signal has ended this arming already and has left the timer to us.
  if (!puCell->dwState.compare_exchange_strong(dwState, dwNext)) Release(*puCell);
  return bStarted ? 1 : Fail(kSet, kSetTime, nAryIdx, puArray->byCount);
}

int Timer_Del(const std::uint16_t *pwAryNo, std::uint32_t nAryIdx) {
  TTimerArray *puArray = FindArray(pwAryNo);
  if (puArray == nullptr) return 0;
  TTimerCell *puCell = puArray->Find(nAryIdx);
  if (puCell == nullptr) return Fail(kDel, kOutOfRange, nAryIdx, puArray->byCount);

  TStateWord dwState = puCell->dwState;
  timer_t hTimer{};
  do {
    if (!IsActive(dwState)) return 1;
    hTimer = puCell->hTimer;
  } while (!puCell->dwState.compare_exchange_weak(dwState, Ended(dwState)));
  if ((dwState & kStarting) != 0 || timer_delete(hTimer) == 0) return 1;

  TStateWord dwEnded = Ended(dwState);
  puCell->dwState.compare_exchange_strong(dwEnded, dwState);  // it still has its timer
  return Fail(kDel, kTimerCall, nAryIdx, puArray->byCount);
}

int Timer_IsActive(const std::uint16_t *pwAryNo, std::uint32_t nAryIdx) {
  TTimerArray *puArray = FindArray(pwAryNo);
  const TTimerCell *puCell = puArray != nullptr ? puArray->Find(nAryIdx) : nullptr;
  return puCell != nullptr && IsActive(puCell->dwState) ? 1 : 0;
}

void Timer_DelAll(const std::uint16_t *pwAryNo) {
  if (TTimerArray *puArray = FindArray(pwAryNo)) ReleaseAll(*puArray);
}

void Timer_DestroyAry(const std::uint16_t *pwAryNo) {
  if (*pwAryNo >= kMaxArrays) return;
  // The entry is removed first, so that a signal that interrupts the rest finds no array.
  TTimerArray *puArray = g_apArray[*pwAryNo].exchange(nullptr, std::memory_order_acq_rel);
  if (puArray == nullptr) return;
  ReleaseAll(*puArray);
  std::free(puArray);
}

void Timer_OnSignal(int /*nSignal*/, siginfo_t *pInfo, void * /*pContext*/) {
  const PreservedErrno preserved;
  const TSignalValue value = TSignalValue::Decode(pInfo->si_value.sival_int);
  TTimerArray *puArray = g_apArray[value.nAryNo].load(std::memory_order_acquire);
  if (puArray == nullptr) return;
  // Any process that may signal us can queue any value: the index is as foreign as the rest of it.
  TTimerCell *puCell = puArray->Find(value.nAryIdx);
  if (puCell == nullptr) return;

  TStateWord dwState = puCell->dwState;
  TStateWord dwNext = 0;
  timer_t hTimer{};
  TTimerFunc pfnCallback = nullptr;
  bool bCurrent = false;
  do {
    if (IsEnded(dwState)) return;  // and its timer is deleted
    hTimer = puCell->hTimer;
    pfnCallback = puCell->pfnCallback;
    bCurrent = IsCurrent(dwState, value.nGeneration);
    // Kept: a signal of an earlier arming disarms the cell, which has been armed again since.
    const bool bStays = bCurrent && puArray->bOneShot == 0;
    dwNext = bStays ? dwState : Ended(dwState);
  } while (!puCell->dwState.compare_exchange_weak(dwState, dwNext));

  if (dwNext != dwState && (dwState & kStarting) == 0) timer_delete(hTimer);
  if (bCurrent && pfnCallback != nullptr) pfnCallback(value.nAryIdx);
}
