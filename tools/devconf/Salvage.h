// SPDX-License-Identifier: MIT
// Gets out of a damaged file what can be read.
#pragma once

#include "tools/devconf/Options.h"

namespace devconf {

/// Prints the records that can be read as JSON lines, whatever the file is. The store is not opened.
/// Returns    the exit status: kDamaged when something was damaged, whatever could be printed.
int Salvage(const Options &options);

}  // namespace devconf
