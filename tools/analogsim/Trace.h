// SPDX-License-Identifier: MIT
// One line of words for each request that the driver answered.
#pragma once

#include <cstdint>
#include <string>

#include "tools/analogsim/Driver.h"

namespace analogsim {

enum class TraceBytes : bool { No, Yes };

/// Describes one request and its answer in one line that ends with a newline:
///
///   analogsim: ANALOG_GET_DIRECT_REG channel 1 register 23 value 0x0 -> 0x30 result 0
///   analogsim: ANALOG_SET_REG_DEBUG debug on register 0 value 0x0 -> 0x0 result 0
///   analogsim: request 0 channel 1 register 2 value 0x0 -> 0x0 result -1 ENOTTY
///
/// A channel or register that the answer changed shows both numbers. With bytes, the 24 bytes of the record
/// as the driver received them stand at the end, in hexadecimal, a group for each word.
std::string TraceLine(std::uint32_t request, const Record &received, const Answer &answer, TraceBytes bytes);

}  // namespace analogsim
