// SPDX-License-Identifier: MIT
// Runs the user's command to its end, with its signals where they belong.
#pragma once

#include <signal.h>

#include <string>
#include <vector>

#include "tools/common/Signals.h"

namespace analogsim {

/// The exit statuses that shells and wrappers give for what is not the command's own doing.
namespace status {
constexpr int kOwnFailure = 125;
constexpr int kNotRunnable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalBase = 128;  ///< + the signal's number
}  // namespace status

/// While it lives, the signals that end or interrupt programs wait to be handed on by RunCommand(), and nothing
/// but SIGKILL ends us before our device is taken away. Make it before the first thread: threads inherit it.
class CommandSignals {
 public:
  CommandSignals();

  const sigset_t &Held() const { return held_.Held(); }
  const sigset_t &Before() const { return held_.Before(); }
  const sigset_t &Defaults() const { return defaults_; }

 private:
  sigset_t defaults_{};  ///< signals to be reset for the command: the libraries that we use ignore SIGPIPE
  tools::HeldSignals held_;
};

/// Runs a command, found through PATH, and waits for its end. Signals sent to us are handed on to it; those of the
/// terminal reach it anyway.
/// Returns  its exit status, or 128 + the signal that ended it, or 126 or 127 when it cannot be run (prints why).
int RunCommand(const std::vector<std::string> &words, const std::vector<std::string> &environment,
               const CommandSignals &signals);

}  // namespace analogsim
