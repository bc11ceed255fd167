// SPDX-License-Identifier: MIT
// The command line of cpld turned into one request record for the analog driver.

#include "cpld/Request.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>

namespace cpld {

static_assert(sizeof(TAnalogRegRequest) == 24);
static_assert(offsetof(TAnalogRegRequest, dwRequest) == 0);
static_assert(offsetof(TAnalogRegRequest, nChannel) == 4);
static_assert(offsetof(TAnalogRegRequest, nRegister) == 8);
static_assert(offsetof(TAnalogRegRequest, nValue) == 12);
static_assert(offsetof(TAnalogRegRequest, adwReserved) == 16);

namespace {

/// What the first word of the command line selects.
struct Command {
  AnalogRequest request;
  int nArgCount;  ///< words required, the program's name included
};

constexpr Command kCommands[] = {
    {AnalogRequest::ANALOG_GET_DIRECT_REG, 4},    // 0 ch_id reg
    {AnalogRequest::ANALOG_SET_DIRECT_REG, 5},    // 1 ch_id reg value
    {AnalogRequest::ANALOG_GET_INDIRECT_REG, 4},  // 2 ch_id reg
    {AnalogRequest::ANALOG_SET_INDIRECT_REG, 5},  // 3 ch_id reg value
    {AnalogRequest::ANALOG_SET_REG_DEBUG, 3},     // 4 switch
};

constexpr int kDecimal = 10;
constexpr int kBaseFromPrefix = 0;  // 0x.. is hexadecimal, 0.. octal, anything else decimal

/// strtol of the device, whose long has 32 bits: numbers beyond its range clamp to its limits.
/// A missing word reads as 0.
std::int32_t ToNumber(const char *pText, int nBase) {
  if (pText == nullptr) return 0;
  const long long nWide = std::strtoll(pText, nullptr, nBase);
  return static_cast<std::int32_t>(std::clamp<long long>(nWide, INT32_MIN, INT32_MAX));
}

bool IsSet(AnalogRequest request) {
  return request == AnalogRequest::ANALOG_SET_DIRECT_REG || request == AnalogRequest::ANALOG_SET_INDIRECT_REG;
}

}  // namespace

Action ParseRequest(int nArgCount, const char *const *apArgs, TAnalogRegRequest *pRequest) {
  *pRequest = {};
  if (nArgCount < 3) return Action::Usage;

  // Unsigned, so that a negative command number is as unknown as one that is too large.
  const auto dwCommand = static_cast<std::uint32_t>(ToNumber(apArgs[1], kDecimal));
  if (dwCommand < std::size(kCommands)) {
    if (nArgCount != kCommands[dwCommand].nArgCount) return Action::Usage;
    pRequest->dwRequest = kCommands[dwCommand].request;
  }
  // Kept: an unknown command is no usage error. It goes to the driver as request 0.

  pRequest->nChannel = ToNumber(apArgs[2], kDecimal);
  pRequest->nRegister = ToNumber(apArgs[3], kDecimal);  // null, hence 0, where only two words were given
  if (IsSet(pRequest->dwRequest)) pRequest->nValue = ToNumber(apArgs[4], kBaseFromPrefix);

  if (pRequest->dwRequest != AnalogRequest::ANALOG_SET_REG_DEBUG) return Action::Register;
  // Kept: the driver's switch has the opposite sense of the user's: 0 turns debugging on, 1 off.
  pRequest->nChannel = pRequest->nChannel == 0 ? 1 : 0;
  return Action::DebugSwitch;
}

}  // namespace cpld
