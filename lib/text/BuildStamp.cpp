// SPDX-License-Identifier: MIT
// The moment of a build as a text of fixed width.

#include <devsupport/text/BuildStamp.h>

#include <cstddef>
#include <cstring>

namespace {

constexpr char kTemplate[] = "20070205.093230";
constexpr char kMonths[] = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec";
constexpr std::ptrdiff_t kMonthWidth = 4;

/// 1 to 12 for the three letters that the date begins with; 0 when they are no month.
int MonthNumber(const char *pDate) {
  const char szMonth[] = {pDate[0], pDate[1], pDate[2], '\0'};
  const char *const pFound = std::strstr(kMonths, szMonth);
  return pFound == nullptr ? 0 : static_cast<int>((pFound - kMonths) / kMonthWidth) + 1;
}

void PutTwo(char *pDest, const char *pSrc) { std::memcpy(pDest, pSrc, 2); }

}  // namespace

void GetBuildTimeStr(char *pBuf, char cSeparator, const char *pDate, const char *pTime) {
  std::memcpy(pBuf, kTemplate, sizeof kTemplate);

  const int nMonth = MonthNumber(pDate);
  std::memcpy(pBuf, pDate + 7, 4);
  pBuf[4] = static_cast<char>('0' + nMonth / 10);
  pBuf[5] = static_cast<char>('0' + nMonth % 10);
  PutTwo(pBuf + 6, pDate + 4);
  if (pBuf[6] == ' ') pBuf[6] = '0';

  pBuf[8] = cSeparator;
  PutTwo(pBuf + 9, pTime);
  PutTwo(pBuf + 11, pTime + 3);
  PutTwo(pBuf + 13, pTime + 6);
}
