// SPDX-License-Identifier: MIT
// Runs a command beside the simulated driver and takes its trace apart.
#pragma once

#include <string>
#include <vector>

#include "tests/support/Command.h"

namespace analogsim_test {

using Words = std::vector<std::string>;

/// `analogsim OPTIONS -- COMMAND`, ready to run. Under the sanitizers too: there the simulator's preloaded library
/// comes before the sanitizer's own, which is harmless and has to be said.
devsupport::test::Command Simulated(const Words &options, const Words &command);

/// The records that the driver received, from a session with --trace-bytes: each 24 bytes in hexadecimal.
Words ReceivedRecords(const std::string &trace);

}  // namespace analogsim_test
