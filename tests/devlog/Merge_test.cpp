// SPDX-License-Identifier: MIT
// Both rings in one order, though records have no date.

#include "tools/devlog/Merge.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/devlog/Cells.h"

namespace {

using namespace devlog;
using devlog_test::At;

std::vector<Message> MessagesAt(Ring ring, const std::vector<DayTime> &times, DayTime now) {
  std::vector<Message> messages;
  for (unsigned number = 0; number < times.size(); ++number) {
    messages.push_back({.ring = ring, .time = times[number], .sequence = number});
  }
  Place(messages, now);
  return messages;
}

/// The order as "L0 E0 L1": the ring and the number of each message.
std::string Order(const std::vector<DayTime> &log, const std::vector<DayTime> &event, DayTime now) {
  const std::vector<Message> logMessages = MessagesAt(Ring::Log, log, now);
  const std::vector<Message> eventMessages = MessagesAt(Ring::Event, event, now);
  std::vector<const Message *> order(log.size() + event.size());
  EXPECT_EQ(Merge(logMessages, eventMessages, order), order.size());
  std::string words;
  for (const Message *message : order) {
    words += (message->ring == Ring::Log ? " L" : " E") + std::to_string(message->sequence);
  }
  return words.empty() ? words : words.substr(1);
}

TEST(Merge, OfNothing_IsNothing) { EXPECT_EQ(Order({}, {}, At(12, 0)), ""); }

TEST(Merge, PutsBothRingsInTheOrderOfTime) {
  EXPECT_EQ(Order({At(10, 0), At(10, 2)}, {At(10, 1), At(10, 3)}, At(12, 0)), "L0 E0 L1 E1");
}

TEST(Merge, OfEqualTimes_TakesTheLogRingFirst) {
  EXPECT_EQ(Order({At(10, 0), At(10, 0)}, {At(10, 0)}, At(12, 0)), "L0 L1 E0");
}

TEST(Merge, KeepsEachRingsOrderWhateverTheClockDid) {
  EXPECT_EQ(Order({At(10, 5), At(10, 1), At(10, 6)}, {}, At(12, 0)), "L0 L1 L2");
}

TEST(Merge, OverMidnight_PutsTheEveningBeforeTheMorning) {
  EXPECT_EQ(Order({At(23, 59), At(0, 1)}, {At(23, 58), At(0, 0, 30)}, At(0, 2)), "E0 L0 E1 L1");
}

TEST(Merge, OfATimeLaterThanNow_IsYesterday) { EXPECT_EQ(Order({At(9, 0)}, {At(23, 0)}, At(10, 0)), "E0 L0"); }

TEST(Merge, OfATimeALittleLaterThanNow_IsToday) {
  EXPECT_EQ(Order({At(9, 59)}, {At(10, 0, 30)}, At(10, 0)), "L0 E0");
}

TEST(Place, CountsDaysBackwards) {
  const std::vector<Message> messages = MessagesAt(Ring::Log, {At(20, 0), At(8, 30), At(20, 0), At(8, 0)}, At(9, 0));
  EXPECT_EQ(messages[3].when, At(8, 0));
  EXPECT_EQ(messages[2].when, At(20, 0) - kDay);
  EXPECT_EQ(messages[1].when, At(8, 30) - kDay);
  EXPECT_EQ(messages[0].when, At(20, 0) - 2 * kDay);
}

TEST(Place, TakesALittleBackwardsForAClockThatWasSetBack) {
  const std::vector<Message> messages = MessagesAt(Ring::Log, {At(2, 59), At(2, 0), At(10, 0)}, At(11, 0));
  EXPECT_EQ(messages[2].when, At(10, 0));
  EXPECT_EQ(messages[1].when, At(2, 0));
  EXPECT_EQ(messages[0].when, At(2, 59));
}

TEST(Place, OfAnUnknownTime_IsThatOfTheMessageAfterIt) {
  const std::vector<Message> messages =
      MessagesAt(Ring::Log, {At(8, 0), kUnknownTime, At(8, 5), kUnknownTime}, At(9, 0));
  EXPECT_EQ(messages[1].when, At(8, 5));
  EXPECT_EQ(messages[3].when, At(9, 0));
}

}  // namespace
