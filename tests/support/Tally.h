// SPDX-License-Identifier: MIT
// Counts of a whole suite, over many processes: injected faults and killed processes.
#pragma once

namespace devsupport::test {

/// Adds a line with the event to the file that the environment variable DEVSUPPORT_TEST_TALLY names; does nothing
/// without one. Its system calls cannot be made to fail, and errno is not changed.
void Tally(const char *event);

}  // namespace devsupport::test
