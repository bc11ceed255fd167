// SPDX-License-Identifier: MIT
/* The choice of the interface that carries the WAN. */
#ifndef DEVSUPPORT_NET_WANINTERFACE_H
#define DEVSUPPORT_NET_WANINTERFACE_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Finds the WAN interface and its address: the first that has one of "ppp0", "esw0", and the Ethernet port, which is
/// "eth0", or "eth0.<n>" when the configuration parameter "vlan" is n and n is above 0. Each is asked for its IPv4
/// address first and for its global IPv6 address then.
/// pAddress   out     IPv4 or IPv6 text, room for 46 characters. On failure "127.0.0.1", or the Ethernet port's last
///                    IPv6 address that is not global
/// pInterface out     the interface's name, room for 16 characters; on failure the Ethernet port's
/// Returns    1 an address was found, 0 none of the three has one.
/// Prints     nothing itself; GetLocalIp prints to standard error which interface had no IPv4 address, and why.
/// Threads    as the configuration store is.
/// Signals    no.
/// Cost       at most three passes over the kernel's interface data and one read of the configuration store.
int GetWanIp(char *pAddress, char *pInterface);

DEVSUPPORT_END_API

#endif
