// SPDX-License-Identifier: MIT
// Reads a file whole.
#pragma once

#include "tools/devconf/Bytes.h"

namespace devconf {

/// How a file is called in messages: "-" is standard input.
const char *InputName(const char *path);

/// Reads all of a file, "-" for standard input. Complains when that fails.
bool ReadInput(const char *path, Bytes &text);

}  // namespace devconf
