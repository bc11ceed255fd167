// SPDX-License-Identifier: MIT
// The rules of the thirteen tables.

#include "db/for_project/StoreTables.h"

#include "db/for_project/DbIndexes.h"
#include "db/for_project/DbLibrary.h"

namespace devsupport::store {

namespace {

constexpr std::int8_t kPhoneBook = 2;
constexpr std::int8_t kRoutes = 10;

}  // namespace

const TableRule kTableRules[BERKDB_TABLES] = {
    {.pName = "tb_parameter"},
    {.pName = "tb_dm", .pfnCompare = CompareTbDm},
    {.pName = "tb_pb"},
    {.pName = "stb_pb", .dwFlags = kSortedDuplicates, .pfnKey = KeyOfStbPb, .nPrimary = kPhoneBook},
    {.pName = "stb_1_pb", .dwFlags = kDuplicatesAndSorted, .pfnKey = KeyOfStb1Pb, .nPrimary = kPhoneBook},
    {.pName = "tb_speedd"},
    {.pName = "tb_dialp"},
    {.pName = "tb_fkey"},
    {.pName = "tb_line"},
    {.pName = "tb_siptk"},
    {.pName = "tb_route"},
    {.pName = "stb_route",
     .dwFlags = kSortedDuplicates,
     .dwAssociateFlags = kBuildIndex,
     .pfnCompareDuplicates = CompareStbRouteDuplicates,
     .pfnKey = KeyOfStbRoute,
     .nPrimary = kRoutes},
    {.pName = "tb_tone"},
};

int SetUpTable(DB *pDb, const TableRule &rule, int &nCode) {
  if (rule.pfnCompare != nullptr) {
    if (const int nResult = pDb->set_bt_compare(pDb, rule.pfnCompare); nResult != 0) {
      nCode = BERKDB_OPEN_COMPARE;
      return nResult;
    }
  }
  if (rule.dwFlags != 0) {
    if (const int nResult = pDb->set_flags(pDb, rule.dwFlags); nResult != 0) {
      nCode = BERKDB_OPEN_FLAGS;
      return nResult;
    }
  }
  if (rule.pfnCompareDuplicates == nullptr) return 0;
  const int nResult = pDb->set_dup_compare(pDb, rule.pfnCompareDuplicates);
  if (nResult != 0) nCode = BERKDB_OPEN_COMPARE;
  return nResult;
}

}  // namespace devsupport::store
