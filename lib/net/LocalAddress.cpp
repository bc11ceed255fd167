// SPDX-License-Identifier: MIT
// The device's own addresses, as the kernel's interface requests and /proc/net/if_inet6 tell them.

#include <arpa/inet.h>
#include <devsupport/net/LocalAddress.h>
#include <netinet/in.h>
#include "lib/Layout.h"
#include "lib/net/InterfaceSocket.h"
#include "lib/net/TextFile.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

// The records' layout, in bytes.
DEVSUPPORT_RECORD_BYTES(TIfAddrInfo, 50);
DEVSUPPORT_FIELD_AT(TIfAddrInfo, szName, 0);
DEVSUPPORT_FIELD_AT(TIfAddrInfo, szAddress, 16);
DEVSUPPORT_FIELD_AT(TIfAddrInfo, szHwAddress, 32);

namespace {

using devsupport::net::InterfaceSocket;
using devsupport::net::NamedRequest;
using devsupport::net::TextFile;

constexpr int kMaxInterfaces = 16;
constexpr const char *kLoopbackText = "127.0.0.1";
constexpr const char *kNoHardwareText = "00:00:00:00:00:00";
static_assert(sizeof(TIfAddrInfo::szName) == IFNAMSIZ);
static_assert(sizeof(TIfAddrInfo::szAddress) == INET_ADDRSTRLEN);

/// One line of /proc/net/if_inet6: 32 hexadecimal digits of address, then index, prefix length, scope and flags in
/// hexadecimal, then the interface's name.
struct TInet6Line {
  char szGroup[8][5];
  unsigned dwIndex;
  unsigned dwPrefixBits;
  unsigned dwScope;
  unsigned dwFlags;
  char szInterface[21];

  bool IsGlobal() const { return (dwScope & 0xF0u) == 0; }
};

bool ParseInet6Line(const char *pLine, TInet6Line &entry) {
  // The index has two digits or more: that of a ppp0 which has been dialled often enough has three.
  return std::sscanf(pLine, "%4s%4s%4s%4s%4s%4s%4s%4s %x %2x %2x %2x %20s", entry.szGroup[0], entry.szGroup[1],
                     entry.szGroup[2], entry.szGroup[3], entry.szGroup[4], entry.szGroup[5], entry.szGroup[6],
                     entry.szGroup[7], &entry.dwIndex, &entry.dwPrefixBits, &entry.dwScope, &entry.dwFlags,
                     entry.szInterface) == 13;
}

/// Writes the canonical text of the line's address. False, and nothing written, when the line holds no address.
bool WriteInet6Address(const TInet6Line &entry, char *pAddress) {
  char szGroups[8 * 5];
  std::snprintf(szGroups, sizeof szGroups, "%s:%s:%s:%s:%s:%s:%s:%s", entry.szGroup[0], entry.szGroup[1],
                entry.szGroup[2], entry.szGroup[3], entry.szGroup[4], entry.szGroup[5], entry.szGroup[6],
                entry.szGroup[7]);
  in6_addr address{};
  return ::inet_pton(AF_INET6, szGroups, &address) == 1 &&
         ::inet_ntop(AF_INET6, &address, pAddress, INET6_ADDRSTRLEN) != nullptr;
}

void WriteInetAddress(const ifreq &answer, char *pAddress) {
  sockaddr_in address{};
  std::memcpy(&address, &answer.ifr_addr, sizeof address);
  ::inet_ntop(AF_INET, &address.sin_addr, pAddress, INET_ADDRSTRLEN);
}

void WriteHardwareAddress(const ifreq &answer, char *pHwAddress) {
  unsigned char aucByte[6];
  std::memcpy(aucByte, answer.ifr_hwaddr.sa_data, sizeof aucByte);
  std::snprintf(pHwAddress, sizeof(TIfAddrInfo::szHwAddress), "%02X:%02X:%02X:%02X:%02X:%02X", aucByte[0], aucByte[1],
                aucByte[2], aucByte[3], aucByte[4], aucByte[5]);
}

/// Fills one record of the list. True when it is to be kept.
/// request    in,out  as the kernel listed it: with the address in it, the kernel picks that one out of several
bool FillRecord(const InterfaceSocket &socket, ifreq &request, TIfAddrInfo &record) {
  StrNcpy(record.szName, request.ifr_name, sizeof record.szName);
  if (!socket.Ask(SIOCGIFADDR, request)) return false;
  char szAddress[INET_ADDRSTRLEN];
  WriteInetAddress(request, szAddress);
  StrNcpy(record.szAddress, szAddress, sizeof record.szAddress);  // fills the whole field
  if (!socket.Ask(SIOCGIFHWADDR, request)) return false;
  WriteHardwareAddress(request, record.szHwAddress);
  return std::strcmp(record.szAddress, kLoopbackText) != 0 && std::strcmp(record.szHwAddress, kNoHardwareText) != 0;
}

}  // namespace

int GetLocalIp(char *pAddress, const char *pInterface) {
  StrNcpy(pAddress, kLoopbackText, INET_ADDRSTRLEN);
  const InterfaceSocket socket;
  if (!socket.IsOpen()) {
    std::perror("socket");
    return 0;
  }
  ifreq request = NamedRequest(pInterface);
  if (!socket.Ask(SIOCGIFADDR, request)) {
    std::fprintf(stderr, "ioctl:%s[%s]\n", std::strerror(errno), pInterface);
    return 0;
  }
  WriteInetAddress(request, pAddress);
  return 1;
}

int GetLocalIPv6(char *pAddress, const char *pInterface) {
  const TextFile file("/proc/net/if_inet6");
  char szLine[128];
  TInet6Line entry{};
  while (file.ReadLine(szLine)) {
    if (!ParseInet6Line(szLine, entry) || std::strcmp(entry.szInterface, pInterface) != 0) continue;
    // Kept: the address is written before its scope is known, so that a search that fails leaves the last
    // link-local address in it. Callers use only the result.
    if (WriteInet6Address(entry, pAddress) && entry.IsGlobal()) return 1;
  }
  return 0;
}

int GetLocalIfList(TIfAddrInfo *pRecords, int nMax) {
  const InterfaceSocket socket;
  if (!socket.IsOpen()) {
    std::perror("cpm: socket");
    return 0;
  }
  ifreq aRequests[kMaxInterfaces] = {};
  ifconf config{};
  config.ifc_len = sizeof aRequests;
  config.ifc_req = aRequests;
  if (!socket.Ask(SIOCGIFCONF, config)) {
    std::perror("cpm: ioctl");
    return 0;
  }
  int nFilled = 0;
  for (std::size_t n = static_cast<std::size_t>(config.ifc_len) / sizeof(ifreq); n > 0 && nFilled < nMax; --n)
    if (FillRecord(socket, aRequests[n - 1], pRecords[nFilled])) ++nFilled;
  return nFilled;
}

int IsHostNameStr(const char *pText) {
  if (pText == nullptr) return 0;
  return pText[std::strspn(pText, "0123456789. ")] != '\0' ? 1 : 0;
}

int IsIPv6Str(const char *pText) {
  const char *const pFirst = std::strchr(pText, ':');
  return pFirst != nullptr && std::strchr(pFirst + 1, ':') != nullptr ? 1 : 0;
}
