// SPDX-License-Identifier: MIT
// The command line of cpld turned into one request record for the analog driver. No I/O.
#pragma once

#include <cstdint>

namespace cpld {

/// Request numbers of the analog driver: plain small numbers without direction or size bits.
/// The same number is the ioctl request and the record's first word.
enum class AnalogRequest : std::uint32_t {
  None = 0,
  ANALOG_GET_INDIRECT_REG = 10018,
  ANALOG_GET_DIRECT_REG = 10019,
  ANALOG_SET_INDIRECT_REG = 10020,
  ANALOG_SET_DIRECT_REG = 10021,
  ANALOG_SET_REG_DEBUG = 10037,
};

/// The record that the driver reads and answers in: six 32-bit words in the machine's byte order.
struct TAnalogRegRequest {
  AnalogRequest dwRequest;
  std::int32_t nChannel;  ///< channel number; for the debug switch 0 = on, 1 = off
  std::int32_t nRegister;
  std::int32_t nValue;  ///< in: value to write, 0 when reading; out: the register's content
  std::uint32_t adwReserved[2];
};

/// What a command line asks for.
enum class Action {
  Usage,       ///< wrong number of words: print the usage text, open nothing
  Register,    ///< one register request, answered with channel, register, data and result
  DebugSwitch  ///< the debug switch, answered with "debug on" or "debug off"
};

/// Reads the command line.
/// nArgCount  in      words of the command line, the program's name included
/// apArgs     in      the words; apArgs[nArgCount] is null, as main() has it
/// pRequest   out     the record to send; all zero for Action::Usage
/// Returns    what to do with it.
/// Threads    safe: touches its arguments only.
/// Signals    yes.
Action ParseRequest(int nArgCount, const char *const *apArgs, TAnalogRegRequest *pRequest);

}  // namespace cpld
