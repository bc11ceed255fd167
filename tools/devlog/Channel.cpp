// The rings that the user asked for, each with the records and messages that were found in it.

#include "tools/devlog/Channel.h"

namespace devlog {

namespace {

template <std::size_t kCells>
struct Room {
  Cell cells[kCells];
  Message messages[Assembler::MaxMessages(kCells)];
};

Room<kLogCells> g_logRoom;
Room<kEventCells> g_eventRoom;

}  // namespace

bool Track::Look() {
  messages = {};
  if (!ring.IsAttached() || !ring.HasNews()) return true;
  std::span<const Cell> cells;
  if (!ring.CopyNew(cells)) return false;
  messages = room.first(assembler.Assemble(cells, room));
  return true;
}

Channel::Channel(const Options &options)
    : access_(options.consume ? Access::Take : Access::Look),
      log_{.ring{Ring::Log, g_logRoom.cells},
           .assembler = Assembler(Ring::Log),
           .room = g_logRoom.messages,
           .isWanted = options.log},
      event_{.ring{Ring::Event, g_eventRoom.cells},
             .assembler = Assembler(Ring::Event),
             .room = g_eventRoom.messages,
             .isWanted = options.event} {}

Found Channel::Attach(Track &track) {
  const Found found = track.ring.Attach(access_);
  if (found == Found::Unusable) {
    track.isWanted = false;
    status_ = kUnusable;
  }
  return found;
}

int Channel::Open() {
  const bool isLogMissing = log_.isWanted && Attach(log_) == Found::Missing;
  const bool isEventMissing = event_.isWanted && Attach(event_) == Found::Missing;
  if (isLogMissing && isEventMissing) {
    Say("there are no rings: no program has opened the log channel since the system started");
  } else if (isLogMissing) {
    Say("there is no log ring");
  } else if (isEventMissing) {
    Say("there is no event ring");
  }
  if (log_.ring.IsAttached() || event_.ring.IsAttached()) return kShown;
  return status_ != kShown ? status_ : kNoRing;
}

void Channel::OpenMissing() {
  for (Track *track : {&log_, &event_}) {
    if (track->isWanted && !track->ring.IsAttached()) Attach(*track);
  }
}

}  // namespace devlog
