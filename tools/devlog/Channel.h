// The rings that the user asked for, each with the records and messages that were found in it.
#pragma once

#include <span>

#include "tools/devlog/LogRing.h"
#include "tools/devlog/Message.h"
#include "tools/devlog/Options.h"

namespace devlog {

/// One ring on its way from cells to messages.
struct Track {
  LogRing ring;
  Assembler assembler;
  std::span<Message> room;
  std::span<Message> messages{};  ///< of the last look
  bool isWanted;

  /// Looks for news. False when records were to be taken and could not be.
  bool Look();
};

/// Both rings. There is one: it lives in static memory, the biggest part of the program.
class Channel {
 public:
  explicit Channel(const Options &options);

  /// Attaches the rings that are asked for, and tells the user about what is missing.
  /// Returns  kShown when there is something to show; else how to end.
  int Open();
  /// Attaches what was missing, should it be there by now. Says nothing about what is still missing.
  void OpenMissing();

  Track &log() { return log_; }
  Track &event() { return event_; }

  /// kUnusable when a ring that is asked for could not be used, else kShown.
  int Status() const { return status_; }

 private:
  Found Attach(Track &track);

  Access access_;
  Track log_;
  Track event_;
  int status_ = kShown;
};

}  // namespace devlog
