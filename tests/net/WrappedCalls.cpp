// SPDX-License-Identifier: MIT
#include "tests/net/WrappedCalls.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdarg>

#include "tests/support/FaultInjection.h"

DEVSUPPORT_FAULT_POINT(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE)

extern "C" int __real_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void *const record = va_arg(args, void *);
  va_end(args);
  if (devsupport::test::MustFail("ioctl")) {
    errno = EIO;
    return -1;
  }
  if (request == SIOCDEVPRIVATE && devsupport::test::g_switchDriver)
    return devsupport::test::g_switchDriver(*static_cast<ifreq *>(record));
  return __real_ioctl(fd, request, record);
}
