// SPDX-License-Identifier: MIT
// Segments, semaphores, message queues and timers, as the kernel lists them.
#pragma once

#include <sys/types.h>

#include "tools/devdoctor/Report.h"

namespace devdoctor {

/// Finds segments that no process has attached, and semaphores that are taken, whose users are dead; but for those that
/// CheckRings and CheckStore look at.
void CheckOwners(Report &report);

/// Finds message queues whose users are dead and in which messages still wait.
void CheckQueues(Report &report);

/// Tells about one process: its timers, and the message queues that it used last.
void DescribeProcess(Report &report, pid_t pid);

}  // namespace devdoctor
