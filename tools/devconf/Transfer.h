// Export and import: records as JSON lines.
#pragma once

#include "tools/devconf/Options.h"

namespace devconf {

/// Writes the records of one primary table, or with nullptr of all, on standard output. The store is open.
/// Returns    the exit status.
int Export(const char *tableName);

/// Stores the records of a file. Opens the store itself, after the file has been checked.
/// Returns    the exit status.
int Import(const Options &options);

}  // namespace devconf
