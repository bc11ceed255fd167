// SPDX-License-Identifier: MIT
// Tables of a file that is only read.

#include "tools/devconf/FileTables.h"

#include <db.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "db/for_project/LibraryHooks.h"
#include "db/for_project/StoreTables.h"
#include "tools/devconf/Bytes.h"
#include "tools/devconf/Output.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Status.h"

namespace devconf {

namespace {

using devsupport::store::kTableRules;
using devsupport::store::SetUpTable;
using devsupport::store::TableRule;

// Each handle has its own cache.
constexpr std::uint32_t kCacheBytes = 0x10000;

// A damaged file can cause thousands of messages. The first ones are sufficient.
constexpr int kMostMessages = 8;

void SayForStore(const DB_ENV * /*env*/, const char * /*prefix*/, const char *message) {
  static int said = 0;
  ++said;
  if (said <= kMostMessages) Format(Stream::Error, "devconf: %s\n", message);
  if (said == kMostMessages + 1) Complain("further messages of the store are left out");
}

DB *NewHandle() {
  DB *db = nullptr;
  if (devsupport::store::CreateFileHandle(&db) != 0) EndOutOfMemory();
  db->set_errcall(db, SayForStore);
  db->set_cachesize(db, 0, kCacheBytes, 0);
  return db;
}

// The checker ends the process when the file cannot be read any more: it closes a handle that it has freed.
void EndBrokenCheck(int /*signal*/) {
  constexpr char kText[] = "devconf: the store's checker broke off\n";
  if (::write(STDERR_FILENO, kText, sizeof kText - 1) < 0) ::_exit(status::kFailed);
  ::_exit(status::kFailed);
}

// Uses the handle up.
bool Check(DB *db, const char *path, const char *table, std::uint32_t flags) {
  const auto before = ::signal(SIGSEGV, EndBrokenCheck);
  const bool isWhole = db->verify(db, path, table, nullptr, flags) == 0;
  ::signal(SIGSEGV, before);
  return isWhole;
}

}  // namespace

bool FileTables::Open(const char *path, Indexes indexes) {
  for (unsigned row = 0; row < std::size(handles_); ++row) {
    if (OpenOne(path, row)) continue;
    Complain("a table cannot be opened:", kTableRules[row].pName);
    Close();
    return false;
  }
  if (indexes == Indexes::ByThemselves || Bind()) return true;
  Complain("an index cannot be used", path);
  Close();
  return false;
}

bool FileTables::OpenOne(const char *path, unsigned row) {
  DB *&db = handles_[row];
  db = NewHandle();
  int code = 0;
  int result = SetUpTable(db, kTableRules[row], code);
  if (result == 0) result = db->open(db, nullptr, path, kTableRules[row].pName, DB_BTREE, DB_RDONLY, 0);
  // When memory is missing, the library frees data that closing the handle needs. So the handle stays open.
  if (result == ENOMEM) db = nullptr;
  return result == 0;
}

bool FileTables::Bind() {
  return std::all_of(std::begin(kTableRules), std::end(kTableRules), [this](const TableRule &rule) {
    if (!rule.IsIndex()) return true;
    DB *table = handles_[rule.nPrimary];
    return table->associate(table, nullptr, handles_[&rule - kTableRules], rule.pfnKey, 0) == 0;
  });
}

void FileTables::Close() {
  for (struct __db *&db : handles_) {
    if (db != nullptr) db->close(db, 0);
    db = nullptr;
  }
}

// The pages first, without regard to the order of keys; then the order, for which each table needs its comparison.
bool IsFileWhole(const char *path) { return Check(NewHandle(), path, nullptr, DB_NOORDERCHK); }

bool IsTableInOrder(const char *path, unsigned row) {
  DB *db = NewHandle();
  int code = 0;
  SetUpTable(db, kTableRules[row], code);
  return Check(db, path, kTableRules[row].pName, DB_ORDERCHKONLY);
}

}  // namespace devconf
