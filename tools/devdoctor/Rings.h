// SPDX-License-Identifier: MIT
// The two rings of the log channel.
#pragma once

#include "tools/devdoctor/Repair.h"
#include "tools/devdoctor/Report.h"

namespace devdoctor {

/// Checks both rings and their semaphores. Takes no lock and changes nothing.
void CheckRings(Report &report, Repairs &repairs);

}  // namespace devdoctor
