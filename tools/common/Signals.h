// SPDX-License-Identifier: MIT
// Signals that wait while a tool does what must be finished.
#pragma once

#include <signal.h>

#include <span>

namespace tools {

/// While it lives, these signals wait. Threads that are made meanwhile inherit that.
class HeldSignals {
 public:
  explicit HeldSignals(std::span<const int> signals);
  ~HeldSignals();
  HeldSignals(const HeldSignals &) = delete;
  HeldSignals &operator=(const HeldSignals &) = delete;

  const sigset_t &Held() const { return held_; }
  /// What waited already.
  const sigset_t &Before() const { return before_; }

 private:
  sigset_t held_{};
  sigset_t before_{};
};

/// Whether one of these signals waits: time to come to an end.
bool IsAnyPending(std::span<const int> signals);

}  // namespace tools
