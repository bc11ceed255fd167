// SPDX-License-Identifier: MIT
// The rings that the user asked for, each with the records and messages found in it.
#pragma once

#include <span>

#include "tools/devlog/Cursor.h"
#include "tools/devlog/LogRing.h"
#include "tools/devlog/Message.h"
#include "tools/devlog/Options.h"

namespace devlog {

/// One ring, its new cells and the messages made of them.
struct Track {
  Track(Ring which, std::span<Cell> cells, std::span<Message> roomForMessages, bool isAskedFor)
      : ring(which, cells), assembler(which), room(roomForMessages), isWanted(isAskedFor) {}

  LogRing ring;
  Assembler assembler;
  std::span<Message> room;
  std::span<Message> messages{};  ///< from the last read
  bool isWanted;
  bool isRemoved = false;  ///< found by Channel::FindRemoved()

  bool HasNews() const { return ring.IsAttached() && ring.HasNews(); }
  /// Reads new records. False when they are to be removed from the ring and cannot be.
  bool Look();
  /// This message, and all before it in its ring, must not be shown again.
  void Delivered(const Message &message);
  /// Moves past what was delivered, or past all records. False when they were to be removed and could not be.
  bool Pass(bool isAll);
  /// How many records the last read found.
  std::size_t Records() const { return news_.cells.size(); }
  /// The ring is a new one: all its records are new, and the first one has the number 0.
  void BeginAnew();

 private:
  bool hasLooked_ = false;
  News news_{};
  std::size_t delivered_ = 0;
  Assembler before_ = assembler;  // state before the last read
};

/// Both rings. There is one object, in static memory because it is big.
class Channel {
 public:
  explicit Channel(const Options &options);

  /// Attaches the rings that the user asked for, and tells which are missing.
  /// Returns  kShown when there is something to show; else the exit status.
  int Open();
  /// Continues where the cursor's file says. False when the file cannot be used; the user has been told.
  bool RestoreCursor();
  /// Writes the cursor's file when the rings' positions have changed.
  bool SaveCursor();

  /// Attaches rings that were missing before. Prints nothing about those still missing.
  void OpenMissing();
  /// Finds the rings that were removed. Their last records can be shown before DropRemoved().
  void FindRemoved();
  /// Detaches them, so that OpenMissing() can attach new ones.
  void DropRemoved();

  Track &log() { return log_; }
  Track &event() { return event_; }
  Track &Of(Ring ring) { return ring == Ring::Log ? log_ : event_; }

  /// kUnusable when a ring that is asked for could not be used, else kShown.
  int Status() const { return status_; }

 private:
  Found Attach(Track &track);
  void SayMissing(bool isLogMissing, bool isEventMissing) const;

  Access access_;
  bool isFollowing_;
  Track log_;
  Track event_;
  Cursor cursor_;
  int status_ = kShown;
};

}  // namespace devlog
