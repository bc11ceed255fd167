// SPDX-License-Identifier: MIT
// Shows the state of the rings.
#pragma once

#include "tools/devlog/Options.h"

namespace devlog {

/// Shows one line for each ring: how full it is, how many records are lost or damaged, how many processes use it.
/// Returns the exit status.
int ShowStats(const Options &options);

}  // namespace devlog
