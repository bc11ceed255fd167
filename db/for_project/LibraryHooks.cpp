// SPDX-License-Identifier: MIT
// The functions that Berkeley DB calls instead of the C library's.

#include "db/for_project/LibraryHooks.h"

#include <db.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace devsupport::store {

namespace {

constexpr int kFirstDescriptor = 3;

// What was written has been flushed before, so a close that fails loses nothing. Berkeley DB would go on with a
// handle that it has freed.
int CloseAnyway(int nFd) {
  close(nFd);
  return 0;
}

}  // namespace

int OpenAboveStandardAt(int nFolder, const char *pPath, int nFlags, int nMode) {
  int nFd = -1;
  do {
    nFd = openat(nFolder, pPath, nFlags | O_CLOEXEC, nMode);
  } while (nFd < 0 && errno == EINTR);
  if (nFd < 0 || nFd >= kFirstDescriptor) return nFd;
  const int nHigher = fcntl(nFd, F_DUPFD_CLOEXEC, kFirstDescriptor);
  const int nError = errno;
  close(nFd);
  errno = nError;
  return nHigher;
}

int OpenAboveStandard(const char *pPath, int nFlags, ...) {
  std::va_list arguments;
  va_start(arguments, nFlags);
  const int nMode = (nFlags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  return OpenAboveStandardAt(AT_FDCWD, pPath, nFlags, nMode);
}

void InstallLibraryHooks() {
  db_env_set_func_open(OpenAboveStandard);
  db_env_set_func_close(CloseAnyway);
}

}  // namespace devsupport::store
