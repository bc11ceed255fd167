// SPDX-License-Identifier: MIT
// How long one operation on the store may wait.
#pragma once

#include <ctime>

namespace devsupport::store {

/// The end of an operation's waits, in steady time. The time runs from the first wait on.
class Deadline {
 public:
  static constexpr long kLimitMs = 8000;
  static constexpr long kPauseMs = 10;

  /// Milliseconds that are left.
  long LeftMs();

  /// Sleeps for nMs milliseconds; false when there is no time left for it.
  bool Pause(long nMs = kPauseMs);

 private:
  bool bStarted_ = false;
  timespec start_ = {};
};

}  // namespace devsupport::store
