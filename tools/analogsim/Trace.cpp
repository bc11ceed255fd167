// SPDX-License-Identifier: MIT
// One line of words for each request that the driver answered.

#include "tools/analogsim/Trace.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdio>

#include "tools/analogsim/Numbers.h"

namespace analogsim {

namespace {

using cpld::AnalogRequest;

std::string RequestName(std::uint32_t request) {
  switch (AnalogRequest{request}) {
    case AnalogRequest::ANALOG_GET_DIRECT_REG:
      return "ANALOG_GET_DIRECT_REG";
    case AnalogRequest::ANALOG_SET_DIRECT_REG:
      return "ANALOG_SET_DIRECT_REG";
    case AnalogRequest::ANALOG_GET_INDIRECT_REG:
      return "ANALOG_GET_INDIRECT_REG";
    case AnalogRequest::ANALOG_SET_INDIRECT_REG:
      return "ANALOG_SET_INDIRECT_REG";
    case AnalogRequest::ANALOG_SET_REG_DEBUG:
      return "ANALOG_SET_REG_DEBUG";
    case AnalogRequest::None:
      break;
  }
  return "request " + std::to_string(request);
}

std::string Hex(std::int32_t value) {
  char text[sizeof "0xffffffff"];
  std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(value));
  return text;
}

std::string Changed(std::int32_t before, std::int32_t after) {
  const std::string text = std::to_string(before);
  return before == after ? text : text + " -> " + std::to_string(after);
}

std::string ChannelWords(std::uint32_t request, const Record &received, const Answer &answer) {
  const bool isSwitch = AnalogRequest{request} == AnalogRequest::ANALOG_SET_REG_DEBUG;
  const bool isPlain = received.nChannel == answer.record.nChannel;
  if (isSwitch && isPlain && received.nChannel == 0) return "debug on";
  if (isSwitch && isPlain && received.nChannel == 1) return "debug off";
  return "channel " + Changed(received.nChannel, answer.record.nChannel);
}

std::string ResultWords(const Answer &answer) {
  const std::string result = "result " + std::to_string(answer.result);
  return answer.result < 0 ? result + ' ' + ErrnoName(answer.error) : result;
}

std::string ByteWords(const Record &record) {
  std::string words = " bytes";
  std::size_t offset = 0;
  for (const std::byte byte : std::bit_cast<std::array<std::byte, sizeof record>>(record)) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", std::to_integer<unsigned>(byte));
    if (offset++ % 4 == 0) words += ' ';
    words += digits;
  }
  return words;
}

}  // namespace

std::string TraceLine(std::uint32_t request, const Record &received, const Answer &answer, TraceBytes bytes) {
  std::string line = "analogsim: " + RequestName(request);
  line += ' ' + ChannelWords(request, received, answer);
  line += " register " + Changed(received.nRegister, answer.record.nRegister);
  line += " value " + Hex(received.nValue) + " -> " + Hex(answer.record.nValue);
  line += ' ' + ResultWords(answer);
  if (bytes == TraceBytes::Yes) line += ByteWords(received);
  return line + '\n';
}

}  // namespace analogsim
