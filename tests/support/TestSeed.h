// SPDX-License-Identifier: MIT
// Seeds of randomised tests: new at every run, printed when a test fails, replayable.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

namespace devsupport::test {

/// The value of DEVSUPPORT_TEST_SEED when it is set, otherwise a fresh one. While the object exists, a failure says how
/// to run the same script again.
class TestSeed {
 public:
  explicit TestSeed(const char *file = __builtin_FILE(), int line = __builtin_LINE());
  operator std::uint64_t() const { return value_; }

 private:
  std::uint64_t value_;
  ::testing::ScopedTrace trace_;
};

}  // namespace devsupport::test
