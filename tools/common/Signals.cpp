// SPDX-License-Identifier: MIT
// Signals that are blocked while a tool does something that must be finished.

#include "tools/common/Signals.h"

#include <algorithm>

namespace tools {

HeldSignals::HeldSignals(std::span<const int> signals) {
  ::sigemptyset(&held_);
  for (const int signal : signals) ::sigaddset(&held_, signal);
  ::sigprocmask(SIG_BLOCK, &held_, &before_);
}

HeldSignals::~HeldSignals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

bool IsAnyPending(std::span<const int> signals) {
  sigset_t pending;
  if (::sigpending(&pending) != 0) return false;
  return std::any_of(signals.begin(), signals.end(),
                     [&](int signal) { return ::sigismember(&pending, signal) == 1; });
}

}  // namespace tools
