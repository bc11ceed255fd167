// SPDX-License-Identifier: MIT
// How long to wait between two looks into the rings.
#pragma once

#include <algorithm>
#include <cstddef>

namespace devlog {

/// There is no signal for a write to a ring, so the rings are polled: 100 times a second while nothing
/// comes, which is often enough for the first 20 ms of 50,000 records a second to fit into the log ring, and the more
/// often the faster it fills.
class Pace {
 public:
  static constexpr int kIdleMs = 10;
  static constexpr int kFastMs = 1;

  /// Looks at the fuller of the rings decide.
  /// records  found by the last look
  /// room     of the ring that they were found in
  void Saw(std::size_t records, std::size_t room) { filled_ = std::max(filled_, records * kParts / room); }

  int NextMs() {
    if (filled_ >= kMuch) {
      ms_ = std::max(ms_ / 2, kFastMs);
    } else if (filled_ < kLittle) {
      ms_ = std::min(ms_ + 1, kIdleMs);
    }
    filled_ = 0;
    return ms_;
  }

 private:
  static constexpr std::size_t kParts = 64;
  static constexpr std::size_t kMuch = 8;
  static constexpr std::size_t kLittle = 2;

  int ms_ = kIdleMs;
  std::size_t filled_ = 0;  // of kParts of a ring
};

}  // namespace devlog
