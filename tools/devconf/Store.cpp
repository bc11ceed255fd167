// Opens and closes the store.

#include "tools/devconf/Store.h"

#include <devsupport/db/BerkeleyDB.h>
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tools/devconf/Print.h"

namespace devconf {

namespace {

constexpr mode_t kHomeMode = 0755;

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

// SIGPIPE, too: a reader of our output that goes away ends us as soon as the store is closed.
constexpr int kHeldSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

}  // namespace

bool IsInterrupted() { return tools::IsAnyPending(kHeldSignals); }

Store::Store() : signals_(kHeldSignals) {}

bool Store::Open(const Options &options) {
  const DatabasePath path(options);
  if (!path.HasFile()) {
    Complain("no database (devconf init makes one)", path.Text());
    return false;
  }
  return OpenAnyway(options);
}

bool Store::OpenOrMake(const Options &options) {
  if (::mkdir(options.home, kHomeMode) != 0 && errno != EEXIST) {
    Complain(std::strerror(errno), options.home);
    return false;
  }
  return OpenAnyway(options);
}

bool Store::OpenAnyway(const Options &options) {
  std::int32_t code = BERKDB_OPEN_OK;
  open_ = true;  // a failed opening must be closed, too
  if (BerkDb_Open(options.home, options.file, &code) == 1) return true;
  Complain(ReasonOf(code), DatabasePath(options).Text());
  return false;
}

void Store::Close() {
  if (open_) BerkDb_Close();
  open_ = false;
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

bool DatabasePath::HasFile() const {
  struct stat status = {};
  return ::stat(text_, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace devconf
