// SPDX-License-Identifier: MIT
// Seeds of randomised tests: a new one at each run, printed when a test fails, so that the run can be repeated.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

namespace devsupport::test {

/// The value of DEVSUPPORT_TEST_SEED when it is set, otherwise a new one. As long as the object exists, a failure
/// prints how to repeat the run.
class TestSeed {
 public:
  explicit TestSeed(const char *file = __builtin_FILE(), int line = __builtin_LINE());
  operator std::uint64_t() const { return value_; }

 private:
  std::uint64_t value_;
  ::testing::ScopedTrace trace_;
};

}  // namespace devsupport::test
