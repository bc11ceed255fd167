// SPDX-License-Identifier: MIT
// Reads /proc/<pid>/task/<pid>/stat.

#include "db/for_project/Processes.h"

#include <fcntl.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill is POSIX's
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "db/for_project/LibraryHooks.h"

namespace devsupport::store {

namespace {

struct Status {
  char cState = '\0';  // '\0': the kernel does not tell
  unsigned long long qwStart = 0;
};

Status StatusOf(std::int32_t nPid) {
  Status status;
  char szPath[48];
  // Of its first thread: for /proc/<pid>/stat of the caller itself, user-mode emulators make up a start.
  std::snprintf(szPath, sizeof szPath, "/proc/%d/task/%d/stat", nPid, nPid);
  const int nFd = OpenAboveStandard(szPath, O_RDONLY);
  if (nFd < 0) return status;
  char szText[512];
  const ssize_t nRead = read(nFd, szText, sizeof szText - 1);
  close(nFd);
  szText[nRead > 0 ? nRead : 0] = '\0';
  // The program's name comes second, in parentheses, and may hold any character.
  const char *pAfterName = std::strrchr(szText, ')');
  if (pAfterName != nullptr) {
    std::sscanf(pAfterName + 1, " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu",
                &status.cState, &status.qwStart);
  }
  return status;
}

}  // namespace

std::uint64_t StartOf(std::int32_t nPid) { return StatusOf(nPid).qwStart; }

bool IsAlive(std::int32_t nPid, std::uint64_t qwStart) {
  if (kill(nPid, 0) != 0 && errno == ESRCH) return false;
  const Status status = StatusOf(nPid);
  if (std::string_view("ZX").find(status.cState) != std::string_view::npos) return false;
  return status.qwStart == 0 || qwStart == 0 || status.qwStart == qwStart;
}

}  // namespace devsupport::store
