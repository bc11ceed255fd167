// SPDX-License-Identifier: MIT
// Lists and flushes the files of a home.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "db/for_project/LibraryHooks.h"

namespace devsupport::store {

/// Calls visit(name) for each name in the home until it returns an error number. Returns that, or why the home cannot
/// be read.
template <typename TVisit>
int VisitNames(int nHomeFd, TVisit visit) {
  const int nFd = OpenAboveStandardAt(nHomeFd, ".", O_RDONLY | O_DIRECTORY);
  DIR *pFolder = nFd < 0 ? nullptr : fdopendir(nFd);
  if (pFolder == nullptr) {
    const int nError = errno;
    if (nFd >= 0) close(nFd);
    return nError;
  }
  int nError = 0;
  while (nError == 0) {
    const dirent *pEntry = readdir(pFolder);
    if (pEntry == nullptr) break;
    nError = visit(pEntry->d_name);
  }
  closedir(pFolder);
  return nError;
}

/// Flushes the names in a folder. Returns 0 or an error number; 0 also where folders cannot be flushed.
int FlushFolder(int nFolderFd);

/// Flushes all that recovery is about to read: the tables' file, every other file of the home, and their names. What a
/// killed process wrote is in the system's memory only, and recovery takes it for stored.
/// Returns 0 or an error number.
int FlushHome(int nHomeFd, const char *pFile);

}  // namespace devsupport::store
