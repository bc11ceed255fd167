// SPDX-License-Identifier: MIT
#include "tests/support/TestSeed.h"

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

namespace devsupport::test {

std::uint64_t TestSeed() {
  if (const char *given = std::getenv("DEVSUPPORT_TEST_SEED")) return std::strtoull(given, nullptr, 0);
  std::random_device device;
  return static_cast<std::uint64_t>(device()) << 32 | device();
}

const char *SeedHint(std::uint64_t seed) {
  static std::string hint;
  hint = "DEVSUPPORT_TEST_SEED=" + std::to_string(seed);
  return hint.c_str();
}

}  // namespace devsupport::test
