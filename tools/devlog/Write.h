// SPDX-License-Identifier: MIT
// Writes records, for scripts and for tests by hand.
#pragma once

#include "tools/devlog/Options.h"

namespace devlog {

/// Writes the words of the command line, with blanks between them, as one message; or, for the word "-" alone, each
/// line of standard input as a message. Creates the rings when there are none, as every writer does.
/// Returns the exit status.
int Write(const Options &options);

}  // namespace devlog
