// SPDX-License-Identifier: MIT
// Checks the store's files before they are opened, and the indexes against their tables.
#pragma once

#include <db.h>

#include "db/for_project/StoreSeal.h"

namespace devsupport::store {

/// Checks the pages of the tables' file of a home. Returns 0, ENOMEM, or DB_VERIFY_BAD, which was reported.
int CheckPages(const char *pHome, const char *pFile);

/// Compares the files of a home with their seal, and removes it. Call it before anything is read or written.
/// pFile      in      name of the tables' file; NULL checks nothing
/// state      out     what the comparison found
/// Returns    0, or why the store cannot be opened, which was reported.
int CheckFiles(int nHomeFd, const char *pHome, const char *pFile, SealState &state);

/// Whether an index holds exactly what the rule makes of its table's records. For handles that are not bound yet.
bool IndexAgrees(DB *pPrimary, DB *pIndex, int (*pfnKey)(DB *, const DBT *, const DBT *, DBT *));

/// Removes all entries, so that the index is built when it is bound. False when that is not possible.
bool EmptyIndex(DB *pIndex);

}  // namespace devsupport::store
