// SPDX-License-Identifier: MIT
// The rings that the user asked for, each with the records and messages found in it.

#include "tools/devlog/Channel.h"

#include "tools/devlog/Print.h"

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
  news_ = {};
  delivered_ = 0;
  hasLooked_ = HasNews();
  if (!hasLooked_) return true;
  hasLooked_ = ring.CopyNew(news_);
  if (!hasLooked_) return false;
  before_ = assembler;
  messages = room.first(assembler.Assemble(news_.cells, room, news_.overrun));
  return true;
}

void Track::Delivered(const Message &message) {
  if (message.first != nullptr) {
    delivered_ = static_cast<std::size_t>(message.first - news_.cells.data()) + message.records;
  }
}

bool Track::Pass(bool isAll) {
  if (!hasLooked_) return true;
  hasLooked_ = false;
  if (isAll) return ring.Pass(news_.cells.size());
  assembler = before_;
  assembler.Assemble(news_.cells.first(delivered_), room, news_.overrun);
  return ring.Pass(delivered_);
}

void Track::BeginAnew() {
  ring.GoOnFrom({});
  assembler = Assembler(ring.Which());
  assembler.Expect(0);
}

Channel::Channel(const Options &options)
    : access_(options.consume ? Access::Take : Access::Look),
      isFollowing_(options.follow),
      log_(Ring::Log, g_logRoom.cells, g_logRoom.messages, options.log),
      event_(Ring::Event, g_eventRoom.cells, g_eventRoom.messages, options.event),
      cursor_(options.cursor) {}

Found Channel::Attach(Track &track) {
  const Found found = track.ring.Attach(access_);
  if (found == Found::Unusable) status_ = kUnusable;
  return found;
}

int Channel::Open() {
  const bool isLogMissing = log_.isWanted && Attach(log_) == Found::Missing;
  const bool isEventMissing = event_.isWanted && Attach(event_) == Found::Missing;
  SayMissing(isLogMissing, isEventMissing);
  if (log_.ring.IsAttached() || event_.ring.IsAttached()) return kShown;
  if (isFollowing_ && (isLogMissing || isEventMissing)) return kShown;
  return status_ != kShown ? status_ : kNoRing;
}

void Channel::SayMissing(bool isLogMissing, bool isEventMissing) const {
  const char *waiting = isFollowing_ ? "; waiting" : "";
  if (isLogMissing && isEventMissing) {
    Say("there are no rings: no program has opened the log channel since the system started%s", waiting);
  } else if (isLogMissing || isEventMissing) {
    Say("there is no %s ring%s", isLogMissing ? "log" : "event", waiting);
  }
}

bool Channel::RestoreCursor() {
  if (!cursor_.Load()) return false;
  for (Track *track : {&log_, &event_}) {
    const Bookmark *bookmark = cursor_.Find(track->ring.Which());
    if (bookmark == nullptr || !track->ring.IsAttached()) continue;
    if (bookmark->ring == track->ring.Id()) {
      track->ring.GoOnFrom(bookmark->position);
      track->assembler.Expect(bookmark->expected);
    } else {
      track->BeginAnew();  // another ring than before
    }
  }
  return true;
}

bool Channel::SaveCursor() {
  for (Track *track : {&log_, &event_}) {
    Bookmark bookmark{track->ring.Id(), {}, track->assembler.Expected()};
    if (track->ring.IsAttached() && track->ring.GetPosition(bookmark.position)) {
      cursor_.Set(track->ring.Which(), bookmark);
    }
  }
  return cursor_.Save();
}

void Channel::OpenMissing() {
  for (Track *track : {&log_, &event_}) {
    if (!track->isWanted || track->ring.IsAttached()) continue;
    if (Attach(*track) == Found::Attached) track->BeginAnew();  // it was created while we waited
  }
}

void Channel::FindRemoved() {
  for (Track *track : {&log_, &event_}) track->isRemoved = track->ring.IsAttached() && track->ring.IsRemoved();
}

void Channel::DropRemoved() {
  for (Track *track : {&log_, &event_}) {
    if (!track->isRemoved) continue;
    Say("the %s ring was removed; waiting for another one", NameOf(track->ring.Which()).data());
    track->ring.Detach();
    track->isRemoved = false;
  }
}

}  // namespace devlog
