// SPDX-License-Identifier: MIT
// Prints changes of the store as they happen.
#pragma once

#include "tools/devconf/Options.h"

namespace devconf {

/// Opens the store and prints what changes in it, until a signal ends it. Returns the exit status.
int Watch(const Options &options);

}  // namespace devconf
