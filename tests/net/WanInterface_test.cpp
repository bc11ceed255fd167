// SPDX-License-Identifier: MIT
// The choice of the WAN interface among real interfaces, with the parameter "vlan" from a real store.

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <devsupport/net/WanInterface.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "tests/net/NetworkTest.h"
#include "tests/support/CapturedOutput.h"

namespace {

using namespace devsupport::test;

constexpr const char *kNoDevice = "ioctl:No such device[";
constexpr const char *kNoAddress = "ioctl:Cannot assign requested address[";

/// The messages of GetLocalIp about an interface.
std::string Missing(const std::string &interface) { return kNoDevice + interface + "]\n"; }
std::string WithoutIPv4(const std::string &interface) { return kNoAddress + interface + "]\n"; }

struct TWan {
  int result;
  std::string interface;
  std::string address;
  std::string printed;
  bool operator==(const TWan &) const = default;
};

std::ostream &operator<<(std::ostream &out, const TWan &wan) {
  return out << "{" << wan.result << ", \"" << wan.interface << "\", \"" << wan.address << "\", \"" << wan.printed
             << "\"}";
}

TWan Ask() {
  char address[46 + 1];
  char interface[IFNAMSIZ + 1];
  std::memset(address, '#', sizeof address);
  std::memset(interface, '#', sizeof interface);
  CapturedOutput err(stderr);
  const int result = GetWanIp(address, interface);
  std::string printed = err.Take();
  EXPECT_EQ(address[46], '#') << "written after the 46 characters";
  EXPECT_EQ(interface[IFNAMSIZ], '#') << "written after the 16 characters";
  return {result, interface, address, printed};
}

/// Runs the body with a new store whose parameter "vlan" is set; NULL means no parameter.
void WithVlan(const char *vlan, const std::function<void()> &body) {
  HideFolder("/tmp");
  const std::string home = "/tmp/store/";
  std::filesystem::create_directories(home);
  std::int32_t result = -4711;
  ASSERT_EQ(BerkDb_Open(home.c_str(), "config.db", &result), 1) << "the store does not open: " << result;
  if (vlan != nullptr) {
    EXPECT_EQ(BerkDb_PutStr(g_uDb.tb_parameter, "vlan", vlan), 1);
  }
  body();
  BerkDb_Close();
}

class WanIp : public NetworkTest {};

TEST_F(WanIp, Ppp0WithIPv4_WinsOverTheOthers) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("esw0", {"10.2.0.1/24"});
  AddInterface("ppp0", {"10.1.0.1/24", "2001:db8:1::1/64"});
  EXPECT_EQ(Ask(), (TWan{1, "ppp0", "10.1.0.1", ""}));
}

TEST_F(WanIp, Ppp0WithGlobalIPv6Only_WinsOverIPv4OfTheOthers) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("esw0", {"10.2.0.1/24"});
  AddInterface("ppp0", {"2001:db8:1::1/64"});
  EXPECT_EQ(Ask(), (TWan{1, "ppp0", "2001:db8:1::1", WithoutIPv4("ppp0")}));
}

TEST_F(WanIp, Ppp0WithLinkLocalAddressOnly_IsPassedOver) {
  AddInterface("esw0", {"10.2.0.1/24"});
  AddInterface("ppp0", {"fe80::1/64"});
  EXPECT_EQ(Ask(), (TWan{1, "esw0", "10.2.0.1", WithoutIPv4("ppp0")}));
}

TEST_F(WanIp, Esw0WithIPv4_WinsOverEth0) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("esw0", {"10.2.0.1/24", "2001:db8:2::1/64"});
  EXPECT_EQ(Ask(), (TWan{1, "esw0", "10.2.0.1", Missing("ppp0")}));
}

TEST_F(WanIp, Esw0WithGlobalIPv6Only_WinsOverEth0) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("esw0", {"2001:db8:2::1/64"});
  EXPECT_EQ(Ask(), (TWan{1, "esw0", "2001:db8:2::1", Missing("ppp0") + WithoutIPv4("esw0")}));
}

TEST_F(WanIp, StoreThatIsNotOpen_MeansEth0) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("eth0.5", {"10.3.5.1/24"});
  EXPECT_EQ(Ask(), (TWan{1, "eth0", "10.3.0.1", Missing("ppp0") + Missing("esw0")}));
}

TEST_F(WanIp, Eth0WithGlobalIPv6Only_IsFound) {
  AddInterface("eth0", {"2001:db8:3::1/64"});
  EXPECT_EQ(Ask(), (TWan{1, "eth0", "2001:db8:3::1", Missing("ppp0") + Missing("esw0") + WithoutIPv4("eth0")}));
}

TEST_F(WanIp, OtherInterfaces_AreNeverTheWan) {
  AddInterface("eth1", {"10.4.0.1/24"});
  AddInterface("ppp1", {"10.5.0.1/24"});
  EXPECT_EQ(Ask().result, 0);
}

TEST_F(WanIp, NoAddressAnywhere_Returns0WithTheLastNameAndLoopback) {
  AddInterface("ppp0", {"fe80::1/64"});
  EXPECT_EQ(Ask(), (TWan{0, "eth0", "127.0.0.1", WithoutIPv4("ppp0") + Missing("esw0") + Missing("eth0")}));
}

TEST_F(WanIp, Eth0WithLinkLocalAddressOnly_Returns0AndLeavesThatAddress) {
  AddInterface("eth0", {"fe80::3/64"});
  EXPECT_EQ(Ask(), (TWan{0, "eth0", "fe80::3", Missing("ppp0") + Missing("esw0") + WithoutIPv4("eth0")}));
}

struct TVlan {
  std::string name;
  const char *vlan;
  std::string interface;
};

void PrintTo(const TVlan &vlan, std::ostream *out) { *out << vlan.name; }

const TVlan kVlans[] = {
    {"Missing_MeansEth0", nullptr, "eth0"},
    {"Of0_MeansEth0", "0", "eth0"},
    {"Negative_MeansEth0", "-5", "eth0"},
    {"Empty_MeansEth0", "", "eth0"},
    {"ThatIsNoNumber_MeansEth0", "5x", "eth0"},
    {"OfMoreDigitsThanAParameterHas_MeansEth0", "00000000000000000000000000000005", "eth0"},
    {"Of1_MeansEth0Dot1", "1", "eth0.1"},
    {"Of5_MeansEth0Dot5", "5", "eth0.5"},
    {"WithLeadingZeros_MeansTheNumber", "0005", "eth0.5"},
    {"Of4094_MeansEth0Dot4094", "4094", "eth0.4094"},
    {"Of32Bits_FillsTheName", "2147483647", "eth0.2147483647"},
    {"Beyond32Bits_IsClamped", "99999999999", "eth0.2147483647"},
};

class WanVlan : public NetworkTest, public ::testing::WithParamInterface<TVlan> {};

TEST_P(WanVlan, Parameter) {
  const std::string &interface = GetParam().interface;
  AddInterface(interface, {"10.3.0.1/24"});
  WithVlan(GetParam().vlan, [&] {
    EXPECT_EQ(Ask(), (TWan{1, interface, "10.3.0.1", Missing("ppp0") + Missing("esw0")}));
  });
}

INSTANTIATE_TEST_SUITE_P(, WanVlan, ::testing::ValuesIn(kVlans), [](const auto &vlan) { return vlan.param.name; });

TEST_F(WanIp, WithAVlan_Eth0ItselfIsNotAsked) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("eth0.4", {"10.3.4.1/24"});
  WithVlan("5", [] {
    EXPECT_EQ(Ask(), (TWan{0, "eth0.5", "127.0.0.1", Missing("ppp0") + Missing("esw0") + Missing("eth0.5")}));
  });
}

TEST_F(WanIp, WithAVlan_GlobalIPv6OfTheSubInterfaceIsFound) {
  AddInterface("eth0.5", {"2001:db8:5::1/64", "fe80::5/64"});
  WithVlan("5", [] {
    EXPECT_EQ(Ask(), (TWan{1, "eth0.5", "2001:db8:5::1", Missing("ppp0") + Missing("esw0") + WithoutIPv4("eth0.5")}));
  });
}

TEST_F(WanIp, WithAVlan_Ppp0AndEsw0StillComeFirst) {
  AddInterface("eth0.5", {"10.3.5.1/24"});
  AddInterface("esw0", {"10.2.0.1/24"});
  WithVlan("5", [] {
    EXPECT_EQ(Ask(), (TWan{1, "esw0", "10.2.0.1", Missing("ppp0")}));
    AddInterface("ppp0", {"10.1.0.1/24"});
    EXPECT_EQ(Ask(), (TWan{1, "ppp0", "10.1.0.1", ""}));
  });
}

TEST_F(WanIp, VlanThatChanges_IsReadAfreshAtEveryCall) {
  AddInterface("eth0", {"10.3.0.1/24"});
  AddInterface("eth0.5", {"10.3.5.1/24"});
  WithVlan("5", [] {
    EXPECT_EQ(Ask().interface, "eth0.5");
    EXPECT_EQ(BerkDb_PutStr(g_uDb.tb_parameter, "vlan", "0"), 1);
    EXPECT_EQ(Ask().interface, "eth0");
  });
}

}  // namespace
