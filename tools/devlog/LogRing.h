// One ring of the log channel as devlog finds it: attached without making anything, copied under its lock.
#pragma once

#include <devsupport/ipc/MyShareMemory.h>

#include <cstdint>
#include <span>

#include "tools/devlog/Message.h"

namespace devlog {

inline constexpr std::size_t kLogCells = LOGRING_LOG_CELLS;
inline constexpr std::size_t kEventCells = LOGRING_EVT_CELLS;

/// What devlog does with the records.
enum class Access : std::uint8_t {
  Look,  ///< the ring is attached read-only
  Take,  ///< they are taken away
};

enum class Found : std::uint8_t {
  Attached,
  Missing,   ///< there is none, or its creator has not finished making it
  Unusable,  ///< there is one; the user has been told why it is of no use
};

/// What a ring is like at one moment.
struct Figures {
  std::uint32_t capacity;  ///< cells
  std::uint32_t used;      ///< cells
  unsigned sequence;       ///< number of the next record
  std::uint32_t attached;  ///< attachments of other processes
};

class LogRing {
 public:
  /// room  for the copies: as many cells as the ring has
  LogRing(Ring ring, std::span<Cell> room);
  ~LogRing();
  LogRing(const LogRing &) = delete;
  LogRing &operator=(const LogRing &) = delete;

  Ring Which() const { return ring_; }

  /// Looks for the ring and attaches it. Creates nothing; but for Access::Take it makes the ring's semaphore when the
  /// last program to leave took it along, as each program does that uses a ring.
  Found Attach(Access access);
  bool IsAttached() const { return que_.header != nullptr; }

  /// Tells, without the lock, whether CopyNew() would find something.
  bool HasNews() const;

  /// Copies what came into the ring since the last call, under the ring's lock, and with Access::Take takes it away.
  /// A lock that is not to be had within a second is done without, and the user is told; nothing is taken away then.
  /// cells    out  the copies, oldest first; valid until the next call
  /// Returns  false when records were to be taken and could not be.
  bool CopyNew(std::span<const Cell> &cells);

  /// Of the moment of the last CopyNew(), but for the processes.
  Figures Measure() const;

  /// True when somebody has removed the ring from the system: nobody will write to it any more but who has it still.
  bool IsRemoved() const;

 private:
  /// The beginning of the slot before the write index: another one when the ring was written once round.
  struct Mark {
    std::uint32_t words[3];
    bool operator==(const Mark &) const = default;
  };

  bool CheckShape(std::size_t segmentBytes);
  bool TakeLock();
  void SayLocked(int error);
  void CopyRange(std::uint32_t writeIndex, std::uint32_t count);
  std::uint32_t NewAt(std::uint32_t writeIndex) const;
  Mark MarkBefore(std::uint32_t writeIndex) const;
  const std::uint8_t *SlotAt(std::uint32_t index) const { return que_.cells + std::size_t{index} * sizeof(Cell); }

  Ring ring_;
  std::span<Cell> room_;
  Access access_ = Access::Look;
  TShmQueue que_{};

  bool hasSeen_ = false;
  std::uint32_t seenIndex_ = 0;  // the write index of the last look ...
  Mark seenMark_{};              // ... and the slot before it
  std::uint32_t used_ = 0;
  unsigned sequence_ = 0;
  bool saidLocked_ = false;
  bool saidDamaged_ = false;
};

}  // namespace devlog
