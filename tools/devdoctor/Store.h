// SPDX-License-Identifier: MIT
// The configuration store.
#pragma once

#include "tools/devdoctor/Report.h"

namespace devdoctor {

/// Checks the store's home, its file and its shared memory. Takes no lock, changes nothing.
/// home  folder of the store
/// file  of the tables, in the home
void CheckStore(Report &report, const char *home, const char *file);

}  // namespace devdoctor
