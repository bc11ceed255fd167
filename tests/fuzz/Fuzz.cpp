// SPDX-License-Identifier: MIT
// What every fuzz target does under libFuzzer before its first input.

#include <gtest/gtest.h>

#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int *argCount, char ***args);

namespace {

/// An expectation that fails ends the process in the way that libFuzzer takes for a crash: it keeps the input.
class AbortAtFailure : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult &result) override {
    if (result.failed()) std::abort();
  }
};

}  // namespace

int LLVMFuzzerInitialize(int * /*argCount*/, char *** /*args*/) {
  testing::UnitTest::GetInstance()->listeners().Append(new AbortAtFailure);  // which deletes it
  return 0;
}
