// SPDX-License-Identifier: MIT
// Signals that are blocked while a tool does something that must be finished.
#pragma once

#include <signal.h>

#include <span>

namespace tools {

/// While it exists, these signals are blocked. Threads that are made meanwhile inherit that.
class HeldSignals {
 public:
  explicit HeldSignals(std::span<const int> signals);
  ~HeldSignals();
  HeldSignals(const HeldSignals &) = delete;
  HeldSignals &operator=(const HeldSignals &) = delete;

  const sigset_t &Held() const { return held_; }
  /// The signals that were blocked before.
  const sigset_t &Before() const { return before_; }

 private:
  sigset_t held_{};
  sigset_t before_{};
};

/// Whether one of these signals is pending: the program should end.
bool IsAnyPending(std::span<const int> signals);

}  // namespace tools
