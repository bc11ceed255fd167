// SPDX-License-Identifier: MIT
// Link states: the Ethernet port's out of its driver's file, the switch's through its driver's private request.

#include <devsupport/net/LinkStatus.h>
#include <devsupport/text/StrTok.h>
#include <devsupport/text/StrTokConvert.h>
#include <devsupport/text/StrTokScan.h>
#include <linux/sockios.h>
#include "lib/Layout.h"
#include "lib/net/InterfaceSocket.h"
#include "lib/net/TextFile.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using devsupport::net::InterfaceSocket;
using devsupport::net::NamedRequest;
using devsupport::net::TextFile;

constexpr const char *kSwitchName = "esw0";
constexpr const char *kEthernetName = "eth0";
constexpr unsigned kMaxIfIndex = 31;
constexpr std::size_t kLineChars = 256;

/// What the switch driver reads and fills in. Its byte map is in docs/formats.md.
struct TEswRequest {
  char szCommand[32];
  std::uint32_t dwZero;
  std::uint8_t ucPort;
  std::uint8_t aucGap1[3];
  std::uint8_t ucZero;
  std::uint8_t aucGap2[3];
  std::uint32_t dwStatus;
};
DEVSUPPORT_RECORD_BYTES(TEswRequest, 48);
DEVSUPPORT_FIELD_AT(TEswRequest, szCommand, 0);
DEVSUPPORT_FIELD_AT(TEswRequest, dwZero, 32);
DEVSUPPORT_FIELD_AT(TEswRequest, ucPort, 36);
DEVSUPPORT_FIELD_AT(TEswRequest, aucGap1, 37);
DEVSUPPORT_FIELD_AT(TEswRequest, ucZero, 40);
DEVSUPPORT_FIELD_AT(TEswRequest, aucGap2, 41);
DEVSUPPORT_FIELD_AT(TEswRequest, dwStatus, 44);

/// Each port has one byte of the status word, port 1 the least significant; the byte's top bit is the link.
bool IsPortUp(const TEswRequest &answer) {
  // Kept: a status word of 0 counts as up. A driver that leaves the word alone must not take the link down.
  if (answer.dwStatus == 0) return true;
  if (answer.ucPort < 1 || answer.ucPort > sizeof answer.dwStatus) return false;
  return (answer.dwStatus >> ((answer.ucPort - 1) * 8 + 7) & 1u) != 0;
}

/// The first line: a number above 0 after "= ", up to a blank or the line's end.
bool HasNumberAbove0(const char *pLine) {
  TStrTok tok;
  int nNumber = 0;
  TStrTok_SetSource(&tok, 0, pLine, 0);
  return TStrTok_Find(&tok, "= ", 0, 1) != 0 && TStrTok_GoDelimit_AnyChar(&tok, " \r\n", 0) != 0 &&
         TStrTok_Token2Int(&tok, &nNumber) != 0 && nNumber > 0;
}

/// The second line: the word "UP" after the second colon, up to a blank or the line's end.
bool SaysUp(const char *pLine) {
  TStrTok tok;
  char szState[8 + 1] = "";
  TStrTok_SetSource(&tok, 0, pLine, 0);
  return TStrTok_FindNth(&tok, 2, ":", 0, 1) == 2 && TStrTok_GoDelimit_AnyChar(&tok, " \r\n", 0) != 0 &&
         TStrTok_GetToken(&tok, szState, sizeof szState, nullptr) != 0 && std::strcmp(szState, "UP") == 0;
}

}  // namespace

int GetLinkStatus(const char *pName) {
  return std::strcmp(pName, kEthernetName) == 0 ? GetCpmacLink() : GetEswLink();
}

int GetCpmacLink() {
  const TextFile file("/proc/avalanche/cpmac_link");
  char szLine[kLineChars + 1];
  if (!file.ReadLine(szLine) || !HasNumberAbove0(szLine)) return 0;
  return file.ReadLine(szLine) && SaysUp(szLine) ? 1 : 0;
}

int GetEswLink() {
  const InterfaceSocket socket;
  if (!socket.IsOpen()) return 0;
  TEswRequest command{};
  StrNcpy(command.szCommand, "eswitch_config", sizeof command.szCommand);
  command.ucPort = 1;
  ifreq request = NamedRequest(kSwitchName);
  request.ifr_data = reinterpret_cast<char *>(&command);
  return socket.Ask(SIOCDEVPRIVATE, request) && IsPortUp(command) ? 1 : 0;
}

int FindEthIf(char *pName) {
  for (unsigned dwIndex = 0; dwIndex <= kMaxIfIndex; ++dwIndex) {
    pName[0] = '\0';
    ::if_indextoname(dwIndex, pName);
    if (std::strcmp(pName, kSwitchName) == 0 || std::strcmp(pName, kEthernetName) == 0) return 1;
  }
  return 0;
}
