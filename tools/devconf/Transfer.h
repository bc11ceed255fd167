// SPDX-License-Identifier: MIT
// Export, import, and what an import would change.
#pragma once

#include "tools/devconf/ImportFile.h"
#include "tools/devconf/Options.h"

namespace devconf {

// Each returns the exit status.

/// Prints the records of the named table, or of all, as JSON lines. The store must be open.
int Export(const char *table);

/// Checks the file, opens the store, and stores the records of the file: all or none.
int Import(const Options &options);

/// Prints what Import would change. The store must be open.
int Diff(ImportFile &file, const Options &options);

}  // namespace devconf
