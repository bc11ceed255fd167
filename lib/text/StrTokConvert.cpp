// SPDX-License-Identifier: MIT
// The tokenizer's typed values and shorthands.

#include <devsupport/text/NumberParsing.h>
#include <devsupport/text/StrTokConvert.h>
#include "lib/text/StrTokCore.h"

#include <cstdint>

namespace {

/// Kept: at most 15 characters reach the parser. No number of the device is longer, and later characters are ignored.
constexpr std::int32_t kNumberBytes = 16;

template <typename Number>
std::int32_t Convert(const TStrTok &uTok, int (*fnParse)(const char *, Number *), Number *pResult) {
  if (uTok.pCur == nullptr) return 0;
  char szNumber[kNumberBytes];
  const devsupport::Span token = devsupport::TokenSpan(uTok);
  devsupport::__StrCopy(token.pBegin, szNumber, token.Length(), kNumberBytes);
  return fnParse(szNumber, pResult);
}

}  // namespace

std::int32_t TStrTok_Token2Int(const TStrTok *puTok, std::int32_t *pnResult) {
  return Convert(*puTok, Str2Int, pnResult);
}

std::int32_t TStrTok_Token2Word(const TStrTok *puTok, std::uint16_t *pwResult) {
  return Convert(*puTok, Str2Word, pwResult);
}

std::int32_t TStrTok_Token2Byte(const TStrTok *puTok, std::uint8_t *pbyResult) {
  return Convert(*puTok, Str2Byte, pbyResult);
}

std::int32_t TStrTok_Token2Float(const TStrTok *puTok, float *pfResult) {
  return Convert(*puTok, Str2Float, pfResult);
}

std::int32_t TStrTok_Token2Double(const TStrTok *puTok, double *pdResult) {
  return Convert(*puTok, Str2Double, pdResult);
}

std::int32_t TStrTok_Token2Int_Ret(const TStrTok *puTok) {
  std::int32_t nValue = 0;
  return TStrTok_Token2Int(puTok, &nValue) != 0 ? nValue : 0;
}

// In all shorthands the second step is taken whatever the first one answered, hence & and not &&.

std::int32_t TStrTok_FindGetToken(TStrTok *puTok, char *pBuf, std::int32_t nBufSize, const char *pDelimiter,
                                  std::int32_t nLen) {
  const std::int32_t bFound = TStrTok_Find(puTok, pDelimiter, nLen, 1);
  return bFound & TStrTok_GetToken(puTok, pBuf, nBufSize, nullptr);
}

std::int32_t TStrTok_FindToken2Int(TStrTok *puTok, std::int32_t *pnResult, const char *pDelimiter,
                                   std::int32_t nLen) {
  const std::int32_t bFound = TStrTok_Find(puTok, pDelimiter, nLen, 1);
  return bFound & TStrTok_Token2Int(puTok, pnResult);
}

std::int32_t TStrTok_MatchLenGetToken(TStrTok *puTok, char *pBuf, std::int32_t nBufSize, std::int32_t nLen) {
  const std::int32_t bMatched = TStrTok_MatchLen(puTok, nLen);
  return bMatched & TStrTok_GetToken(puTok, pBuf, nBufSize, nullptr);
}

std::int32_t TStrTok_MatchLen2Int(TStrTok *puTok, std::int32_t *pnResult, std::int32_t nLen) {
  const std::int32_t bMatched = TStrTok_MatchLen(puTok, nLen);
  return bMatched & TStrTok_Token2Int(puTok, pnResult);
}

std::int32_t TStrTok_Match2EndGetToken(TStrTok *puTok, char *pBuf, std::int32_t nBufSize) {
  const std::int32_t bMatched = TStrTok_Match2End(puTok);
  return bMatched & TStrTok_GetToken(puTok, pBuf, nBufSize, nullptr);
}

std::int32_t TStrTok_Match2End2Int(TStrTok *puTok, std::int32_t *pnResult) {
  const std::int32_t bMatched = TStrTok_Match2End(puTok);
  return bMatched & TStrTok_Token2Int(puTok, pnResult);
}
