// SPDX-License-Identifier: MIT
// Checks the store: the indexes against their tables, and the file by the store's own checker.
#pragma once

#include "tools/devconf/Options.h"

namespace devconf {

/// Opens the store, so that it recovers if it must, closes it, and keeps others from opening it while it looks.
/// Returns    the exit status.
int Verify(const Options &options);

}  // namespace devconf
