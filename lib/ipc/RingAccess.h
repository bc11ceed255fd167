// SPDX-License-Identifier: MIT
// The shared ring from inside: its lock, its cursors, its slots. For the ring itself and for the log channel, which
// writes its records straight into the slots.
#pragma once

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/ipc/MyShareMemory.h>
#include "lib/ipc/SemaphoreOperation.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace devsupport {

/// Bytes before the user area; the header is at their start, the rest is never written.
inline constexpr std::uint32_t kRingHeadBytes = 256;
/// Bytes of a slot before its payload.
inline constexpr std::uint32_t kSlotLengthBytes = 4;
/// No slot has this number.
inline constexpr std::uint32_t kNoSlot = UINT32_MAX;

/// Takes a semaphore that another process holds; a signal does not end the wait.
bool WaitForSemaphore(std::int32_t nSemId);

/// Takes a semaphore, also when signals interrupt the wait. Returns false with errno when it cannot be taken.
inline bool TakeSemaphore(std::int32_t nSemId) {
  if (OperateSemaphore(nSemId, kTakeSemaphore, kDoNotWait)) [[likely]]
    return true;
  return errno == EAGAIN && WaitForSemaphore(nSemId);
}

/// Holds the ring's semaphore while it lives. What could not be taken is not given back: that would let two
/// processes in at once from then on.
class RingLock {
 public:
  explicit RingLock(std::int32_t nSemId) : RingLock(nSemId, TakeSemaphore(nSemId)) {}
  RingLock(std::int32_t nSemId, bool bHeld) : nSemId_(nSemId), bHeld_(bHeld) {}
  ~RingLock() { Release(); }
  RingLock(const RingLock &) = delete;
  RingLock &operator=(const RingLock &) = delete;

  bool Held() const { return bHeld_; }
  /// Releases the semaphore now: 1, or 0 when it was not held or was removed.
  int Release() {
    if (!bHeld_) return 0;
    bHeld_ = false;
    return OperateSemaphore(nSemId_, kGiveSemaphore) ? 1 : 0;
  }
  /// Keeps the semaphore taken when the guard is destroyed.
  void Keep() { bHeld_ = false; }

 private:
  std::int32_t nSemId_;
  bool bHeld_;
};

// Words of the segment are loaded once into a local and stored whole: what was checked is what is used, even while
// another process overwrites them. The fence keeps the compiler from moving stores past each other; the processor
// needs none, because a process has finished its stores before the kernel lets the next one have the semaphore.
inline std::uint32_t LoadOnce(const std::uint32_t &dwShared) { return __atomic_load_n(&dwShared, __ATOMIC_RELAXED); }
inline void StoreInOrder(std::uint32_t &dwShared, std::uint32_t dwValue) {
  std::atomic_signal_fence(std::memory_order_seq_cst);
  __atomic_store_n(&dwShared, dwValue, __ATOMIC_RELAXED);
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// A slot's length word, which can be at any address.
struct __attribute__((packed)) SlotLength {
  std::uint32_t dwBytes;
};
inline std::uint32_t LoadSlotLength(const std::uint8_t *pSlot) {
  return reinterpret_cast<const volatile SlotLength *>(pSlot)->dwBytes;
}
// NOLINTNEXTLINE(readability-non-const-parameter): it is written through
inline void StoreSlotLength(std::uint8_t *pSlot, std::uint32_t dwBytes) {
  reinterpret_cast<volatile SlotLength *>(pSlot)->dwBytes = dwBytes;
}

enum class RingEnd { Read, Write };

inline std::uint32_t &SharedIndex(const TShmQueue &que, RingEnd end) {
  return end == RingEnd::Read ? que.header->dwReadIdx : que.header->dwWriteIdx;
}
inline std::uint32_t &SharedOffset(const TShmQueue &que, RingEnd end) {
  return end == RingEnd::Read ? que.header->dwReadOffset : que.header->dwWriteOffset;
}

/// Reads an index of the segment. False when it is no slot number: the ring is unusable until it is emptied.
[[nodiscard]] inline bool LoadIndex(const TShmQueue &que, RingEnd end, std::uint32_t *pdwIdx) {
  *pdwIdx = LoadOnce(SharedIndex(que, end));
  return *pdwIdx < static_cast<std::uint32_t>(que.nSlotCount);
}

/// A slot by its number; stepping and addressing never use an offset out of the segment.
inline std::uint8_t *SlotAt(const TShmQueue &que, std::uint32_t dwIdx) {
  return que.cells + std::size_t{dwIdx} * que.dwStride;
}

/// Publishes an index. The store of the index is the step; the offset after it is written because the format has it.
/// No operation reads it, so it does not matter when the process is killed between the two stores.
inline void StoreIndex(const TShmQueue &que, RingEnd end, std::uint32_t dwIdx) {
  StoreInOrder(SharedIndex(que, end), dwIdx);
  StoreInOrder(SharedOffset(que, end), dwIdx * que.dwStride);
}

/// The number of the next slot; after the last one comes slot 0.
///
///     slot   0      1      2    ...   N
///          +------+------+------+   +------+
///          |      |      |      |   |      | --.
///          +------+------+------+   +------+   |
///          ^                                   |
///          `-----------------------------------'
inline std::uint32_t NextIndex(const TShmQueue &que, std::uint32_t dwIdx) {
  return dwIdx + 1 < static_cast<std::uint32_t>(que.nSlotCount) ? dwIdx + 1 : 0;
}

/// The stored cells between two slot numbers.
inline std::int32_t CellsBetween(const TShmQueue &que, std::uint32_t dwReadIdx, std::uint32_t dwWriteIdx) {
  const std::int32_t nCells = static_cast<std::int32_t>(dwWriteIdx - dwReadIdx);
  return nCells >= 0 ? nCells : que.nSlotCount + nCells;
}

/// Empties the ring: both indexes go to slot 0. The caller holds the lock.
void EmptyRing(const TShmQueue &que);

/// The cell that the next push fills; one mechanism for every writer. The caller holds the lock from begin to publish.
///
///     const RingLock lock(que.semid);
///     const RingCell cell = BeginCell(que);
///     ... fill cell.pSlot: the length word (StoreSlotLength), then at most the cell size of payload ...
///     PublishOverwriting(que, cell);
///
/// No process sees the cell until it is published. A writer that dies before that leaves the ring unchanged.
struct RingCell {
  std::uint8_t *pSlot;     ///< the slot to fill, valid whatever the segment holds
  std::uint32_t dwNext;    ///< the next value of the write index
  bool bFull;              ///< publishing must drop the oldest cell first
  bool bLostAll;           ///< the ring was unusable and has been emptied
  std::uint32_t dwOldest;  ///< the read index
};

/// An unusable ring is emptied first, because the slots with cells are not known any more.
inline RingCell BeginCell(const TShmQueue &que) {
  std::uint32_t dwWrite = 0;
  std::uint32_t dwRead = 0;
  const bool bUsable = LoadIndex(que, RingEnd::Write, &dwWrite) && LoadIndex(que, RingEnd::Read, &dwRead);
  if (!bUsable) [[unlikely]] {
    EmptyRing(que);
    dwWrite = dwRead = 0;
  }
  const std::uint32_t dwNext = NextIndex(que, dwWrite);
  return {SlotAt(que, dwWrite), dwNext, dwNext == dwRead, !bUsable, dwRead};
}

/// Publishes a filled cell of a ring that has room.
inline void Publish(const TShmQueue &que, const RingCell &cell) { StoreIndex(que, RingEnd::Write, cell.dwNext); }

/// Publishes a filled cell; a full ring loses its oldest one for it.
/// Returns 1 when nothing was lost, 0 when the oldest cell was dropped or the ring had to be emptied.
inline int PublishOverwriting(const TShmQueue &que, const RingCell &cell) {
  // The oldest cell goes before the newest comes: with the write index ahead, a writer killed between the two steps
  // would leave a full ring looking empty.
  if (cell.bFull) StoreIndex(que, RingEnd::Read, NextIndex(que, cell.dwOldest));
  Publish(que, cell);
  return cell.bFull || cell.bLostAll ? 0 : 1;
}

}  // namespace devsupport
