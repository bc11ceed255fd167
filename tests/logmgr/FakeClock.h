// SPDX-License-Identifier: MIT
// A wall clock that a test sets. Its program wraps clock_gettime and links FakeClock.cpp.
#pragma once

#include <cstdint>

namespace devsupport::test {

/// Stops the wall clock at a moment; later calls set another one. Other clocks are not changed.
void StopClockAt(std::int64_t seconds, long ms);
void LetClockGo();

}  // namespace devsupport::test
