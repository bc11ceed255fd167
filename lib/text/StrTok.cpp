// SPDX-License-Identifier: MIT
// The tokenizer: source, search and match of strings, and the token.

#include <devsupport/detail/text/StrTok.h>
#include <devsupport/text/StrTok.h>
#include "lib/Layout.h"
#include "lib/text/StrTokCore.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

// The records' layout, in bytes.
DEVSUPPORT_DEVICE_RECORD_BYTES(TStrTok, 32);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, bTrim, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, pSrc, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, pSrcEnd, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, pTok, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, pTokEnd, 16);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, pCur, 20);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, nPrevDelimLen, 24);
DEVSUPPORT_DEVICE_FIELD_AT(TStrTok, nDelimLen, 28);

namespace devsupport {

namespace {

/// Length of a text that was given with nLen.
std::int32_t LengthOf(const char *pText, std::int32_t nLen) {
  return nLen < 1 ? static_cast<std::int32_t>(std::strlen(pText)) : nLen;
}

/// Whether the rest of a string, after its first character, follows p. Nothing after the first difference is read.
bool RestFollows(const char *p, const char *pStr) {
  for (std::size_t i = 1; pStr[i] != '\0'; ++i)
    if (p[i] != pStr[i]) return false;
  return true;
}

/// First occurrence of a string that begins at least nLen characters before the end.
/// Kept: nLen bounds the positions only, the comparison covers the whole string; callers that pass a part's length
/// do find the whole.
const char *__FindStr(const char *pStart, const char *pEnd, const char *pStr, std::int32_t nLen) {
  nLen = LengthOf(pStr, nLen);
  if (*pStr == '\0' || nLen > pEnd - pStart) return nullptr;
  const char *const pAttemptsEnd = pEnd - nLen + 1;
  for (const char *p = pStart; p < pAttemptsEnd; ++p) {
    p = static_cast<const char *>(std::memchr(p, *pStr, static_cast<std::size_t>(pAttemptsEnd - p)));
    if (p == nullptr || RestFollows(p, pStr)) return p;
  }
  return nullptr;
}

bool SameBytes(const char *pLeft, const char *pRight, std::ptrdiff_t nLen) {
  for (std::ptrdiff_t i = 0; i < nLen; ++i)
    if (pLeft[i] != pRight[i]) return false;
  return true;
}

constexpr char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// As strncasecmp does in the C locale: a NUL in both ends the comparison.
bool SameNoCase(const char *pLeft, const char *pRight, std::ptrdiff_t nLen) {
  for (std::ptrdiff_t i = 0; i < nLen; ++i) {
    if (ToLower(pLeft[i]) != ToLower(pRight[i])) return false;
    if (pLeft[i] == '\0') break;
  }
  return true;
}

/// Kept: where there is nothing to look for or nothing to look in, a search fails without applying bEmptyOnFail.
bool CanSearch(const TStrTok &uTok, const char *pStr) {
  return uTok.pCur != nullptr && pStr != nullptr && *pStr != '\0';
}

/// One step of every search; changes nothing when it fails.
bool Find(TStrTok &uTok, const char *pStr, std::int32_t nLen) {
  const char *const pFound = __FindStr(uTok.pCur, uTok.pSrcEnd, pStr, nLen);
  if (pFound == nullptr) return false;
  NoteDelimiter(uTok, nLen);
  SetPosFound(uTok, pFound, nLen);
  return true;
}

std::int32_t Match(TStrTok &uTok, const char *pStr, std::int32_t nLen, std::uint32_t bEmptyOnFail,
                   bool (*fnSame)(const char *, const char *, std::ptrdiff_t)) {
  if (!CanSearch(uTok, pStr)) return 0;
  nLen = LengthOf(pStr, nLen);
  if (nLen > CharsLeft(uTok) || !fnSame(uTok.pCur, pStr, nLen)) return Fail(uTok, bEmptyOnFail);
  NoteDelimiter(uTok, nLen);
  SetPosLen(uTok, nLen);
  return 1;
}

void SetSpan(TStrTok &uTok, std::uint32_t bTrim, Span source) {
  uTok = {bTrim, source.pBegin, source.pEnd, source.pBegin, source.pBegin, source.pBegin, 0, 0};
}

/// The token with what stood around it, as far as it lies inside the source.
Span TokenSpanEx(const TStrTok &uTok, std::uint32_t bWithLeadingDelim, std::uint32_t bUpToCursor) {
  const char *pBegin = uTok.pTok;
  if (bWithLeadingDelim != 0) {
    // TStrTok_FindNth makes a token without a delimiter of that length before it.
    pBegin = uTok.nPrevDelimLen < pBegin - uTok.pSrc ? pBegin - uTok.nPrevDelimLen : uTok.pSrc;
  }
  return InsideSource(uTok, pBegin, bUpToCursor != 0 ? uTok.pCur : uTok.pTokEnd);
}

inline std::int32_t CopyToken(const TStrTok &uTok, Span token, char *pBuf, std::int32_t nBufSize,
                              std::int32_t *pnLen) {
  const bool bLive = uTok.pCur != nullptr;
  const std::int32_t nCopied = __TrimCopy(token.pBegin, pBuf, bLive ? token.Length() : 0, nBufSize, uTok.bTrim);
  if (pnLen != nullptr) *pnLen = nCopied;
  return bLive ? 1 : 0;
}

std::int32_t OpenSub(const TStrTok &uTok, TStrTok &uSub, Span token) {
  if (uTok.pCur == nullptr) {
    SetSpan(uSub, uTok.bTrim, {nullptr, nullptr});
    return 0;
  }
  // Kept: an empty token has length 0, and a length below 1 means all up to the NUL.
  if (token.Length() == 0 && token.pBegin < uTok.pSrcEnd)
    token.pEnd += strnlen(token.pBegin, static_cast<std::size_t>(uTok.pSrcEnd - token.pBegin));
  SetSpan(uSub, uTok.bTrim, token);
  return 1;
}

std::int32_t Distance(const char *pFrom, const char *pTo) { return static_cast<std::int32_t>(pTo - pFrom); }

}  // namespace

}  // namespace devsupport

using namespace devsupport;

void _SetPosFound(TStrTok *puTok, const char *pFound, std::int32_t nLen) { SetPosFound(*puTok, pFound, nLen); }

void _SetPosLen(TStrTok *puTok, std::int32_t nLen) { SetPosLen(*puTok, nLen); }

void _SetPosToEnd(TStrTok *puTok) { SetPosToEnd(*puTok); }

void _SetPosEmpty(TStrTok *puTok) { SetPosEmpty(*puTok); }

std::int32_t _Match2End_CanEmpty(TStrTok *puTok) { return Match2EndCanEmpty(*puTok); }

void TStrTok_SetSource(TStrTok *puTok, std::uint32_t bTrim, const char *pSource, std::int32_t nLen) {
  SetSpan(*puTok, bTrim, {pSource, pSource == nullptr ? nullptr : pSource + LengthOf(pSource, nLen)});
}

std::uint32_t TStrTok_SetTrim(TStrTok *puTok, std::uint32_t bTrim) {
  puTok->bTrim = bTrim;
  return bTrim;
}

std::int32_t TStrTok_Find(TStrTok *puTok, const char *pStr, std::int32_t nLen, std::uint32_t bEmptyOnFail) {
  if (!CanSearch(*puTok, pStr)) return 0;
  return Find(*puTok, pStr, LengthOf(pStr, nLen)) ? 1 : Fail(*puTok, bEmptyOnFail);
}

std::int32_t TStrTok_FindNth(TStrTok *puTok, std::int32_t nCount, const char *pStr, std::int32_t nLen,
                             std::uint32_t bEmptyOnFail) {
  if (!CanSearch(*puTok, pStr)) return 0;
  nLen = LengthOf(pStr, nLen);
  const TStrTok uBefore = *puTok;
  std::int32_t nFound = 0;
  while ((nCount < 1 || nFound < nCount) && Find(*puTok, pStr, nLen)) ++nFound;

  if (nFound > 0 && nFound >= nCount) {
    puTok->pTok = uBefore.pCur;
    return nFound;
  }
  puTok->pTok = uBefore.pTok;
  puTok->pTokEnd = uBefore.pTokEnd;
  puTok->pCur = uBefore.pCur;
  Fail(*puTok, bEmptyOnFail);
  // Kept: the occurrences that were found count, although the position was restored.
  return nFound;
}

std::int32_t TStrTok_MatchStr(TStrTok *puTok, const char *pStr, std::int32_t nLen, std::uint32_t bEmptyOnFail) {
  return Match(*puTok, pStr, nLen, bEmptyOnFail, SameBytes);
}

std::int32_t TStrTok_MatchStrNoCase(TStrTok *puTok, const char *pStr, std::int32_t nLen, std::uint32_t bEmptyOnFail) {
  return Match(*puTok, pStr, nLen, bEmptyOnFail, SameNoCase);
}

std::int32_t TStrTok_MatchLen(TStrTok *puTok, std::int32_t nLen) {
  if (puTok->pCur == nullptr) return 0;
  if (nLen < 1) return Match2End(*puTok);
  if (nLen > CharsLeft(*puTok)) {
    // Kept: too few characters are a failure, but they become the token: readers of records whose last field is short
    // take it from there.
    SetPosToEnd(*puTok);
    return 0;
  }
  SetPosLen(*puTok, nLen);
  return 1;
}

std::int32_t TStrTok_Match2End(TStrTok *puTok) { return TStrTok_MatchLen(puTok, 0); }

std::int32_t TStrTok_IsTokenEnd(const TStrTok *puTok) {
  return puTok->pCur == nullptr || puTok->pCur == puTok->pSrcEnd ? 1 : 0;
}

std::int32_t TStrTok_GoDelimit_Str(TStrTok *puTok, const char *pDelimiter, std::uint32_t bCanEmpty,
                                   std::int32_t nLen) {
  while (TStrTok_Find(puTok, pDelimiter, nLen, 0) != 0)
    if (bCanEmpty != 0 || puTok->pTok < puTok->pTokEnd) return 1;
  return LastField(*puTok, bCanEmpty != 0);
}

std::int32_t TStrTok_GetToken(const TStrTok *puTok, char *pBuf, std::int32_t nBufSize, std::int32_t *pnLen) {
  return CopyToken(*puTok, TokenSpan(*puTok), pBuf, nBufSize, pnLen);
}

std::int32_t TStrTok_GetTokenEx(const TStrTok *puTok, char *pBuf, std::int32_t nBufSize,
                                std::uint32_t bWithLeadingDelim, std::uint32_t bUpToCursor, std::int32_t *pnLen) {
  return CopyToken(*puTok, TokenSpanEx(*puTok, bWithLeadingDelim, bUpToCursor), pBuf, nBufSize, pnLen);
}

std::int32_t TStrTok_Token2Tok(const TStrTok *puTok, TStrTok *puSub) {
  return OpenSub(*puTok, *puSub, TokenSpan(*puTok));
}

std::int32_t TStrTok_Token2TokEx(const TStrTok *puTok, TStrTok *puSub, std::uint32_t bWithLeadingDelim,
                                 std::uint32_t bUpToCursor) {
  return OpenSub(*puTok, *puSub, TokenSpanEx(*puTok, bWithLeadingDelim, bUpToCursor));
}

char *TStrTok_GetSource(const TStrTok *puTok, char *pBuf, std::int32_t nBufSize) {
  return __StrCopy(puTok->pSrc, pBuf, TStrTok_GetSourceLen(puTok), nBufSize);
}

std::int32_t TStrTok_TokenIs(const TStrTok *puTok, const char *pStr) {
  const Span token = TokenSpan(*puTok);
  const std::ptrdiff_t nLen = token.Length();
  if (nLen == 0) return 1;
  // Kept: the comparison of the string continues after the token's end. After the string's own NUL nothing is read: a
  // token that goes on there differs from it.
  const auto nComparable = static_cast<std::ptrdiff_t>(strnlen(pStr, static_cast<std::size_t>(nLen))) + 1;
  return nLen <= nComparable && SameBytes(token.pBegin, pStr, nLen) ? 1 : 0;
}

std::int32_t TStrTok_TokenIsNoCase(const TStrTok *puTok, const char *pStr) {
  const Span token = TokenSpan(*puTok);
  return SameNoCase(token.pBegin, pStr, token.Length()) ? 1 : 0;
}

const char *TStrTok_FindInToken(const TStrTok *puTok, const char *pStr, std::int32_t nLen) {
  if (pStr == nullptr) return nullptr;
  return __FindStr(puTok->pTok, puTok->pTokEnd, pStr, nLen);
}

const char *TStrTok_GetSourcePtr(const TStrTok *puTok) { return puTok->pSrc; }
const char *TStrTok_GetSourceEnd(const TStrTok *puTok) { return puTok->pSrcEnd; }
std::int32_t TStrTok_GetSourceLen(const TStrTok *puTok) {
  return puTok->pSrcEnd == nullptr ? 0 : Distance(puTok->pSrc, puTok->pSrcEnd);
}
const char *TStrTok_GetTokenPtr(const TStrTok *puTok) { return puTok->pTok; }
const char *TStrTok_GetTokenEndPtr(const TStrTok *puTok) { return puTok->pTokEnd; }
const char *TStrTok_GetCurPtr(const TStrTok *puTok) { return puTok->pCur; }
std::int32_t TStrTok_GetTokenPos(const TStrTok *puTok) { return Distance(puTok->pSrc, puTok->pTok); }
std::int32_t TStrTok_GetTokenEndPos(const TStrTok *puTok) { return Distance(puTok->pSrc, puTok->pTokEnd); }
std::int32_t TStrTok_GetCurPos(const TStrTok *puTok) { return Distance(puTok->pSrc, puTok->pCur); }
std::int32_t TStrTok_GetTokenLen(const TStrTok *puTok) { return Distance(puTok->pTok, puTok->pTokEnd); }
