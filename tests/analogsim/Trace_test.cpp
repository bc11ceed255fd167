// SPDX-License-Identifier: MIT
// The line that describes one request.

#include "tools/analogsim/Trace.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

namespace {

using namespace analogsim;

Record Sent(std::uint32_t request, std::int32_t channel, std::int32_t number, std::int32_t value) {
  return {.dwRequest = cpld::AnalogRequest{request},
          .nChannel = channel,
          .nRegister = number,
          .nValue = value,
          .adwReserved = {}};
}

std::string Line(const Record &sent, const Answer &answer) {
  return TraceLine(static_cast<std::uint32_t>(sent.dwRequest), sent, answer, TraceBytes::No);
}

TEST(TraceLine, OfARead_ShowsTheValueInAndOut) {
  const Record sent = Sent(10019, 1, 23, 0);
  Answer answer{.record = sent};
  answer.record.nValue = 0x30;
  EXPECT_EQ(Line(sent, answer),
            "analogsim: ANALOG_GET_DIRECT_REG channel 1 register 23 value 0x0 -> 0x30 result 0\n");
}

TEST(TraceLine, OfEachRequest_HasItsName) {
  EXPECT_TRUE(Line(Sent(10018, 1, 2, 0), {}).starts_with("analogsim: ANALOG_GET_INDIRECT_REG channel 1"));
  EXPECT_TRUE(Line(Sent(10020, 1, 2, 0), {}).starts_with("analogsim: ANALOG_SET_INDIRECT_REG channel 1"));
  EXPECT_TRUE(Line(Sent(10021, 1, 2, 0), {}).starts_with("analogsim: ANALOG_SET_DIRECT_REG channel 1"));
}

TEST(TraceLine, OfTheDebugSwitch_SaysOnForThe0ThatTurnsItOn) {
  const Record on = Sent(10037, 0, 0, 0);
  const Record off = Sent(10037, 1, 0, 0);
  EXPECT_EQ(Line(on, {.record = on}),
            "analogsim: ANALOG_SET_REG_DEBUG debug on register 0 value 0x0 -> 0x0 result 0\n");
  EXPECT_EQ(Line(off, {.record = off}),
            "analogsim: ANALOG_SET_REG_DEBUG debug off register 0 value 0x0 -> 0x0 result 0\n");
}

TEST(TraceLine, OfAnUnknownRequest_ShowsItsNumberAndTheError) {
  const Record sent = Sent(0, 1, 2, 0);
  EXPECT_EQ(Line(sent, {.record = sent, .result = -1, .error = ENOTTY}),
            "analogsim: request 0 channel 1 register 2 value 0x0 -> 0x0 result -1 ENOTTY\n");
}

TEST(TraceLine, OfAnErrorWithoutAName_ShowsItsNumber) {
  const Record sent = Sent(10019, 1, 2, 0);
  EXPECT_TRUE(Line(sent, {.record = sent, .result = -1, .error = 4000}).ends_with("result -1 errno 4000\n"));
}

TEST(TraceLine, OfAChangedChannelAndRegister_ShowsBothNumbers) {
  const Record sent = Sent(10021, 1, 2, -1);
  const Answer answer{.record = Sent(10021, 7, -9, -2), .result = 5};
  EXPECT_EQ(Line(sent, answer),
            "analogsim: ANALOG_SET_DIRECT_REG channel 1 -> 7 register 2 -> -9 value 0xffffffff -> 0xfffffffe "
            "result 5\n");
}

TEST(TraceLine, WithBytes_EndsWithTheRecordAsItWasReceived) {
  const Record sent = Sent(10021, 1, 23, 0x12345678);
  const Answer answer{.record = Sent(0, 0, 0, 0)};
  const std::string line = TraceLine(10021, sent, answer, TraceBytes::Yes);
  EXPECT_TRUE(line.ends_with(" result 0 bytes 25270000 01000000 17000000 78563412 00000000 00000000\n")) << line;
}

}  // namespace
