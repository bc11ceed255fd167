// SPDX-License-Identifier: MIT
// For bodies that need what a machine may refuse.
#pragma once

#include <exception>

#include "bench/Row.h"

namespace devsupport::bench {

/// A channel that this machine does not let us make is reported and left out.
template <class Job>
Body SkipOnError(Job job) {
  return [job](benchmark::State &state) {
    try {
      job(state);
    } catch (const std::exception &error) {
      state.SkipWithError(error.what());
    }
  };
}

}  // namespace devsupport::bench
