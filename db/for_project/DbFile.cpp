// SPDX-License-Identifier: MIT
// Single files with one table, outside the environment.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>

#include <cerrno>
#include <cstdio>

#include "db/for_project/LibraryHooks.h"

struct __db *BerkDb_OpenFile(const char *pFile, uint32_t dwFlags) {
  devsupport::store::InstallLibraryHooks();
  DB *pDb = nullptr;
  if (const int nResult = devsupport::store::CreateFileHandle(&pDb); nResult != 0) {
    std::fprintf(stderr, "Fail: %s\n", db_strerror(nResult));
    return nullptr;
  }
  const char *pFormat = "Database '%s' set_flags() failed";
  int nResult = dwFlags != 0 ? pDb->set_flags(pDb, dwFlags) : 0;
  if (nResult == 0) {
    pFormat = "Database '%s' open failed";
    nResult = pDb->open(pDb, nullptr, pFile, nullptr, DB_BTREE, DB_CREATE, 0);
  }
  if (nResult == 0) return pDb;
  pDb->err(pDb, nResult, pFormat, pFile);
  // When memory is missing, the library frees data that closing the handle needs. Closing it would then end the
  // process.
  if (nResult != ENOMEM) pDb->close(pDb, 0);
  return nullptr;
}

int BerkDb_CloseFile(struct __db **ppDb) {
  if (*ppDb == nullptr) return 1;
  if (const int nResult = (*ppDb)->close(*ppDb, 0); nResult != 0) {
    std::fprintf(stderr, "database close failed: %s\n", db_strerror(nResult));
    return 0;
  }
  *ppDb = nullptr;
  return 1;
}
