// SPDX-License-Identifier: MIT
// The C library's calls that the network tests wrap: socket and ioctl fail on demand, and the switch's driver has a
// stand-in. Included by one file of each test program, whose devsupport_test() names socket and ioctl under WRAP.
#pragma once

#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdarg>
#include <functional>

#include "tests/support/FaultInjection.h"

namespace devsupport::test {

/// Answers the switch driver's private request while set; the result is ioctl's.
inline std::function<int(ifreq &)> g_switchDriver;

}  // namespace devsupport::test

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
