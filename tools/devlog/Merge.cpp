// SPDX-License-Identifier: MIT
// The messages of both rings in one order.

#include "tools/devlog/Merge.h"

namespace devlog {

namespace {

constexpr DayTime kClockSlack = 60 * 1000;  // a record up to this much later than now is from today

/// A next record up to this much earlier belongs to the same day: the clock was set back, for example at the end of
/// summer time.
constexpr DayTime kSetBack = 2 * 60 * 60 * 1000;

/// The time from one time of day to another. A time shortly before counts as earlier, not as on the next day.
DayTime WayTo(DayTime from, DayTime to) {
  const DayTime way = to - from;
  return way < -kSetBack ? way + kDay : way > kDay - kSetBack ? way - kDay : way;
}

}  // namespace

void Place(std::span<Message> messages, DayTime now) {
  DayTime time = kUnknownTime;  // of the next message
  std::int64_t when = now;
  for (std::size_t index = messages.size(); index-- > 0;) {
    Message &message = messages.data()[index];
    if (message.time != kUnknownTime) {
      if (time == kUnknownTime) {
        when = message.time <= now + kClockSlack ? message.time : message.time - kDay;
      } else {
        when -= WayTo(message.time, time);
      }
      time = message.time;
    }
    message.when = when;
  }
}

std::size_t Merge(std::span<const Message> log, std::span<const Message> event, std::span<const Message *> order) {
  const Message *nextLog = log.data();
  const Message *nextEvent = event.data();
  const Message *const endLog = nextLog + log.size();
  const Message *const endEvent = nextEvent + event.size();
  const Message **end = order.data();
  while (nextLog != endLog || nextEvent != endEvent) {
    const bool takeLog = nextEvent == endEvent || (nextLog != endLog && nextLog->when <= nextEvent->when);
    *end++ = takeLog ? nextLog++ : nextEvent++;
  }
  return static_cast<std::size_t>(end - order.data());
}

}  // namespace devlog
