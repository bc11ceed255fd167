// SPDX-License-Identifier: MIT
#include "tests/support/TestSeed.h"

#include <cstdlib>
#include <random>
#include <string>

namespace devsupport::test {

namespace {

std::uint64_t Value() {
  if (const char *given = std::getenv("DEVSUPPORT_TEST_SEED")) return std::strtoull(given, nullptr, 0);
  std::random_device device;
  return static_cast<std::uint64_t>(device()) << 32 | device();
}

}  // namespace

TestSeed::TestSeed(const char *file, int line)
    : value_(Value()), trace_(file, line, "DEVSUPPORT_TEST_SEED=" + std::to_string(value_)) {}

}  // namespace devsupport::test
