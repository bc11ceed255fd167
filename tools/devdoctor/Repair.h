// SPDX-License-Identifier: MIT
// What can be repaired without doing harm, one step at a time, each after a question.
#pragma once

#include <cstddef>

namespace devdoctor {

struct Repair {
  enum class Kind { RemoveUnfinishedSegment, FreeSemaphore };
  Kind kind;
  const char *object;
  int id;
};

class Repairs {
 public:
  void Propose(const Repair &repair);
  /// Shows each step and reads the answer from standard input. Checks again before each step.
  void Offer() const;

 private:
  static constexpr std::size_t kMax = 8;
  Repair steps_[kMax];
  std::size_t count_ = 0;
};

}  // namespace devdoctor
