// SPDX-License-Identifier: MIT
// The commands. Each prints its result and its complaints, and returns the exit status.
#pragma once

#include "tools/devconf/ImportFile.h"
#include "tools/devconf/Options.h"

namespace devconf {

/// Runs the command of the options.
int RunCommand(const Options &options);

/// Reads lines of text, opens the store and makes their changes: all or none.
int Batch(const Options &options);

/// Prints the records of the named table, or of all, as JSON lines. The store must be open.
int Export(const char *table);

/// Checks the file, opens the store, and stores the records of the file: all or none.
int Import(const Options &options);

/// Prints what Import would change. The store must be open.
int Diff(ImportFile &file, const Options &options);

/// Opens the store and prints its changes as they happen, until a signal ends it.
int Watch(const Options &options);

/// Checks the indexes against their tables, and the file with the store's own checker. Opens the store first, so that
/// it recovers if it must, closes it, and keeps others from opening it during the check.
int Verify(const Options &options);

/// Prints the records of a damaged file that can be read, as JSON lines. The store is not opened. Returns kDamaged when
/// something was damaged, also when all could be printed.
int Salvage(const Options &options);

}  // namespace devconf
