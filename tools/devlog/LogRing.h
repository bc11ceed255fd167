// SPDX-License-Identifier: MIT
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

/// What came into a ring.
struct News {
  std::span<const Cell> cells{};  ///< oldest first; valid until the next look
  /// The ring was written once round, or more often, since the last look: how often is not known. At least so many
  /// records came; 0 when nothing was overrun.
  std::uint32_t overrun = 0;
};

/// The first words of a slot. They have changed when the ring has been written once round.
struct Mark {
  std::uint32_t words[3];
  bool operator==(const Mark &) const = default;
};

/// A place between two records of a ring, and what tells later how far the ring has moved on from it. All zeros: the
/// beginning of a new ring.
struct Position {
  std::uint32_t index;  ///< slot of the next record
  Mark before;          ///< the slot before it: overwritten last, after all others
  Mark last;            ///< the ring's last slot: a ring that was emptied is written from its first slot on
};

/// Tells a ring from one that was made later under the same key.
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

  /// Looks for the ring and attaches it. One that is of no use is told of once, and is missing from then on, until
  /// another one is there. Creates nothing; but for Access::Take it makes the ring's semaphore when the
  /// last program to leave took it along, as each program does that uses a ring.
  Found Attach(Access access);
  bool IsAttached() const { return que_.header != nullptr; }
  void Detach();
  Identity Id() const { return identity_; }

  /// Looks go on from here.
  void GoOnFrom(const Position &position);
  /// Where looks go on; false before the first Pass().
  bool GetPosition(Position &position) const;

  /// Tells, without the lock, whether CopyNew() would find something.
  bool HasNews() const;

  /// Copies what came into the ring after the position, under the ring's lock. The next look copies it again, unless
  /// Pass() says that it is done with.
  /// When the lock cannot be taken within a second, it reads without the lock and tells the user.
  /// Returns  false when records are to be taken and the lock cannot be taken: then nothing was copied.
  bool CopyNew(News &news);

  /// Moves the position over the first `count` cells of the last copy, and with Access::Take takes them and what was
  /// before them out of the ring.
  /// Returns  false when they were to be taken and could not be.
  bool Pass(std::size_t count);

  /// Of the moment of the last CopyNew(), but for the processes.
  Figures Measure() const;

  /// True when the ring was removed from the system: only processes that still have it attached can write to it.
  bool IsRemoved() const;

 private:
  static constexpr int kNone = -2;  // -1 is a ring that may not be looked at

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
  int refused_ = kNone;  // the segment that is of no use

  bool hasPosition_ = false;
  Position position_{};
  std::span<const Cell> copied_{};  // by the last look ...
  Position end_{};                  // ... and what comes after it
  bool isUsable_ = true;            // the ring's indices are slots
  std::uint32_t used_ = 0;
  unsigned sequence_ = 0;
  bool saidLocked_ = false;
  bool saidDamaged_ = false;
};

}  // namespace devlog
