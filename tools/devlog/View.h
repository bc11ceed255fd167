// SPDX-License-Identifier: MIT
// Shows the records of the rings: once, or with --follow.
#pragma once

#include "tools/devlog/Options.h"

namespace devlog {

/// Shows the messages in the rings, and with Options::follow the new ones as they come. Returns the exit status.
int Show(const Options &options);

}  // namespace devlog
