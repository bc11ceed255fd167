// What every fuzz target does under libFuzzer before its first input.

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerInitialize(int *argCount, char ***args);

/// Lets an expectation that fails end the process, so that libFuzzer keeps the input.
extern "C" int LLVMFuzzerInitialize(int * /*argCount*/, char *** /*args*/) {
  testing::GTEST_FLAG(break_on_failure) = true;
  return 0;
}
