// SPDX-License-Identifier: MIT
// The table's hash: it gives the published values, and the same values as the byte-wise definition at each alignment
// of the key.

#include "lib/container/Lookup3.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string_view>

#include "tests/container/NaiveLookup3.h"
#include "tests/support/TestSeed.h"

namespace {

using devsupport::hashlittle;
using namespace devsupport::test;

constexpr std::string_view kSentence = "Four score and seven years ago";

TEST(Lookup3, GivesThePublishedValues) {
  EXPECT_EQ(hashlittle("", 0, 0), 0xdeadbeefu);
  EXPECT_EQ(hashlittle("", 0, 0xdeadbeef), 0xbd5b7ddeu);
  EXPECT_EQ(hashlittle(kSentence.data(), kSentence.size(), 0), 0x17770551u);
  EXPECT_EQ(hashlittle(kSentence.data(), kSentence.size(), 1), 0xcd628161u);
}

TEST(Lookup3, TheTestsDefinition_GivesThePublishedValues) {
  EXPECT_EQ(NaiveLookup3("", 0, 0), 0xdeadbeefu);
  EXPECT_EQ(NaiveLookup3(kSentence.data(), kSentence.size(), 0), 0x17770551u);
  EXPECT_EQ(NaiveLookup3(kSentence.data(), kSentence.size(), 1), 0xcd628161u);
}

TEST(Lookup3, EveryLengthAtEveryAlignment_HashesLikeTheDefinitionAndReadsNothingElse) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  for (std::size_t nLength = 0; nLength <= 100; ++nLength) {
    for (std::size_t nOffset = 0; nOffset < 8; ++nOffset) {
      // A block of exactly this size, so that the address sanitizer sees every byte read beyond it.
      const auto block = std::make_unique<unsigned char[]>(nOffset + nLength);
      for (std::size_t i = 0; i < nOffset + nLength; ++i) block[i] = static_cast<unsigned char>(random());
      const auto dwInitial = static_cast<std::uint32_t>(random());
      ASSERT_EQ(hashlittle(&block[nOffset], nLength, dwInitial), NaiveLookup3(&block[nOffset], nLength, dwInitial))
          << nLength << " bytes at offset " << nOffset;
    }
  }
}

}  // namespace
