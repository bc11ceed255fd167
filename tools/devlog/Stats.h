// SPDX-License-Identifier: MIT
// Shows what the rings are like.
#pragma once

#include "tools/devlog/Options.h"

namespace devlog {

/// Shows one line for each ring: how full it is, what was lost and damaged in what it holds, who uses it.
/// Returns the exit status.
int ShowStats(const Options &options);

}  // namespace devlog
