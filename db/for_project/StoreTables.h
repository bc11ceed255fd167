// SPDX-License-Identifier: MIT
// What each table of the catalogue is: its order, and for an index its table and its key. The library opens the
// tables by it, the configuration shell reads and checks them by it.
#pragma once

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>

#include <cstdint>

namespace devsupport::store {

using Order = int (*)(DB *, const DBT *, const DBT *);
using KeyRule = int (*)(DB *, const DBT *, const DBT *, DBT *);

/// A table of the file. Without a comparison function, keys and duplicates are ordered by their bytes.
struct TableRule {
  const char *pName;
  std::uint32_t dwFlags = 0;  // to be set before opening
  std::uint32_t dwAssociateFlags = 0;
  Order pfnCompare = nullptr;
  Order pfnCompareDuplicates = nullptr;
  KeyRule pfnKey = nullptr;
  std::int8_t nPrimary = -1;  // row of the table that an index belongs to

  bool IsIndex() const { return nPrimary >= 0; }
};

/// In the order of g_auDbTbl.
extern const TableRule kTableRules[BERKDB_TABLES];

/// What has to be set before a table is opened: flags and orders. Returns the library's result.
/// nCode      out     of a step that failed, its code of BerkDb_Open; else unchanged
int SetUpTable(DB *pDb, const TableRule &rule, int &nCode);

}  // namespace devsupport::store
