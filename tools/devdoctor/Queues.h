// SPDX-License-Identifier: MIT
// Message queues and timers.
#pragma once

#include <sys/types.h>

#include "tools/devdoctor/Report.h"

namespace devdoctor {

/// Finds message queues whose users are dead and in which messages still wait.
void CheckQueues(Report &report);

/// Tells about one process: its timers, and the message queues that it used last.
void DescribeProcess(Report &report, pid_t pid);

}  // namespace devdoctor
