// SPDX-License-Identifier: MIT
// Several changes out of lines of text, made together.
#pragma once

#include "tools/devconf/Options.h"

namespace devconf {

/// Reads the lines, opens the store and makes their changes: all or none. Returns the exit status.
int Batch(const Options &options);

}  // namespace devconf
