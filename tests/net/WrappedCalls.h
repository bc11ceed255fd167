// SPDX-License-Identifier: MIT
// The C library's calls that the network tests wrap: socket and ioctl fail on demand, and the switch's driver can be
// replaced.
#pragma once

#include <net/if.h>

#include <functional>

namespace devsupport::test {

/// Answers the switch driver's private request while it is set. Its result is the result of ioctl.
inline std::function<int(ifreq &)> g_switchDriver;

}  // namespace devsupport::test
