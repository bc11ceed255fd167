// SPDX-License-Identifier: MIT
// The checker of pages, and the comparison of indexes with their tables.

#include "db/for_project/StoreCheck.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "db/for_project/LibraryHooks.h"
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

// The beginning of a file, where the library says what it is.
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

}  // namespace

bool IsFileWhole(const char *pPath) {
  const FirstBytes first(pPath);
  if (first.IsZero()) return false;
  if (!first.IsDatabase()) return true;
  DB *pDb = nullptr;
  if (db_create(&pDb, nullptr, 0) != 0) return false;
  pDb->set_errcall(pDb, StaySilent);
  // Without the order of keys: each table has its own. The handle is used up by that, whatever the answer is.
  return pDb->verify(pDb, pPath, nullptr, nullptr, DB_NOORDERCHK) == 0;
}

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

}  // namespace devsupport::store
