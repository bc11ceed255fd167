// SPDX-License-Identifier: MIT
// Opens and closes the store.

#include "tools/devconf/Store.h"

#include <devsupport/db/BerkeleyDB.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/devconf/Ending.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Status.h"

namespace devconf {

namespace {

constexpr mode_t kHomeMode = 0755;

// The tables of a single file; nullptr when the store is open.
const FileTables *g_file = nullptr;

const char *ReasonOf(std::int32_t code) {
  switch (code) {
    case BERKDB_OPEN_ENVIRONMENT:
      return "the environment cannot be opened";
    case BERKDB_OPEN_TABLE:
      return "a table cannot be opened";
    default:
      return "the store cannot be opened";
  }
}

}  // namespace

Store::~Store() {
  Close();
  EndBySignal();
}

int Store::OpenToChange(const Options &options) {
  return IsDatabaseThere(DatabasePath(options).Text()) ? OpenAnyway(options) : status::kNoDatabase;
}

int Store::OpenToRead(const Options &options) {
  if (options.offline != nullptr) return OpenOffline(options.offline);
  return OpenClosed(options) ? status::kDone : OpenToChange(options);
}

// A closed store is read from its file. Opening it would start recovery, which writes and needs the right to write.
bool Store::OpenClosed(const Options &options) {
  seal_.emplace(options);
  if (seal_->Found() == Seal::State::Fits && file_.Open(DatabasePath(options).Text(), Indexes::Bound)) {
    g_file = &file_;
    return true;
  }
  seal_.reset();
  return false;
}

int Store::OpenOrMake(const Options &options) {
  if (::mkdir(options.home, kHomeMode) != 0 && errno != EEXIST) {
    Complain(std::strerror(errno), options.home);
    return status::kNoDatabase;
  }
  return OpenAnyway(options);
}

int Store::OpenAnyway(const Options &options) {
  EndPolitely();
  std::int32_t code = BERKDB_OPEN_OK;
  isOpen_ = true;  // a failed opening must be closed, too
  if (BerkDb_Open(options.home, options.file, &code) == 1) return status::kDone;
  Complain(ReasonOf(code), DatabasePath(options).Text());
  return status::kNoDatabase;
}

// A copied file can be damaged, and the library's operations do not check what they read.
int Store::OpenOffline(const char *path) {
  if (!IsDatabaseThere(path)) return status::kNoDatabase;
  if (!IsFileWhole(path)) {
    Complain("the file is damaged (devconf salvage prints what can be read)", path);
    return status::kDamaged;
  }
  if (!file_.Open(path, Indexes::Bound)) return status::kNoDatabase;
  g_file = &file_;
  return status::kDone;
}

void Store::Close() {
  if (isOpen_) BerkDb_Close();
  isOpen_ = false;
  file_.Close();
  g_file = nullptr;
}

struct __db *HandleOf(const Table &table) {
  return g_file != nullptr ? g_file->Handle(table.Row()) : *g_auDbTbl[table.Row()].ppDb;
}

DatabasePath::DatabasePath(const Options &options) {
  // As the store itself does it: a file that is named from the root is taken as it is.
  const bool fromRoot = options.file[0] == '/';
  const std::size_t home = std::strlen(options.home);
  const bool hasSlash = home != 0 && options.home[home - 1] == '/';
  const int size = std::snprintf(text_, sizeof text_, "%s%s%s", fromRoot ? "" : options.home,
                                 fromRoot || hasSlash ? "" : "/", options.file);
  if (size < 0 || static_cast<std::size_t>(size) >= sizeof text_) text_[0] = '\0';
}

bool IsDatabaseThere(const char *path) {
  struct stat status = {};
  if (::stat(path, &status) == 0 && S_ISREG(status.st_mode)) return true;
  Complain("no database (devconf init makes one)", path);
  return false;
}

}  // namespace devconf
