// SPDX-License-Identifier: MIT
// Settings with defaults.

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbParam.h>
#include <devsupport/db/DbRecord.h>
#include <devsupport/text/NumberParsing.h>

#include <cstring>

namespace {

// What a number may take up in the table, terminator included.
constexpr int32_t kNumberBytes = 32;

}  // namespace

int32_t GetDbParamToInt(const char *pName, int32_t nDefault) {
  char szValue[kNumberBytes + 1] = "";  // one more: a text of 32 characters may be stored without a terminator
  int32_t nValue = 0;
  if (BerkDb_Get(g_uDb.tb_parameter, pName, szValue, kNumberBytes) != BERKDB_OK) return nDefault;
  return Str2Int(szValue, &nValue) == 1 ? nValue : nDefault;
}

void GetDbParamToStr(const char *pName, char *pBuf, int32_t nBufBytes, const char *pDefault) {
  if (pBuf == nullptr || nBufBytes < 1) return;
  if (BerkDb_Get(g_uDb.tb_parameter, pName, pBuf, nBufBytes) == BERKDB_OK) return;
  // Kept: a default that fills the buffer has no terminator there.
  std::strncpy(pBuf, pDefault != nullptr ? pDefault : "", static_cast<std::size_t>(nBufBytes));
}
