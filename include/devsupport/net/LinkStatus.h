// SPDX-License-Identifier: MIT
/* Whether the Ethernet port's and the switch's link is up, which of the two the device has, and a trace with the
 * time. */
#ifndef DEVSUPPORT_NET_LINKSTATUS_H
#define DEVSUPPORT_NET_LINKSTATUS_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Returns whether the link of an Ethernet interface is up: GetCpmacLink answers for "eth0", and GetEswLink, which has
/// one switch only, for every other name.
/// pName      in      the interface's name; not NULL
/// Returns    1 up, 0 down or not known.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
int GetLinkStatus(const char *pName);

/// Reads the link state of the Ethernet port out of the driver's file "/proc/avalanche/cpmac_link".
/// Returns    1 up: the number after "= " in the first line is above 0, and the word after the second ':' of the
///            second line is "UP". 0 anything else, a missing file included. 256 characters of a line count.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
/// Cost       two lines of one file, which is closed on every path.
int GetCpmacLink(void);

/// Asks the driver of the Ethernet switch "esw0" for the link state of its port 1.
/// Returns    1 up, also when the driver's status word is 0; 0 down, or there is no such switch.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
/// Cost       one socket, one request; the socket is closed on every path.
int GetEswLink(void);

/// Finds the device's Ethernet interface: the first of the kernel's interface indexes 0 to 31 that is named "esw0"
/// or "eth0".
/// pName      out     room for 16 characters; on failure it holds the name of index 31, or is empty without one
/// Returns    1 pName holds "esw0" or "eth0", 0 there is neither.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
int FindEthIf(char *pName);

DEVSUPPORT_END_API

#endif
