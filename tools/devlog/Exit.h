// SPDX-License-Identifier: MIT
// Exit status of devlog, and its messages to the user.
#pragma once

#include <csignal>

namespace devlog {

enum Exit : int {
  kShown = 0,     ///< what was asked for is done
  kNoRing = 1,    ///< there is no ring to show
  kUsage = 2,     ///< the command line cannot be understood
  kOutput = 4,    ///< the output could not be written
  kUnusable = 5,  ///< a ring is there and cannot be used
};

/// The signals with which a person or a service manager ends devlog. Records that were taken out of a ring are
/// written first.
inline constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

/// One line for the user on standard error, with the program's name in front.
__attribute__((format(printf, 1, 2))) void Say(const char *format, ...);

}  // namespace devlog
