// SPDX-License-Identifier: MIT
// The command line of devlog.
#pragma once

#include <cstdint>

#include "tools/devlog/Exit.h"
#include "tools/devlog/Filter.h"
#include "tools/devlog/Names.h"

namespace devlog {

enum class Action : std::uint8_t { Show, Stats, Write, Nothing };
enum class Colours : std::uint8_t { Auto, Always, Never };

struct Options {
  Action action = Action::Show;
  int status = kShown;  ///< with Action::Nothing: the exit status

  bool log = true;    ///< use the log ring
  bool event = true;  ///< use the event ring
  bool json = false;
  Colours colours = Colours::Auto;

  Wanted wanted{};
  Names names{};
  bool isLimited = false;  ///< show at most the last `lines` messages at the start
  std::uint32_t lines = 0;
  bool follow = false;
  bool consume = false;
  bool syslog = false;
  const char *cursor = nullptr;  ///< file that tells where the last run stopped

  int type = 0;            ///< type of the record to write
  char **words = nullptr;  ///< what to write: words up to a null pointer, or "-" for standard input
};

/// Reads the command line. Prints help, version and errors, and then returns Action::Nothing.
/// args  in,out  reordered: options first
Options ReadOptions(int argCount, char **args);

}  // namespace devlog
