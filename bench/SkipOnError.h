// SPDX-License-Identifier: MIT
// For benchmarks that need something that the machine may refuse.
#pragma once

#include <exception>

#include "bench/Row.h"

namespace devsupport::bench {

/// Calls job(state, args...). When it throws, the benchmark is reported as skipped.
template <class Job, class... Args>
Body SkipOnError(Job job, Args... args) {
  return [job, args...](benchmark::State &state) {
    try {
      job(state, args...);
    } catch (const std::exception &error) {
      state.SkipWithError(error.what());
    }
  };
}

}  // namespace devsupport::bench
