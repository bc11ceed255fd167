// SPDX-License-Identifier: MIT
// Long random scripts for the tokenizer and for a simple one.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>

#include "tests/support/TestSeed.h"
#include "tests/text/StrTokScript.h"

namespace {

using namespace devsupport::test;

constexpr int kSteps = 400'000;

TEST(StrTokModel, RandomScript_AgreesWithTheNaiveTokenizer) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  StrTokScript script([&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); });
  for (int i = 0; i < kSteps; ++i) {
    script.Step(i);
    script.Compare();
    ASSERT_FALSE(HasFailure()) << "step " << i << ": " << script.Last();
  }
}

}  // namespace
