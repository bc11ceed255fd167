// SPDX-License-Identifier: MIT
// The command line of devdoctor.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "tools/devdoctor/Report.h"

namespace devdoctor {

enum class Action : std::uint8_t { Look, Repair, Nothing };

inline constexpr int kUsage = 3;   ///< the command line cannot be understood
inline constexpr int kOutput = 4;  ///< the report could not be written

struct Options {
  Action action = Action::Look;
  int status = 0;  ///< with Action::Nothing: the exit status
  Format format = Format::Words;
  const char *home = "/config_fs/DB/";
  const char *file = "config.db";
  pid_t pid = 0;  ///< a process to report on; 0: none
};

/// Reads the command line. Prints help, version and errors, and then returns Action::Nothing.
Options ReadOptions(int argCount, char **args);

}  // namespace devdoctor
