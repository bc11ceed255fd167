// SPDX-License-Identifier: MIT
// Bounded copy and in-place editing of NUL-terminated texts.

#include <devsupport/text/StringEdit.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr char kCaseBit = 'a' - 'A';

/// Adds nStep to every character of one alphabet.
void ShiftLetters(char *pText, char cFirst, char cLast, int nStep) {
  if (pText == nullptr) return;
  for (char *p = pText; *p != '\0'; ++p)
    if (*p >= cFirst && *p <= cLast) *p = static_cast<char>(*p + nStep);
}

}  // namespace

void StrNcpy(char *pDest, const char *pSrc, std::int32_t nDestSize) {
  if (nDestSize < 1) return;
  if (*pSrc == '\0') {
    *pDest = '\0';  // Kept: one NUL; only a text is padded to the buffer's end.
    return;
  }
  const auto uSize = static_cast<std::size_t>(nDestSize);
  std::strncpy(pDest, pSrc, uSize);
  pDest[uSize - 1] = '\0';
}

void StrDelete(char *pText, std::int32_t nPos, std::int32_t nCount) {
  if (nPos < 0 || nCount < 1) return;
  const auto uPos = static_cast<std::size_t>(nPos);
  const std::size_t uLength = std::strlen(pText);
  if (uPos >= uLength) return;

  const auto uCount = static_cast<std::size_t>(nCount);
  const std::size_t uAfter = uCount < uLength - uPos ? uPos + uCount : uLength;
  std::memmove(pText + uPos, pText + uAfter, uLength - uAfter + 1);
}

void StrCutTail(char *pText, std::int32_t nCount) {
  if (nCount < 1) return;
  const auto uCount = static_cast<std::size_t>(nCount);
  const std::size_t uLength = std::strlen(pText);
  pText[uCount < uLength ? uLength - uCount : 0] = '\0';
}

void StrInsert(char *pText, std::int32_t nPos, const char *pInsert, std::int32_t nBufSize) {
  if (nPos < 0 || nBufSize < 0) return;
  const std::size_t uLength = std::strlen(pText);
  const std::size_t uInsert = std::strlen(pInsert);
  if (static_cast<std::size_t>(nBufSize) <= uLength + uInsert) return;

  const auto uWanted = static_cast<std::size_t>(nPos);
  const std::size_t uPos = uWanted < uLength ? uWanted : uLength;
  std::memmove(pText + uPos + uInsert, pText + uPos, uLength - uPos + 1);
  std::memcpy(pText + uPos, pInsert, uInsert);  // NOLINT(bugprone-not-null-terminated-result): the NUL was moved
}

void StrToUpper(char *pText) { ShiftLetters(pText, 'a', 'z', -kCaseBit); }

void StrToLower(char *pText) { ShiftLetters(pText, 'A', 'Z', kCaseBit); }

int StrIsBlank(const char *pText) { return pText[std::strspn(pText, " \t")] == '\0' ? 1 : 0; }
