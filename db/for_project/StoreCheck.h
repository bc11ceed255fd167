// SPDX-License-Identifier: MIT
// Checks whether the tables' file is whole, when there is no proof that it was closed in order.
#pragma once

#include <db.h>

namespace devsupport::store {

/// Lets Berkeley DB's own checker look at the pages of a file that nobody has open. Prints nothing.
/// pPath      in      path of the file. One that is missing or empty is whole; so is one that cannot be read or is no
///                    database, because opening it says so.
bool IsFileWhole(const char *pPath);

/// Whether an index holds exactly what the rule makes of its table's records. For handles that are not bound yet.
bool IndexAgrees(DB *pPrimary, DB *pIndex, int (*pfnKey)(DB *, const DBT *, const DBT *, DBT *));

/// Removes all entries, so that the index is built when it is bound. False when that is not possible.
bool EmptyIndex(DB *pIndex);

}  // namespace devsupport::store
