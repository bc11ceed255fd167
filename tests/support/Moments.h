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

/// True when a run is to take every moment there is: with DEVSUPPORT_EVERY_MOMENT=1 in the environment.
inline bool TakesEveryMoment() { return std::getenv("DEVSUPPORT_EVERY_MOMENT") != nullptr; }

/// Begins an operation over and over, stops it after so many of its instructions, and lets the test act there: at its
/// end first, then after each instruction in turn. An ordinary run takes some six of these moments, which the seed
/// picks. Returns how many it took.
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
