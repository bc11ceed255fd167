// SPDX-License-Identifier: MIT
// The choice of the WAN interface: a dialled link before the switch, the switch before the plain Ethernet port.

#include <devsupport/db/DbParam.h>
#include <devsupport/net/LocalAddress.h>
#include <devsupport/net/WanInterface.h>
#include <devsupport/text/StringEdit.h>
#include <net/if.h>

#include <cstdio>

namespace {

constexpr const char *kBeforeEthernet[] = {"ppp0", "esw0"};

bool HasAddress(char *pAddress, const char *pInterface) {
  return GetLocalIp(pAddress, pInterface) != 0 || GetLocalIPv6(pAddress, pInterface) != 0;
}

/// "eth0", or its VLAN sub-interface when the configuration names one.
void WriteEthernetName(char *pInterface) {
  const int nVlan = GetDbParamToInt("vlan", 0);
  if (nVlan < 1) {
    StrNcpy(pInterface, "eth0", IFNAMSIZ);
  } else {
    std::snprintf(pInterface, IFNAMSIZ, "eth0.%d", nVlan);
  }
}

}  // namespace

int GetWanIp(char *pAddress, char *pInterface) {
  for (const char *const pName : kBeforeEthernet) {
    StrNcpy(pInterface, pName, IFNAMSIZ);
    if (HasAddress(pAddress, pInterface)) return 1;
  }
  WriteEthernetName(pInterface);
  return HasAddress(pAddress, pInterface) ? 1 : 0;
}
