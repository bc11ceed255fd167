// SPDX-License-Identifier: MIT
// Entries and callbacks for the tests of the hash table: text keys; an empty text is "no key".
#pragma once

#include <devsupport/container/MyHash.h>

#include <cstring>
#include <string>
#include <vector>

namespace devsupport::test {

struct HashEntry {
  char szKey[20];
  int nValue;
};

inline HashEntry MakeEntry(const std::string &key, int nValue = 0) {
  HashEntry uEntry{};
  key.copy(uEntry.szKey, sizeof uEntry.szKey - 1);
  uEntry.nValue = nValue;
  return uEntry;
}

inline const void *TextKey(const void *pText, int *pnKeyLen) {
  const auto *pszText = static_cast<const char *>(pText);
  *pnKeyLen = static_cast<int>(std::strlen(pszText));
  return *pszText != '\0' ? pszText : nullptr;
}

inline const void *EntryKey(const void *pData, int *pnKeyLen) {
  return TextKey(static_cast<const HashEntry *>(pData)->szKey, pnKeyLen);
}

inline int MatchesText(const void *pData, const void *pArg) {
  return std::strcmp(static_cast<const HashEntry *>(pData)->szKey, static_cast<const char *>(pArg)) == 0 ? 1 : 0;
}

/// The slots of a bucket's chain from head to tail; checks every link back.
inline std::vector<int> Chain(const TMyHash *puHash, unsigned nBucket) {
  std::vector<int> slots;
  int nPrev = -1;
  for (int nSlot = puHash->pnBucket[nBucket]; nSlot != -1; nSlot = puHash->pnNext[nSlot]) {
    if (puHash->pnPrev[nSlot] != nPrev) return {-4711, nSlot};
    slots.push_back(nSlot);
    nPrev = nSlot;
  }
  return slots;
}

}  // namespace devsupport::test
