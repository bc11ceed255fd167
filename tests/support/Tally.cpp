// SPDX-License-Identifier: MIT
#include "tests/support/Tally.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace devsupport::test {

void Tally(const char *event) {
  const char *const path = std::getenv("DEVSUPPORT_TEST_TALLY");
  if (path == nullptr) return;
  const int savedErrno = errno;
  char line[32];
  const int size = std::snprintf(line, sizeof line, "%s\n", event);
  // Direct system calls, because the functions of the C library may be made to fail. One appending write is not mixed
  // with those of other processes.
  const long fd = ::syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd >= 0) {
    ::syscall(SYS_write, fd, line, size);
    ::syscall(SYS_close, fd);
  }
  errno = savedErrno;
}

}  // namespace devsupport::test
