// SPDX-License-Identifier: MIT
// Decimal text to numbers.

#include <devsupport/detail/text/NumberParsing.h>
#include <devsupport/text/NumberParsing.h>
#include <devsupport/text/StringEdit.h>
#include "lib/text/DeviceLong.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

using devsupport::DeviceLong;
using devsupport::ParseDeviceLong;

/// Where no digits are, the conversion stops at the text's start: that is no number, the empty text included.
bool IsWhole(const char *pText, DeviceLong number) { return number.pStop != pText && *number.pStop == '\0'; }

template <typename Unsigned>
int ParseUnsigned(const char *pText, Unsigned *pResult) {
  *pResult = 0;
  const DeviceLong number = ParseDeviceLong(pText);
  // Negative numbers are beyond the range as well once they are read as unsigned.
  const auto dwValue = static_cast<std::uint32_t>(number.nValue);
  if (!IsWhole(pText, number) || dwValue > std::numeric_limits<Unsigned>::max()) return 0;
  *pResult = static_cast<Unsigned>(dwValue);
  return 1;
}

/// One side of the dot: an empty one is 0 and no failure.
int ParseSide(const char *pText, double *pdResult) {
  std::int32_t nValue = 0;
  const int bOk = *pText == '\0' ? 1 : Str2Int(pText, &nValue);
  *pdResult = nValue;
  return bOk;
}

/// The part before the dot. Only its first 64 characters count.
int ParseIntegerSide(const char *pText, const char *pDot, double *pdResult) {
  constexpr std::ptrdiff_t kMaxSize = 65;
  char szInteger[kMaxSize] = "";
  const std::ptrdiff_t nSize = pDot - pText + 1;
  StrNcpy(szInteger, pText, static_cast<int>(nSize < kMaxSize ? nSize : kMaxSize));
  return ParseSide(szInteger, pdResult);
}

/// The side after the dot. Every character counts as one decimal place, signs and blanks included.
int ParseFractionSide(const char *pText, double *pdResult) {
  const int bOk = ParseSide(pText, pdResult);
  for (std::size_t uPlaces = std::strlen(pText); uPlaces > 0; --uPlaces) *pdResult /= 10.0;
  return bOk;
}

}  // namespace

int Str2Int(const char *pText, std::int32_t *pnResult) {
  const DeviceLong number = ParseDeviceLong(pText);
  *pnResult = number.nValue;  // Kept: on failure too, as much as could be read.
  return IsWhole(pText, number) ? 1 : 0;
}

int Str2Word(const char *pText, std::uint16_t *pwResult) { return ParseUnsigned(pText, pwResult); }

int Str2Byte(const char *pText, std::uint8_t *pbyResult) { return ParseUnsigned(pText, pbyResult); }

int _Str2Double(const char *pText, double *pdResult) {
  *pdResult = 0.0;
  if (pText == nullptr || *pText == '\0') return 0;

  const char *const pDot = std::strchr(pText, '.');
  if (pDot == nullptr) return ParseSide(pText, pdResult);
  if (std::strchr(pDot + 1, '.') != nullptr) return 0;

  double dFraction = 0.0;
  const int bIntegerOk = ParseIntegerSide(pText, pDot, pdResult);
  const int bFractionOk = ParseFractionSide(pDot + 1, &dFraction);
  // Kept: the fraction is added whatever the integer part's sign is, so "-1.5" is -0.5. Programs and stored values
  // count on this arithmetic.
  *pdResult += dFraction;
  return bIntegerOk & bFractionOk;
}

int Str2Double(const char *pText, double *pdResult) { return _Str2Double(pText, pdResult); }

int Str2Float(const char *pText, float *pfResult) {
  double dResult = 0.0;
  const int bOk = _Str2Double(pText, &dResult);
  *pfResult = static_cast<float>(dResult);
  return bOk;
}
