// SPDX-License-Identifier: MIT
// The counters of executed lines. A process writes them when it returns from main(), and loses them when it ends in
// another way.
#pragma once

#ifdef DEVSUPPORT_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace devsupport::test {

/// Writes the counters now, in a build that has them. For a process that ends without a return from main(). Lines that
/// a killed process has executed are not counted.
inline void KeepCoverage() {
#ifdef DEVSUPPORT_COVERAGE
  __gcov_dump();
#endif
}

}  // namespace devsupport::test
