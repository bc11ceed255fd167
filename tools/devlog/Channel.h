// SPDX-License-Identifier: MIT
// The rings that the user asked for, each with the records and messages that were found in it.
#pragma once

#include <span>

#include "tools/devlog/Cursor.h"
#include "tools/devlog/LogRing.h"
#include "tools/devlog/Message.h"
#include "tools/devlog/Options.h"

namespace devlog {

/// One ring on its way from cells to messages.
struct Track {
  Track(Ring which, std::span<Cell> cells, std::span<Message> roomForMessages, bool isAskedFor)
      : ring(which, cells), assembler(which), room(roomForMessages), isWanted(isAskedFor) {}

  LogRing ring;
  Assembler assembler;
  std::span<Message> room;
  std::span<Message> messages{};  ///< of the last look
  bool isWanted;
  bool isRemoved = false;  ///< found by Channel::FindRemoved()

  bool HasNews() const { return ring.IsAttached() && ring.HasNews(); }
  /// Looks for news. False when records are to be taken and cannot be.
  bool Look();
  /// The message, and all before it in its ring, need not be shown again.
  void Delivered(const Message &message);
  /// Moves on over what was delivered, or over all that was found. False when it was to be taken and could not be.
  bool Pass(bool isAll);
  /// How many records the last look found.
  std::size_t Records() const { return news_.cells.size(); }
  /// The ring is a new one: nothing in it has been seen, and its first record has the number 0.
  void BeginAnew();

 private:
  bool hasLooked_ = false;
  News news_{};
  std::size_t delivered_ = 0;
  Assembler before_ = assembler;  // as it was before the last look
};

/// Both rings. There is one: it lives in static memory, the biggest part of the program.
class Channel {
 public:
  explicit Channel(const Options &options);

  /// Attaches the rings that are asked for, and tells the user about what is missing.
  /// Returns  kShown when there is something to show; else how to end.
  int Open();
  /// Goes on where the cursor's file says. False when there is one that cannot be used; the user has been told.
  bool RestoreCursor();
  /// Writes the cursor's file when the rings' positions have changed.
  bool SaveCursor();

  /// Attaches what was missing, should it be there by now. Says nothing about what is still missing.
  void OpenMissing();
  /// Finds the rings that were removed. What they still hold can be shown before they are dropped.
  void FindRemoved();
  /// Lets go of them, and waits for new ones.
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
