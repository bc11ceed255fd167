// SPDX-License-Identifier: MIT
// How long to wait between two reads of the rings.
#pragma once

#include <algorithm>
#include <cstddef>

namespace devlog {

/// A write to a ring gives no signal, so the rings are polled: 100 times a second while nothing comes, and more often
/// the faster a ring fills. 100 times is enough: at 50,000 records a second the log ring is full after 20 ms.
class Pace {
 public:
  static constexpr int kIdleMs = 10;
  static constexpr int kFastMs = 1;

  /// Called once for each ring; the fuller one decides.
  /// records  found by the last read
  /// room     size of the ring, in cells
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
  std::size_t filled_ = 0;  // in parts of a ring, see kParts
};

}  // namespace devlog
