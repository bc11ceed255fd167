// SPDX-License-Identifier: MIT
// The commands. Each prints its result and its complaints, and returns the exit status.
#pragma once

#include "tools/devconf/Options.h"

namespace devconf {

int RunCommand(const Options &options);

}  // namespace devconf
