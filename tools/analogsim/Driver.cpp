// SPDX-License-Identifier: MIT
// The simulated analog driver: how it answers one request.

#include "tools/analogsim/Driver.h"

#include <cerrno>

namespace analogsim {

namespace {

// The driver's switch has the opposite sense of what one would expect.
constexpr std::int32_t kDebugOn = 0;
constexpr std::int32_t kDebugOff = 1;

std::int32_t Content(const Registers &registers, Bank Channel::*bank, const Record &record) {
  const auto channel = registers.channels.find(record.nChannel);
  if (channel == registers.channels.end()) return 0;
  const auto found = (channel->second.*bank).find(record.nRegister);
  return found == (channel->second.*bank).end() ? 0 : found->second;
}

Answer SwitchDebug(const Record &record, Registers &registers) {
  if (record.nChannel != kDebugOn && record.nChannel != kDebugOff) return Failed(record, EINVAL);
  registers.debug = record.nChannel == kDebugOn;
  return {.record = record};
}

}  // namespace

Answer Failed(const Record &record, int error) { return {.record = record, .result = -1, .error = error}; }

Answer Driver::Handle(std::uint32_t request, const Record &record, Registers &registers) const {
  if (behaviour_.failure) return Distorted(Failed(record, *behaviour_.failure));
  return Distorted(Serve(request, record, registers));
}

Answer Driver::Serve(std::uint32_t request, const Record &record, Registers &registers) const {
  using enum cpld::AnalogRequest;
  switch (cpld::AnalogRequest{request}) {
    case ANALOG_GET_DIRECT_REG:
      return Get(record, registers, &Channel::direct);
    case ANALOG_SET_DIRECT_REG:
      return Set(record, registers, &Channel::direct);
    case ANALOG_GET_INDIRECT_REG:
      return Get(record, registers, &Channel::indirect);
    case ANALOG_SET_INDIRECT_REG:
      return Set(record, registers, &Channel::indirect);
    case ANALOG_SET_REG_DEBUG:
      return SwitchDebug(record, registers);
    case None:
      break;
  }
  return Failed(record, ENOTTY);
}

Answer Driver::Get(const Record &record, const Registers &registers, Bank Channel::*bank) const {
  if (!Exists(record.nChannel)) return Failed(record, ENXIO);
  Answer answer{.record = record};
  answer.record.nValue = Content(registers, bank, record);
  return answer;
}

Answer Driver::Set(const Record &record, Registers &registers, Bank Channel::*bank) const {
  if (!Exists(record.nChannel)) return Failed(record, ENXIO);
  (registers.channels[record.nChannel].*bank)[record.nRegister] = record.nValue;
  return {.record = record};
}

bool Driver::Exists(std::int32_t channel) const { return channel >= 0 && channel < behaviour_.channels; }

Answer Driver::Distorted(Answer answer) const {
  const Distortion &distortion = behaviour_.distortion;
  answer.record.nChannel = distortion.channel.value_or(answer.record.nChannel);
  answer.record.nRegister = distortion.registerNumber.value_or(answer.record.nRegister);
  answer.record.nValue = distortion.value.value_or(answer.record.nValue);
  if (answer.result >= 0) answer.result = distortion.result.value_or(answer.result);
  return answer;
}

}  // namespace analogsim
