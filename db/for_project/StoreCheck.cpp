// SPDX-License-Identifier: MIT
// The checks of the files and of their pages, and the comparison of indexes with their tables.

#include "db/for_project/StoreCheck.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

class Cursor {
 public:
  explicit Cursor(DB *pDb) { pDb->cursor(pDb, nullptr, &pCursor_, 0); }
  ~Cursor() {
    if (pCursor_ != nullptr) pCursor_->close(pCursor_);
  }
  Cursor(const Cursor &) = delete;
  Cursor &operator=(const Cursor &) = delete;

  bool Next(Grown &key, Grown &value) const {
    return pCursor_ != nullptr && pCursor_->get(pCursor_, key.Record(), value.Record(), DB_NEXT) == 0;
  }

 private:
  DBC *pCursor_ = nullptr;
};

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

unsigned long CountEntries(DB *pIndex) {
  const Cursor cursor(pIndex);
  Grown key;
  Grown value;
  unsigned long dwEntries = 0;
  while (cursor.Next(key, value)) ++dwEntries;
  return dwEntries;
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

// Path of the tables' file, on the heap for the time of one check.
char *PathOfFile(const char *pHome, const char *pFile) {
  if (pFile[0] == '/') return strdup(pFile);
  const std::size_t dwPath = std::strlen(pHome) + std::strlen(pFile) + 2;
  auto *pPath = static_cast<char *>(std::malloc(dwPath));
  if (pPath != nullptr) std::snprintf(pPath, dwPath, "%s/%s", pHome, pFile);
  return pPath;
}

}  // namespace

bool IndexAgrees(DB *pPrimary, DB *pIndex, int (*pfnKey)(DB *, const DBT *, const DBT *, DBT *)) {
  const Cursor cursor(pPrimary);
  Grown key;
  Grown value;
  unsigned long dwRecords = 0;
  for (; cursor.Next(key, value); ++dwRecords) {
    DBT indexKey = {};
    pfnKey(pIndex, &key.Get(), &value.Get(), &indexKey);
    if (!HasEntry(pIndex, indexKey, key.Get())) return false;
  }
  return CountEntries(pIndex) == dwRecords;
}

bool EmptyIndex(DB *pIndex) {
  u_int32_t dwRemoved = 0;
  return pIndex->truncate(pIndex, nullptr, &dwRemoved, 0) == 0;
}

int CheckPages(const char *pHome, const char *pFile) {
  char *pPath = PathOfFile(pHome, pFile);
  if (pPath == nullptr) return ENOMEM;
  const bool bWhole = IsFileWhole(pPath);
  std::free(pPath);
  if (bWhole) return 0;
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
