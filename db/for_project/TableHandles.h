// SPDX-License-Identifier: MIT
// The table handles of this process. They change when the store is rebuilt after the death of a process; a handle
// that a caller copied before still means its table.
#pragma once

#include <db.h>

namespace devsupport::store {

/// Opens the thirteen tables into their slots, binds the indexes, and reports the first failure.
/// bCheckIndexes  in   first compare each index with its table, and rebuild it when they differ
/// nCode          out
/// BERKDB_OPEN_... of a failure; else unchanged
bool OpenTables(DB_ENV *pEnv, const char *pFile, bool bCheckIndexes, int &nCode);

/// Closes all open tables and reports failures through the environment. Returns whether all went well.
bool CloseTables(DB_ENV *pEnv);

/// Clears all slots.
void ForgetTables();

/// The handles in the slots become old ones: their environment is closed. They stay in the slots until others take
/// their place. Their memory stays for good. False when there is no memory to remember them.
bool RetireTables();

/// The handle by which the table of a handle can be used now: for an old one the one in its slot, else itself.
DB *CurrentHandle(DB *pDb);

/// The row of g_auDbTbl that a handle means, today's or an old one; -1 for any other.
int RowOf(const DB *pDb);

/// Whether the handle means the phone book, or one of its two indexes.
bool IsPhoneBook(const DB *pDb);
bool IsPhoneBookIndex(const DB *pDb);

/// Whether the handle belongs to a closed environment.
bool IsRetired(const DB *pDb);

}  // namespace devsupport::store
