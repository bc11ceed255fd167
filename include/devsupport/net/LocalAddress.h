// SPDX-License-Identifier: MIT
/* The device's own network addresses: of one interface, of all interfaces, and what kind of text an address is. */
#ifndef DEVSUPPORT_NET_LOCALADDRESS_H
#define DEVSUPPORT_NET_LOCALADDRESS_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// One interface that has an IPv4 address and a hardware address. Records lie back to back in the caller's array.
typedef struct TIfAddrInfo {
  char szName[16];       ///< the kernel's name, at most 15 characters, NUL-terminated
  char szAddress[16];    ///< dotted decimal, NUL-terminated
  char szHwAddress[18];  ///< six bytes as upper-case hexadecimal with colons, NUL-terminated
} TIfAddrInfo;

/// Reads the IPv4 address of one interface.
/// pAddress   out     dotted decimal, room for 16 characters; "127.0.0.1" when the query failed
/// pInterface in      the interface's name; only 15 characters count; not NULL
/// Returns    1 pAddress holds the interface's address, 0 the interface is unknown or has none.
/// Prints     "socket: " or "ioctl:" with the system's error text, on standard error, when the query failed.
/// Threads    safe.
/// Signals    no.
/// Cost       one socket, one request; the socket is closed on every path.
int GetLocalIp(char *pAddress, const char *pInterface);

/// Reads the global IPv6 address of one interface out of "/proc/net/if_inet6"; the first one when it has several.
/// pAddress   out     canonical compressed text, room for 46 characters. On failure it holds the interface's last
///                    address that is not global (for example link-local) and is untouched when there is none.
/// pInterface in      the interface's name; not NULL
/// Returns    1 pAddress holds a global address, 0 the interface has none or there is no such file.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
/// Cost       one pass over the file; it is closed on every path.
int GetLocalIPv6(char *pAddress, const char *pInterface);

/// Lists the interfaces that have an IPv4 address and a hardware address, in the reverse of the kernel's order.
/// Left out: the address 127.0.0.1, and hardware addresses that are all zero (loopback, tunnels). An interface with
/// several IPv4 addresses comes once for each. The kernel is asked for its first 16 addresses, not for more.
/// pRecords   out     room for nMax records; after the last one returned, a record may hold remains
/// nMax       in      number of records; below 1 none is touched
/// Returns    the number of records filled, 0 also when the kernel could not be asked.
/// Prints     "cpm: socket: " or "cpm: ioctl: " with the system's error text, on standard error, when the kernel
///            could not be asked; an interface that does not answer is left out without a word.
/// Threads    safe.
/// Signals    no.
/// Cost       one socket, one request and two more for each interface; the socket is closed on every path.
int GetLocalIfList(TIfAddrInfo *pRecords, int nMax);

/// Distinguishes a host name from a dotted IPv4 address: any character other than '0'..'9', '.' and blank makes a name.
/// pText      in      NUL-terminated text; NULL is no host name
/// Returns    1 a host name, 0 only such characters (an empty text too) or NULL.
/// Prints     nothing.
/// Threads    safe.
/// Signals    yes.
int IsHostNameStr(const char *pText);

/// Recognises an IPv6 address by its colons: two or more in the whole text.
/// pText      in      NUL-terminated text; not NULL
/// Returns    1 two colons or more, 0 fewer.
/// Prints     nothing.
/// Threads    safe.
/// Signals    yes.
int IsIPv6Str(const char *pText);

DEVSUPPORT_END_API

#endif
