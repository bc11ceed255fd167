// SPDX-License-Identifier: MIT
// The messages on the error output when the store cannot be opened.
#pragma once

#include <db.h>

namespace devsupport::store {

/// Reports a failed step of BerkDb_Open (BERKDB_OPEN_...) through the table, or through the environment when the table
/// has no handle. Any other code is an error of the library and is reported as such.
void ReportOpenFailure(DB_ENV *pEnv, DB *pDb, int nCode, int nResult, const char *pTable);

/// Prints one sentence of ours through BerkDb_ErrCall; cut when it is longer than 511 characters.
[[gnu::format(printf, 1, 2)]] void ReportSentence(const char *pFormat, ...);

}  // namespace devsupport::store
