// SPDX-License-Identifier: MIT
// The library's messages, and ours about a store that cannot be opened.

#include "db/for_project/OpenReport.h"

#include <devsupport/db/BerkeleyDB.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace devsupport::store {

namespace {

// Fixed parts of the messages. People search for these texts, so they do not change when the code moves.
constexpr char kSource[] = "db/for_project/BerkeleyDB";
constexpr int kErrCallLine = 149;
constexpr int kLostCaseLine = 499;

void PrintSource(int nLine) { std::fprintf(stderr, "  \\%s %d\n", kSource, nLine); }

const char *FormatOf(int nCode) {
  switch (nCode) {
    case BERKDB_OPEN_CREATE:
      return "FAIL to create database %s";
    case BERKDB_OPEN_TABLE:
      return "FAIL to open database %s";
    case BERKDB_OPEN_COMPARE:
      return "FAIL to set btree compare function of database %s";
    case BERKDB_OPEN_FLAGS:
      return "FAIL to set flags for secondary database %s";
    default:
      return nullptr;
  }
}

}  // namespace

void ReportOpenFailure(DB_ENV *pEnv, DB *pDb, int nCode, int nResult, const char *pTable) {
  const char *pFormat = FormatOf(nCode);
  if (pFormat == nullptr) {
    std::fprintf(stderr, "%s: loss switch case, nCase=%d", "BerkDb_Open", nCode);
    PrintSource(kLostCaseLine);
  } else if (pDb != nullptr) {
    pDb->err(pDb, nResult, pFormat, pTable);
  } else {
    pEnv->err(pEnv, nResult, pFormat, pTable);
  }
}

void ReportSentence(const char *pFormat, ...) {
  char szText[512];
  std::va_list values;
  va_start(values, pFormat);
  std::vsnprintf(szText, sizeof szText, pFormat, values);
  va_end(values);
  BerkDb_ErrCall(nullptr, nullptr, szText);
}

}  // namespace devsupport::store

// Kept: the message is its own format, so "%%" is one '%'. It has no values, so every other '%' is printed unchanged.
void BerkDb_ErrCall(const struct __db_env * /*pEnv*/, const char * /*pPrefix*/, const char *pMessage) {
  for (const char *p = pMessage != nullptr ? pMessage : ""; *p != '\0';) {
    const std::size_t dwPlain = std::strcspn(p, "%");
    std::fwrite(p, 1, dwPlain, stderr);
    p += dwPlain;
    if (*p != '%') continue;
    std::fputc('%', stderr);
    p += p[1] == '%' ? 2 : 1;
  }
  devsupport::store::PrintSource(devsupport::store::kErrCallLine);
}
