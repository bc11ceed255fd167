// SPDX-License-Identifier: MIT
// Shows the rings: once, or on and on.
#pragma once

#include "tools/devlog/Options.h"

namespace devlog {

/// Shows the messages that are there, and with Options::follow those that come. Returns the exit status.
int Show(const Options &options);

}  // namespace devlog
