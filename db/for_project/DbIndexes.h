// SPDX-License-Identifier: MIT
// How the tables' records are ordered and which secondary keys they have. Records come from a file that other
// programs write, too: nothing here reads beyond the record that it is given.
#pragma once

#include <db.h>

namespace devsupport::store {

// Secondary-key extractors, for DB::associate. Each clears *pResult, points it into the record and returns 0.
int KeyOfStbPb(DB *pIndex, const DBT *pKey, const DBT *pData, DBT *pResult);
int KeyOfStb1Pb(DB *pIndex, const DBT *pKey, const DBT *pData, DBT *pResult);
int KeyOfStbRoute(DB *pIndex, const DBT *pKey, const DBT *pData, DBT *pResult);

// Orders, for DB::set_bt_compare and DB::set_dup_compare.
int CompareTbDm(DB *pTable, const DBT *pA, const DBT *pB);
int CompareStbRouteDuplicates(DB *pIndex, const DBT *pA, const DBT *pB);

}  // namespace devsupport::store
