// SPDX-License-Identifier: MIT
// A process's log filter out of the configuration store.

#include <devsupport/db/DbParam.h>
#include <devsupport/logmgr/LogFilter.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <devsupport/text/StrTok.h>
#include <devsupport/text/StrTokConvert.h>
#include <devsupport/text/StrTokScan.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

constexpr std::size_t kSearchBytes = 128;
constexpr std::int32_t kListBytes = 256;

constexpr char kLevelKey[] = "dbl";
constexpr char kMaskKey[] = "dbm";
constexpr int kDefaultLevel = 4;
constexpr int kDefaultMask = 7;

}  // namespace

int GetDbLogParam(const char *pName, const char *pKey, int nDefault) {
  char szSearch[kSearchBytes] = "";
  std::snprintf(szSearch, sizeof szSearch, "%s=", pName);
  char szList[kListBytes + 1] = "";  // one more: a text of 256 characters may be stored without a terminator
  GetDbParamToStr(pKey, szList, kListBytes, "");

  TStrTok tok;
  TStrTok_SetSource(&tok, 1, szList, 0);
  // Kept: the first occurrence counts, also at the end of a longer name.
  const bool bFound = TStrTok_Find(&tok, szSearch, 0, 1) != 0 && TStrTok_GoDelimit_AnyChar(&tok, ",;", 1) != 0;
  return bFound ? TStrTok_Token2Int_Ret(&tok) : nDefault;
}

void LogInfo_LoadFilter(const char *pName, int *pnLevel, std::uint32_t *pdwMask) {
  const int nLevel = GetDbLogParam(pName, kLevelKey, kDefaultLevel);
  const auto dwMask = static_cast<std::uint32_t>(GetDbLogParam(pName, kMaskKey, kDefaultMask));
  TLogInfoShm_ChangeFilter(nLevel, dwMask);
  if (pnLevel != nullptr) *pnLevel = nLevel;
  if (pdwMask != nullptr) *pdwMask = dwMask;
}
