// SPDX-License-Identifier: MIT
// The checks of the files and of their pages, and the comparison of indexes with their tables.

#include "db/for_project/StoreCheck.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "db/for_project/LibraryHooks.h"
#include "db/for_project/OpenReport.h"
#include "db/for_project/Silence.h"

namespace devsupport::store {

namespace {

// A record whose memory the library provides.
class Grown {
 public:
  Grown() { record_.flags = DB_DBT_REALLOC; }
  ~Grown() { std::free(record_.data); }
  Grown(const Grown &) = delete;
  Grown &operator=(const Grown &) = delete;

  DBT *Record() { return &record_; }
  const DBT &Get() const { return record_; }

 private:
  DBT record_ = {};
};

// Calls visit(key, value) for each record until it returns false. Returns whether all records were visited.
template <typename TVisit>
bool VisitAll(DB *pDb, TVisit visit) {
  DBC *pCursor = nullptr;
  if (pDb->cursor(pDb, nullptr, &pCursor, 0) != 0) return false;
  Grown key;
  Grown value;
  int nResult = 0;
  do {
    nResult = pCursor->get(pCursor, key.Record(), value.Record(), DB_NEXT);
  } while (nResult == 0 && visit(key.Get(), value.Get()));
  pCursor->close(pCursor);
  return nResult == DB_NOTFOUND;
}

// The beginning of a file, where the library stores its type.
class FirstBytes {
 public:
  explicit FirstBytes(const char *pPath) {
    const int nFd = OpenAboveStandard(pPath, O_RDONLY | O_NONBLOCK);
    if (nFd < 0) return;
    nBytes_ = read(nFd, &words_, sizeof words_);
    close(nFd);
  }

  // The library would take such a file for a new one, and initialise it.
  bool IsZero() const {
    if (nBytes_ <= 0) return false;
    for (const std::uint32_t dwWord : words_) {
      if (dwWord != 0) return false;
    }
    return true;
  }
  bool IsDatabase() const {
    constexpr std::uint32_t kMagic = 0x00053162;
    const std::uint32_t dwMagic = words_[3];
    return nBytes_ == sizeof words_ && (dwMagic == kMagic || __builtin_bswap32(dwMagic) == kMagic);
  }

 private:
  std::uint32_t words_[32] = {};
  ssize_t nBytes_ = 0;
};

// Whether the index leads from the secondary key to the primary one.
bool HasEntry(DB *pIndex, const DBT &indexKey, const DBT &key) {
  DBT wantedKey = indexKey;
  wantedKey.flags = DB_DBT_READONLY;
  DBT wantedValue = key;
  wantedValue.ulen = key.size;
  wantedValue.flags = DB_DBT_USERMEM;
  return pIndex->get(pIndex, nullptr, &wantedKey, &wantedValue, DB_GET_BOTH) == 0;
}

// Checks the pages of a file that no process has open with Berkeley DB's own checker. Prints nothing. A file that is
// missing or empty is whole. So is one that cannot be read or is no database, because opening it reports that.
bool IsFileWhole(const char *pPath) {
  const FirstBytes first(pPath);
  if (first.IsZero()) return false;
  if (!first.IsDatabase()) return true;
  DB *pDb = nullptr;
  if (CreateFileHandle(&pDb) != 0) return false;
  pDb->set_errcall(pDb, StaySilent);
  // Without the order of keys: each table has its own. The handle is used up by that, whatever the answer is.
  return pDb->verify(pDb, pPath, nullptr, nullptr, DB_NOORDERCHK) == 0;
}

}  // namespace

bool IndexAgrees(DB *pPrimary, DB *pIndex, int (*pfnKey)(DB *, const DBT *, const DBT *, DBT *)) {
  unsigned long dwRecords = 0;
  const bool bComplete = VisitAll(pPrimary, [&](const DBT &key, const DBT &value) {
    ++dwRecords;
    DBT indexKey = {};
    pfnKey(pIndex, &key, &value, &indexKey);
    return HasEntry(pIndex, indexKey, key);
  });
  // Each record has an entry of its own, so the index has at least as many.
  return bComplete && VisitAll(pIndex, [&](const DBT &, const DBT &) { return dwRecords-- != 0; });
}

bool EmptyIndex(DB *pIndex) {
  u_int32_t dwRemoved = 0;
  return pIndex->truncate(pIndex, nullptr, &dwRemoved, 0) == 0;
}

int CheckPages(const char *pHome, const char *pFile) {
  char szPath[PATH_MAX + 1];  // what is cut is too long to be opened
  const bool bAbsolute = pFile[0] == '/';
  std::snprintf(szPath, sizeof szPath, "%s%s%s", bAbsolute ? "" : pHome, bAbsolute ? "" : "/", pFile);
  if (IsFileWhole(szPath)) return 0;
  ReportSentence("%s in %s is damaged; it is left as it is, and 'devconf salvage' gets out what can be read", pFile,
                 pHome);
  return DB_VERIFY_BAD;
}

int CheckFiles(int nHomeFd, const char *pHome, const char *pFile, SealState &state) {
  state = SealState::Fits;
  if (pFile == nullptr) return RemoveSeals(nHomeFd);
  const SealFinding finding = CheckSeal(nHomeFd, pFile);
  state = finding.state;
  if (state == SealState::Damaged) {
    ReportSentence(
        "%s in %s is damaged or missing since the store was closed; all files are left as they are, and "
        "'devconf salvage' gets out what can be read",
        finding.szFile, pHome);
    return DB_VERIFY_BAD;
  }
  if (state == SealState::Changed) {
    if (const int nResult = CheckPages(pHome, pFile); nResult != 0) return nResult;
    ReportSentence("%s in %s was changed since the store was closed; its pages are whole", finding.szFile, pHome);
  }
  const int nError = RemoveSeal(nHomeFd, pFile);  // it can be in another folder
  return nError != 0 ? nError : RemoveSeals(nHomeFd);
}

}  // namespace devsupport::store
