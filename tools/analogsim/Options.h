// SPDX-License-Identifier: MIT
// The command line of analogsim.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/analogsim/Driver.h"

namespace analogsim {

struct Options {
  Behaviour behaviour;
  std::optional<std::filesystem::path> stateFile;
  bool trace = false;
  bool traceBytes = false;           ///< implies trace
  std::vector<std::string> command;  ///< never empty: without one it is the user's shell
};

/// Ends the program before it has begun: after --help and --version with 0, after a mistake with another status.
struct Stop {
  int status;
};

/// Reads the command line; prints help, version and mistakes itself and then throws Stop.
/// mistakeStatus  the exit status for a command line that cannot be understood
Options ReadOptions(int argCount, const char *const *args, int mistakeStatus);

/// The answer to a "--answer" text such as "channel=7,register=9,value=0x1234,result=5".
/// Throws std::runtime_error, saying what is wrong.
Distortion ToDistortion(const std::string &text);

}  // namespace analogsim
