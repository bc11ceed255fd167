// SPDX-License-Identifier: MIT
// Runs a command with the simulated driver and reads its trace.
#pragma once

#include <string>
#include <vector>

#include "tests/support/Command.h"

namespace analogsim_test {

using Words = std::vector<std::string>;

/// `analogsim OPTIONS -- COMMAND`, ready to run. It also works under the sanitizers: the simulator's preloaded library
/// is then loaded before the sanitizer's own. That is harmless, but the sanitizer must be told to accept it.
devsupport::test::Command Simulated(const Words &options, const Words &command);

/// The records that the driver received, from a session with --trace-bytes: each 24 bytes in hexadecimal.
Words ReceivedRecords(const std::string &trace);

}  // namespace analogsim_test
