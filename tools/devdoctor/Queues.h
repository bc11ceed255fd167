// SPDX-License-Identifier: MIT
// Segments, semaphores, message queues and timers, as the kernel lists them.
#pragma once

#include <sys/types.h>

#include "tools/devdoctor/Report.h"

namespace devdoctor {

/// Finds segments that no process has attached, and semaphores that are taken, when their users are dead. Leaves out
/// those that CheckRings and CheckStore check.
void CheckOwners(Report &report);

/// Finds message queues with waiting messages whose users are dead.
void CheckQueues(Report &report);

/// Reports on one process: its timers, and the message queues that it used last.
void DescribeProcess(Report &report, pid_t pid);

}  // namespace devdoctor
