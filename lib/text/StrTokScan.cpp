// SPDX-License-Identifier: MIT
// The tokenizer's scans by sets of characters.

#include <devsupport/detail/text/StrTokScan.h>
#include <devsupport/text/StrTokScan.h>
#include "lib/text/CharPair.h"
#include "lib/text/CharSet.h"
#include "lib/text/StrTokCore.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace devsupport {

namespace {

constexpr std::int32_t kNoLimit = std::numeric_limits<std::int32_t>::max();

/// The set of one scan: a class set used in place, or a copy of it with the extra characters.
class ScanSet {
 public:
  ScanSet(std::uint32_t dwClasses, const char *pExtra) : pSet_(&kClassSets[dwClasses & kAllClasses]) {
    if (pExtra == nullptr || *pExtra == '\0') {
      bNothing_ = pSet_ == &kClassSets[0];
      return;
    }
    uOwn_ = *pSet_;
    for (; *pExtra != '\0'; ++pExtra) uOwn_.Add(*pExtra);
    pSet_ = &uOwn_;
  }
  ScanSet(const ScanSet &) = delete;
  ScanSet &operator=(const ScanSet &) = delete;

  /// True when neither classes nor extra characters were given; extra characters that are ignored count as given.
  bool IsNothing() const { return bNothing_; }
  const CharSet &Get() const { return *pSet_; }

 private:
  const CharSet *pSet_;
  bool bNothing_ = false;
  CharSet uOwn_;
};

/// First character of p .. pEnd whose membership is not bMember; pEnd when there is none.
const char *SkipWhile(const char *p, const char *pEnd, const CharSet &uSet, bool bMember) {
  while (p < pEnd && uSet.Has(*p) == bMember) ++p;
  return p;
}

/// Where a run that begins at p must end: after nRoom characters, or with the text.
const char *RunLimit(const char *p, const char *pEnd, std::int32_t nRoom) {
  return nRoom < pEnd - p ? p + nRoom : pEnd;
}

/// Finds a run of wanted characters; nCount is its length.
/// Kept: the counter continues after runs that were too short, so nCount covers them as well, and the run that makes up
/// nMin is taken. Callers that ask for several characters count on it.
const char *__FindChar_byTbl(const char *p, const char *pEnd, std::int32_t nMin, std::int32_t nMax, bool bWant,
                             const CharSet &uSet, std::int32_t &nCount) {
  if (nMax < nMin) nMax = kNoLimit;
  nCount = 0;
  for (;;) {
    const char *const pRun = SkipWhile(p, pEnd, uSet, !bWant);
    if (pRun >= pEnd) return nullptr;
    // The first character of the run is wanted, so that one is counted before any limit applies.
    const std::int32_t nRoom = std::max(nMax - nCount, 1);
    p = SkipWhile(pRun + 1, RunLimit(pRun, pEnd, nRoom), uSet, bWant);
    nCount += static_cast<std::int32_t>(p - pRun);
    if (nCount >= nMin) return pRun;
  }
}

/// Whether a run of wanted characters begins at p; nCount is its length.
bool __MatchChar_byTbl(const char *p, const char *pEnd, std::int32_t nMin, std::int32_t nMax, bool bWant,
                       const CharSet &uSet, std::int32_t &nCount) {
  if (nMax < nMin) nMax = kNoLimit;
  nCount = 0;
  if (p < pEnd) {
    const char *const pRunEnd = SkipWhile(p, RunLimit(p, pEnd, std::max(nMax, 1)), uSet, bWant);
    nCount = static_cast<std::int32_t>(pRunEnd - p);
  }
  return nCount >= nMin;
}

/// One step of every search; changes nothing when it fails.
bool FindRun(TStrTok &uTok, const CharSet &uSet, bool bWant, std::int32_t nMin, std::int32_t nMax) {
  std::int32_t nCount = 0;
  const char *const pRun = __FindChar_byTbl(uTok.pCur, uTok.pSrcEnd, nMin, nMax, bWant, uSet, nCount);
  if (pRun == nullptr) return false;
  NoteDelimiter(uTok, nCount);
  SetPosFound(uTok, pRun, nCount);
  return true;
}

/// Moves to the next field. Neighbouring delimiters are consumed together unless the empty fields between them count.
/// The set is a CharPair or a CharSet.
template <typename Set>
std::int32_t GoDelimit(TStrTok &uTok, const Set &uSet, bool bCanEmpty) {
  const char *const pEnd = uTok.pSrcEnd;
  for (const char *pField = uTok.pCur;; pField = uTok.pCur) {
    const char *const pFound = uSet.Find(pField, pEnd);
    if (pFound >= pEnd) return LastField(uTok, bCanEmpty);
    uTok.nPrevDelimLen = uTok.nDelimLen;
    const char *pAfter = pFound + 1;
    while (!bCanEmpty && pAfter < pEnd && uSet.Has(*pAfter)) ++pAfter;
    uTok.nDelimLen = static_cast<std::int32_t>(pAfter - pFound);
    uTok.pTok = pField;
    uTok.pTokEnd = pFound;
    uTok.pCur = pAfter;
    if (bCanEmpty || pField < pFound) return 1;
  }
}

/// For unusual delimiters: many, none, or such as no set can hold. Apart from the usual ones, which then need no room
/// for a set.
[[gnu::noinline]] std::int32_t GoDelimitSet(TStrTok &uTok, const char *pDelimiters, bool bCanEmpty) {
  return GoDelimit(uTok, ScanSet(0, pDelimiters).Get(), bCanEmpty);
}

/// Whether delimiters are one or two characters.
bool IsPair(const char *pDelimiters) {
  return pDelimiters != nullptr && pDelimiters[0] != '\0' && (pDelimiters[1] == '\0' || pDelimiters[2] == '\0') &&
         CharSet::CanHold(static_cast<char>(pDelimiters[0] | pDelimiters[1]));
}

}  // namespace

}  // namespace devsupport

using namespace devsupport;

std::int32_t _FindAnyChar(TStrTok *puTok, std::uint32_t bWant, std::uint32_t dwClasses, const char *pExtra,
                          std::int32_t nMin, std::int32_t nMax, std::uint32_t bEmptyOnFail) {
  if (puTok->pCur == nullptr) return 0;
  const ScanSet set(dwClasses, pExtra);
  if (set.IsNothing() || !FindRun(*puTok, set.Get(), bWant != 0, nMin, nMax)) return Fail(*puTok, bEmptyOnFail);
  return 1;
}

std::int32_t _MatchAnyChar(TStrTok *puTok, std::uint32_t bWant, std::uint32_t dwClasses, const char *pExtra,
                           std::int32_t nMin, std::int32_t nMax, std::uint32_t bEmptyOnFail) {
  if (puTok->pCur == nullptr) return 0;
  const ScanSet set(dwClasses, pExtra);
  std::int32_t nCount = 0;
  if (set.IsNothing() || !__MatchChar_byTbl(puTok->pCur, puTok->pSrcEnd, nMin, nMax, bWant != 0, set.Get(), nCount))
    return Fail(*puTok, bEmptyOnFail);
  if (nCount > 0) {
    NoteDelimiter(*puTok, nCount);
  } else {
    // Kept: an empty run consumes nothing, so the delimiter before the token is still the one before it.
    puTok->nDelimLen = 0;
  }
  SetPosLen(*puTok, nCount);
  return 1;
}

std::int32_t TStrTok_FindAnyChar(TStrTok *puTok, std::uint32_t dwClasses, const char *pExtra, std::int32_t nMin,
                                 std::uint32_t bEmptyOnFail, std::int32_t nMax) {
  return _FindAnyChar(puTok, 1, dwClasses, pExtra, nMin, nMax, bEmptyOnFail);
}

std::int32_t TStrTok_FindNotAnyChar(TStrTok *puTok, std::uint32_t dwClasses, const char *pExtra, std::int32_t nMin,
                                    std::uint32_t bEmptyOnFail, std::int32_t nMax) {
  return _FindAnyChar(puTok, 0, dwClasses, pExtra, nMin, nMax, bEmptyOnFail);
}

std::int32_t TStrTok_MatchAnyChar(TStrTok *puTok, std::uint32_t dwClasses, const char *pExtra, std::int32_t nMin,
                                  std::uint32_t bEmptyOnFail, std::int32_t nMax) {
  return _MatchAnyChar(puTok, 1, dwClasses, pExtra, nMin, nMax, bEmptyOnFail);
}

std::int32_t TStrTok_MatchNotAnyChar(TStrTok *puTok, std::uint32_t dwClasses, const char *pExtra, std::int32_t nMin,
                                     std::uint32_t bEmptyOnFail, std::int32_t nMax) {
  return _MatchAnyChar(puTok, 0, dwClasses, pExtra, nMin, nMax, bEmptyOnFail);
}

std::int32_t TStrTok_GoDelimit_AnyChar(TStrTok *puTok, const char *pDelimiters, std::uint32_t bCanEmpty) {
  if (puTok->pCur == nullptr) return 0;
  if (!IsPair(pDelimiters)) [[unlikely]]
    return GoDelimitSet(*puTok, pDelimiters, bCanEmpty != 0);
  const char cSecond = pDelimiters[1] != '\0' ? pDelimiters[1] : pDelimiters[0];
  return GoDelimit(*puTok, CharPair(pDelimiters[0], cSecond), bCanEmpty != 0);
}
