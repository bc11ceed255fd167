// SPDX-License-Identifier: MIT
// The counters of executed lines, which a process writes when it returns from main() and loses when it ends
// otherwise.
#pragma once

#ifdef DEVSUPPORT_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace devsupport::test {

/// Writes the counters now, in a build that has them. For a process that is about to end without a return from main().
/// What a process executed that is killed is not counted.
inline void KeepCoverage() {
#ifdef DEVSUPPORT_COVERAGE
  __gcov_dump();
#endif
}

}  // namespace devsupport::test
