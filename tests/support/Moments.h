// SPDX-License-Identifier: MIT
// The moments of an operation: after its first instruction, after its second one, and so on to its end.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>

#include "tests/support/Tally.h"
#include "tests/support/TestSeed.h"
#include "tests/support/Traced.h"

namespace devsupport::test {

/// True when a run must try every moment: with DEVSUPPORT_EVERY_MOMENT=1 in the environment.
inline bool TakesEveryMoment() { return std::getenv("DEVSUPPORT_EVERY_MOMENT") != nullptr; }

/// Runs an operation again and again, stops it after so many of its instructions, and calls the test there: first at its
/// end, then after each instruction in turn. An ordinary run tries about six of these moments, which the seed picks.
/// Returns how many it tried.
inline int AtEachMoment(std::uint64_t seed, const std::function<std::unique_ptr<Traced>()> &begin,
                        const std::function<void(Traced &)> &act) {
  int taken = 0;
  const auto take = [&](unsigned moment) {
    const std::unique_ptr<Traced> process = begin();
    const unsigned instructions = process->Steps(PTRACE_SINGLESTEP, moment);
    act(*process);
    Tally("moment");
    ++taken;
    return instructions;
  };
  const unsigned instructions = take(UINT_MAX);
  const unsigned stride = TakesEveryMoment() ? 1 : instructions / 6 + 1;
  for (unsigned moment = static_cast<unsigned>(seed % stride); moment < instructions; moment += stride) take(moment);
  return taken;
}

}  // namespace devsupport::test
