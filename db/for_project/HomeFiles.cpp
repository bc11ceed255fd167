// SPDX-License-Identifier: MIT
// Flushes the files of a home.

#include "db/for_project/HomeFiles.h"

#include <sys/stat.h>

namespace devsupport::store {

namespace {

// Returns 0 also for a name that was removed meanwhile, or that is not a regular file: there is nothing to flush.
int FlushFile(int nHomeFd, const char *pName) {
  const int nFd = OpenAboveStandardAt(nHomeFd, pName, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (nFd < 0) return 0;
  struct stat status = {};
  const bool bFailed = fstat(nFd, &status) == 0 && S_ISREG(status.st_mode) && fsync(nFd) != 0;
  const int nError = bFailed ? errno : 0;
  close(nFd);
  return nError;
}

}  // namespace

int FlushFolder(int nFolderFd) { return fsync(nFolderFd) == 0 || errno == EINVAL ? 0 : errno; }

int FlushHome(int nHomeFd, const char *pFile) {
  int nError = pFile != nullptr ? FlushFile(nHomeFd, pFile) : 0;
  if (nError == 0) nError = VisitNames(nHomeFd, [=](const char *pName) { return FlushFile(nHomeFd, pName); });
  return nError != 0 ? nError : FlushFolder(nHomeFd);
}

}  // namespace devsupport::store
