// SPDX-License-Identifier: MIT
// Seeds of randomised tests: new at every run, printed when a test fails, replayable.
#pragma once

#include <cstdint>

namespace devsupport::test {

/// The value of DEVSUPPORT_TEST_SEED when it is set, otherwise a fresh one.
/// Use with SCOPED_TRACE(SeedHint(seed)) so that a failure says how to run the same script again.
std::uint64_t TestSeed();

/// "DEVSUPPORT_TEST_SEED=<seed>", for SCOPED_TRACE.
const char *SeedHint(std::uint64_t seed);

}  // namespace devsupport::test
