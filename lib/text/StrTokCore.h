// SPDX-License-Identifier: MIT
// What the tokenizer's sources share: the position rules, the spans that may be read, and the copies.
#pragma once

#include <devsupport/text/StrTok.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace devsupport {

// ---- Positions ------------------------------------------------------------------------------------------------

inline void SetPosFound(TStrTok &uTok, const char *pFound, std::int32_t nLen) {
  uTok.pTok = uTok.pCur;
  uTok.pTokEnd = pFound;
  uTok.pCur = pFound + nLen;
}

inline void SetPosLen(TStrTok &uTok, std::int32_t nLen) {
  uTok.pTok = uTok.pCur;
  uTok.pCur += nLen;
  uTok.pTokEnd = uTok.pCur;
}

inline void SetPosToEnd(TStrTok &uTok) {
  uTok.pTok = uTok.pCur;
  uTok.pCur = uTok.pSrcEnd;
  uTok.pTokEnd = uTok.pSrcEnd;
}

inline void SetPosEmpty(TStrTok &uTok) {
  uTok.pTokEnd = uTok.pTok;
  uTok.pCur = nullptr;
}

/// What every failed search and match answers.
inline std::int32_t Fail(TStrTok &uTok, std::uint32_t bEmptyOnFail) {
  if (bEmptyOnFail != 0) SetPosEmpty(uTok);
  return 0;
}

/// Remembers what the last successful search or match consumed.
inline void NoteDelimiter(TStrTok &uTok, std::int32_t nLen) {
  uTok.nPrevDelimLen = uTok.nDelimLen;
  uTok.nDelimLen = nLen;
}

/// Negative when the cursor lies beyond the end: a scan by a set can put it there (see StrTokScan.cpp).
inline std::ptrdiff_t CharsLeft(const TStrTok &uTok) { return uTok.pSrcEnd - uTok.pCur; }

/// The rest of the source, unless it is empty.
inline std::int32_t Match2End(TStrTok &uTok) {
  if (uTok.pCur == nullptr) return 0;
  if (uTok.pCur == uTok.pSrcEnd) return Fail(uTok, 1);
  SetPosToEnd(uTok);
  return 1;
}

inline std::int32_t Match2EndCanEmpty(TStrTok &uTok) {
  if (uTok.pCur == nullptr) return 0;
  // The end of the token decides, not the cursor: after a delimiter that ends the source the cursor is at the end
  // already, and one more field, an empty one, is due.
  if (uTok.pTokEnd == uTok.pSrcEnd) return Fail(uTok, 1);
  SetPosToEnd(uTok);
  return 1;
}

/// The last field of a list, in which no delimiter is left.
inline std::int32_t LastField(TStrTok &uTok, bool bCanEmpty) {
  return bCanEmpty ? Match2EndCanEmpty(uTok) : Match2End(uTok);
}

// ---- Spans ----------------------------------------------------------------------------------------------------

/// A piece of the source that may be read; empty when pBegin == pEnd, wherever that is.
struct Span {
  const char *pBegin;
  const char *pEnd;

  std::ptrdiff_t Length() const { return pEnd - pBegin; }
};

/// Positions are kept as they were computed, even where they lie outside the source; what is read lies inside.
inline Span InsideSource(const TStrTok &uTok, const char *pBegin, const char *pEnd) {
  pBegin = std::max(pBegin, uTok.pSrc);
  return {pBegin, std::max(pBegin, std::min(pEnd, uTok.pSrcEnd))};
}

inline Span TokenSpan(const TStrTok &uTok) { return InsideSource(uTok, uTok.pTok, uTok.pTokEnd); }

// ---- Copies ---------------------------------------------------------------------------------------------------

/// Copies at most nDestSize - 1 characters and terminates them. Returns the position of the NUL.
inline char *__StrCopy(const char *pSrc, char *pDest, std::ptrdiff_t nLen, std::int32_t nDestSize) {
  if (nDestSize < 1) return pDest;
  const std::ptrdiff_t nCopy = std::min<std::ptrdiff_t>(nLen, nDestSize - 1);
  if (nCopy > 0) std::memcpy(pDest, pSrc, static_cast<std::size_t>(nCopy));
  pDest[nCopy] = '\0';
  return pDest + nCopy;
}

constexpr bool IsBlank(char c) { return c == ' ' || c == '\t'; }

/// As __StrCopy, without leading and trailing blanks and tabs when bTrim is set. Returns the length of the copy.
inline std::int32_t __TrimCopy(const char *pSrc, char *pDest, std::ptrdiff_t nLen, std::int32_t nDestSize,
                               std::uint32_t bTrim) {
  if (bTrim != 0) {
    while (nLen > 0 && IsBlank(pSrc[nLen - 1])) --nLen;
    for (; nLen > 0 && IsBlank(*pSrc); --nLen) ++pSrc;
  }
  return static_cast<std::int32_t>(__StrCopy(pSrc, pDest, nLen, nDestSize) - pDest);
}

}  // namespace devsupport
