// SPDX-License-Identifier: MIT
// Reads one ring of the log channel: attaches it without creating anything, and copies it under its lock.
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
  Take,  ///< they are removed from the ring
};

enum class Found : std::uint8_t {
  Attached,
  Missing,   ///< there is none, or its creator has not finished making it
  Unusable,  ///< there is one; the user has been told why it cannot be used
};

/// The state of a ring at one time.
struct Figures {
  std::uint32_t capacity;  ///< cells
  std::uint32_t used;      ///< cells
  unsigned sequence;       ///< number of the next record
  std::uint32_t attached;  ///< attachments of other processes
};

/// New records of a ring.
struct News {
  std::span<const Cell> cells{};  ///< oldest first; valid until the next read
  /// Not 0: since the last read the ring was written once round or more often. At least this many records came; the
  /// exact number is not known.
  std::uint32_t overrun = 0;
};

/// The first words of a slot. They differ after the ring was written once round.
struct Mark {
  std::uint32_t words[3];
  bool operator==(const Mark &) const = default;
};

/// A place between two records of a ring, and marks that later show how many records came after it. All zeros: the
/// start of a new ring.
struct Position {
  std::uint32_t index;  ///< slot of the next record
  Mark before;          ///< the slot before it, which is overwritten last
  Mark last;            ///< the ring's last slot: after a ring was emptied, writing starts at the first slot
};

/// Distinguishes a ring from a later one with the same key.
struct Identity {
  std::int32_t id;
  std::uint32_t made;  ///< seconds
  bool operator==(const Identity &) const = default;
};

class LogRing {
 public:
  /// room  for the copies: as many cells as the ring has
  LogRing(Ring ring, std::span<Cell> room);
  ~LogRing() { Detach(); }
  LogRing(const LogRing &) = delete;
  LogRing &operator=(const LogRing &) = delete;

  Ring Which() const { return ring_; }

  /// Finds the ring and attaches it. A ring that cannot be used is reported once, and then counts as missing until
  /// there is another one. Creates nothing, with one exception: for Access::Take it creates the ring's semaphore when
  /// the last program has removed it, as every program does that uses a ring.
  Found Attach(Access access);
  bool IsAttached() const { return que_.header != nullptr; }
  void Detach();
  Identity Id() const { return identity_; }

  /// The next read starts here.
  void GoOnFrom(const Position &position);
  /// Where the next read starts; false before the first Pass().
  bool GetPosition(Position &position) const;

  /// Tells, without the lock, whether CopyNew() would find something.
  bool HasNews() const;

  /// Copies the records after the position, under the ring's lock. The next call copies them again, unless Pass() moved
  /// the position.
  /// When the lock cannot be taken within a second, it reads without the lock and tells the user.
  /// Returns  false with Access::Take when the lock cannot be taken: then nothing was copied.
  bool CopyNew(News &news);

  /// Moves the position past the first `count` cells of the last copy, and with Access::Take removes them and all
  /// before them from the ring.
  /// Returns  false when they could not be removed.
  bool Pass(std::size_t count);

  /// At the time of the last CopyNew(); the number of attachments is that of now.
  Figures Measure() const;

  /// True when the ring was removed from the system: only processes that still have it attached can write to it.
  bool IsRemoved() const;

 private:
  static constexpr int kNone = -2;  // -1 is a ring without read permission

  Found AttachTo(int id, Access access);
  bool CheckShape(std::size_t segmentBytes);
  bool TakeLock();
  void SayLocked(int error);
  void CopyRange(std::uint32_t writeIndex, std::uint32_t count);
  std::uint32_t Last() const { return static_cast<std::uint32_t>(que_.nSlotCount) - 1; }
  std::uint32_t SlotBefore(std::uint32_t index) const { return index == 0 ? Last() : index - 1; }
  bool IsOverrun() const;
  bool TakeUpToPosition();
  Mark MarkOf(std::uint32_t slot) const;
  const std::uint8_t *SlotAt(std::uint32_t index) const { return que_.cells + std::size_t{index} * sizeof(Cell); }

  Ring ring_;
  std::span<Cell> room_;
  Access access_ = Access::Look;
  TShmQueue que_{};
  Identity identity_{};
  int refused_ = kNone;  // the segment that cannot be used

  bool hasPosition_ = false;
  Position position_{};
  std::span<const Cell> copied_{};  // by the last CopyNew() ...
  Position end_{};                  // ... and the position after them
  bool isUsable_ = true;            // the ring's indices are valid
  std::uint32_t used_ = 0;
  unsigned sequence_ = 0;
  bool saidLocked_ = false;
  bool saidDamaged_ = false;
};

}  // namespace devlog
