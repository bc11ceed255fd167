// SPDX-License-Identifier: MIT
// Counts over a whole suite, which is many processes: faults injected, processes killed.
#pragma once

namespace devsupport::test {

/// Adds a line with the event to the file that the environment variable DEVSUPPORT_TEST_TALLY names; does nothing
/// without one. No fault point meets its system calls, and errno stays as it is.
void Tally(const char *event);

}  // namespace devsupport::test
