// SPDX-License-Identifier: MIT
// Checks a store by its files, without its shared memory.
#pragma once

#include "tools/devdoctor/Report.h"

namespace devdoctor {

inline constexpr char kVerifyAdvice[] =
    "see what 'devconf verify' says; bring back an export, or get out what can be read with devconf";

/// Checks the seal and the reserve, and counts the records when no program has the store open.
/// home    folder of the store
/// file    of the tables, in the home; must exist
/// isOpen  whether a living program has it open
void CheckClosed(Report &report, const char *home, const char *file, bool isOpen);

}  // namespace devdoctor
