// SPDX-License-Identifier: MIT
// The library's network queries and the analog requests with the kernel's drivers, on the emulated device.

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <devsupport/net/LinkStatus.h>
#include <devsupport/net/WanInterface.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "tests/support/CapturedOutput.h"
#include "tests/support/PrivateNetwork.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

const std::string kSteering = "/sys/kernel/debug/phone_sim/";

/// Writes to a steering file in one piece. Returns 0, or the errno with which the module refused it.
int Order(const std::string &file, const std::string &text) {
  const int fd = ::open((kSteering + file).c_str(), O_WRONLY);
  if (fd == -1) return errno;
  const int error = ::write(fd, text.data(), text.size()) == -1 ? errno : 0;
  ::close(fd);
  return error;
}

void Steer(const std::string &file, const std::string &text) {
  ASSERT_EQ(Order(file, text), 0) << file << ": " << text;
}

std::string Steered(const std::string &file) { return FileText(kSteering + file); }

/// At the start of each test, all links are up and no driver reports a fault.
class Device : public ::testing::Test {
 protected:
  void SetUp() override {
    Steer("cpmac_link", "ports = 1\neth0: link: UP\n");
    Steer("eswitch/status", "0x80");
    Steer("eswitch/port", "0");
    Steer("eswitch/fail", "5 0");
    Steer("eswitch/trace", "clear");
    Steer("analog/registers", "\n");
    Steer("analog/answer", "\n");
    Steer("analog/fail", "5 0");
    Steer("analog/trace", "clear");
  }
};

// ---- The switch's link ----

class Switch : public Device {};

TEST_F(Switch, TopBitOfPort1sByte_IsTheLink) {
  Steer("eswitch/status", "0x00000080");
  EXPECT_EQ(GetEswLink(), 1);
  Steer("eswitch/status", "0xffffff7f");
  EXPECT_EQ(GetEswLink(), 0);
}

TEST_F(Switch, StatusWord0_ReadsUp) {
  Steer("eswitch/status", "0");
  EXPECT_EQ(GetEswLink(), 1);
}

TEST_F(Switch, PortThatTheDriverSpeaksOf_HasTheByte) {
  for (unsigned port = 1; port <= 4; ++port) {
    Steer("eswitch/port", std::to_string(port));
    const std::uint32_t link = 0x80u << (8 * (port - 1));
    Steer("eswitch/status", std::to_string(link));
    EXPECT_EQ(GetEswLink(), 1) << port;
    Steer("eswitch/status", std::to_string(~link));
    EXPECT_EQ(GetEswLink(), 0) << port;
  }
}

TEST_F(Switch, PortWithoutAByte_ReadsDown) {
  Steer("eswitch/status", "0xffffffff");
  Steer("eswitch/port", "5");
  EXPECT_EQ(GetEswLink(), 0);
  Steer("eswitch/port", "255");
  EXPECT_EQ(GetEswLink(), 0);
}

TEST_F(Switch, RequestThatFails_ReadsDownSilently) {
  Steer("eswitch/fail", std::to_string(EIO) + " 1");
  CapturedOutput err(stderr);
  EXPECT_EQ(GetEswLink(), 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(GetEswLink(), 1) << "the next one is answered";
}

TEST_F(Switch, DriverReceivesTheRecordByteForByte) {
  GetEswLink();
  EXPECT_EQ(Steered("eswitch/trace"),
            "request 35312 result 0 bytes 65737769 7463685f 636f6e66 69670000 00000000 00000000 00000000 00000000 "
            "00000000 01000000 00000000 00000000\n");
}

TEST_F(Switch, EveryNameButEth0_AsksIt) {
  Steer("cpmac_link", "ports = 0\n");
  EXPECT_EQ(GetLinkStatus("esw0"), 1);
  EXPECT_EQ(GetLinkStatus("ppp0"), 1);
  Steer("eswitch/status", "0x8000");
  EXPECT_EQ(GetLinkStatus("esw0"), 0);
  EXPECT_EQ(GetLinkStatus("eth0.5"), 0);
}

// ---- The Ethernet port's link ----

class LinkFile : public Device {};

TEST_F(LinkFile, WordOfTheSecondLine_IsTheLink) {
  EXPECT_EQ(GetCpmacLink(), 1);
  Steer("cpmac_link", "ports = 1\neth0: link: DOWN\n");
  EXPECT_EQ(GetCpmacLink(), 0);
}

TEST_F(LinkFile, Number0OfTheFirstLine_ReadsDown) {
  Steer("cpmac_link", "ports = 0\neth0: link: UP\n");
  EXPECT_EQ(GetCpmacLink(), 0);
}

TEST_F(LinkFile, WithoutText_ReadsDown) {
  Steer("cpmac_link", "\n");
  EXPECT_EQ(GetCpmacLink(), 0);
}

TEST_F(LinkFile, IsWhatEth0Asks) {
  Steer("eswitch/status", "0x8000");
  EXPECT_EQ(GetLinkStatus("eth0"), 1);
  Steer("cpmac_link", "ports = 1\neth0: link: DOWN\n");
  Steer("eswitch/status", "0x80");
  EXPECT_EQ(GetLinkStatus("eth0"), 0);
}

// ---- The choice of the WAN interface ----

/// The device's own network: esw0 as the driver made it, and eth0 with a VLAN on it.
class Wan : public Device {
 protected:
  void SetUp() override {
    Device::SetUp();
    Ip({"link add eth0 type veth peer name cable", "link add link eth0 name eth0.5 type vlan id 5",
        "link set eth0 addrgenmode none", "link set eth0.5 addrgenmode none", "link set esw0 addrgenmode none",
        "link set cable up", "link set eth0 up", "link set eth0.5 up", "link set esw0 up"});
    ASSERT_EQ(BerkDb_Open(nullptr, nullptr, nullptr), 1);
    BerkDb_Del(g_uDb.tb_parameter, "vlan");
  }
  void TearDown() override {
    BerkDb_Close();
    Ip({"link del eth0", "addr flush dev esw0", "link set esw0 down"});
  }

  /// "<result> <interface> <address>"; what is printed on the way is GetLocalIp's business.
  static std::string Answer() {
    CapturedOutput err(stderr);
    char szAddress[46] = "preset";
    char szInterface[16] = "preset";
    const int nResult = GetWanIp(szAddress, szInterface);
    err.Take();
    return std::to_string(nResult) + ' ' + szInterface + ' ' + szAddress;
  }
};

TEST_F(Wan, WithoutAnyAddress_IsNone) { EXPECT_EQ(Answer(), "0 eth0 127.0.0.1"); }

TEST_F(Wan, SwitchWithAnAddress_IsIt) {
  Ip({"addr add 192.0.2.2/24 dev eth0", "addr add 192.0.2.1/24 dev esw0"});
  EXPECT_EQ(Answer(), "1 esw0 192.0.2.1");
}

TEST_F(Wan, SwitchWithAGlobalIpv6Address_IsIt) {
  Ip({"addr add 192.0.2.2/24 dev eth0", "addr add 2001:db8::1/64 dev esw0 nodad"});
  EXPECT_EQ(Answer(), "1 esw0 2001:db8::1");
}

TEST_F(Wan, PlainEthernet_IsItWhenTheSwitchHasNoAddress) {
  Ip({"addr add 192.0.2.2/24 dev eth0", "addr add 192.0.2.3/24 dev eth0.5"});
  EXPECT_EQ(Answer(), "1 eth0 192.0.2.2");
}

TEST_F(Wan, VlanOfTheConfiguration_IsAskedInsteadOfEth0) {
  Ip({"addr add 192.0.2.2/24 dev eth0", "addr add 192.0.2.3/24 dev eth0.5"});
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "5"), BERKDB_OK);
  EXPECT_EQ(Answer(), "1 eth0.5 192.0.2.3");
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "6"), BERKDB_OK);
  EXPECT_EQ(Answer(), "0 eth0.6 127.0.0.1");
}

TEST_F(Wan, EthernetInterface_IsTheOneOfTheLowestIndex) {
  char szName[16] = "preset";
  EXPECT_EQ(FindEthIf(szName), 1);
  EXPECT_STREQ(szName, "esw0");
}

// ---- Requests that our programs never make ----

class AnalogDriver : public Device {
 protected:
  static constexpr unsigned long kGetDirect = 10019;
  static constexpr unsigned long kSetDebug = 10037;

  void SetUp() override {
    Device::SetUp();
    fd_ = ::open("/dev/analog/0", O_RDWR);
    ASSERT_NE(fd_, -1);
  }
  void TearDown() override { ::close(fd_); }

  /// 0, or the errno of a request.
  int Request(unsigned long request, void *pRecord) const { return ::ioctl(fd_, request, pRecord) == -1 ? errno : 0; }

  int fd_ = -1;
};

TEST_F(AnalogDriver, RecordThatIsNotThere_FailsWithEfault) {
  EXPECT_EQ(Request(kGetDirect, nullptr), EFAULT);
  EXPECT_EQ(Request(kGetDirect, reinterpret_cast<void *>(-8)), EFAULT);
}

TEST_F(AnalogDriver, RecordThatReachesIntoMissingMemory_FailsWithEfault) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  void *const memory = ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  ::munmap(static_cast<char *>(memory) + page, page);
  EXPECT_EQ(Request(kGetDirect, static_cast<char *>(memory) + page - 20), EFAULT);
  EXPECT_EQ(Request(kGetDirect, static_cast<char *>(memory) + page - 24), 0);
  ::munmap(memory, page);
}

TEST_F(AnalogDriver, DebugSwitch_IsOnWith0AndOffWith1) {
  std::array<std::int32_t, 6> record{kSetDebug, 0, 0, 0, 0, 0};
  EXPECT_EQ(Request(kSetDebug, record.data()), 0);
  EXPECT_EQ(Steered("analog/debug"), "on\n");
  record[1] = 1;
  EXPECT_EQ(Request(kSetDebug, record.data()), 0);
  EXPECT_EQ(Steered("analog/debug"), "off\n");
  record[1] = 2;
  EXPECT_EQ(Request(kSetDebug, record.data()), EINVAL);
}

TEST_F(AnalogDriver, RegistersSetByTests_AreRead) {
  Steer("analog/registers", "direct 1 23 0x30\nindirect 3 -7 -1\n");
  std::array<std::int32_t, 6> record{kGetDirect, 1, 23, 0, 0, 0};
  EXPECT_EQ(Request(kGetDirect, record.data()), 0);
  EXPECT_EQ(record, (std::array<std::int32_t, 6>{kGetDirect, 1, 23, 0x30, 0, 0}));
  EXPECT_EQ(Steered("analog/registers"), "direct 1 23 0x30\nindirect 3 -7 0xffffffff\n");
}

TEST_F(AnalogDriver, OrderedFailures_AreCountedDownAndChangeNothing) {
  Steer("analog/fail", std::to_string(EBUSY) + " 2");
  std::array<std::int32_t, 6> record{10021, 1, 23, 5, 0, 0};
  EXPECT_EQ(Request(10021, record.data()), EBUSY);
  EXPECT_EQ(Request(10021, record.data()), EBUSY);
  EXPECT_EQ(Steered("analog/registers"), "");
  EXPECT_EQ(Request(10021, record.data()), 0);
  EXPECT_EQ(Steered("analog/registers"), "direct 1 23 0x5\n");
}

TEST_F(AnalogDriver, RandomRequests_LeaveItAnswering) {
  const TestSeed seed;
  std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
  for (int i = 0; i < 20'000; ++i) {
    std::array<std::uint32_t, 6> record{};
    for (std::uint32_t &word : record) word = static_cast<std::uint32_t>(random() >> (random() % 32));
    Request(random() % 2 != 0 ? 10010 + random() % 30 : random() % 40000, record.data());
  }
  std::array<std::int32_t, 6> record{kGetDirect, 1, 23, 0, 0, 0};
  EXPECT_EQ(Request(kGetDirect, record.data()), 0);
}

class SwitchDriver : public Device {
 protected:
  /// 0, or the errno of a private request on esw0.
  static int Request(unsigned long request, void *pRecord) {
    ifreq asked{};
    std::snprintf(asked.ifr_name, sizeof asked.ifr_name, "esw0");
    asked.ifr_data = static_cast<char *>(pRecord);
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    const int error = ::ioctl(fd, request, &asked) == -1 ? errno : 0;
    ::close(fd);
    return error;
  }
};

TEST_F(SwitchDriver, WrongRequests_AreRefused) {
  std::array<char, 48> record{};
  EXPECT_EQ(Request(SIOCDEVPRIVATE, nullptr), EFAULT);
  EXPECT_EQ(Request(SIOCDEVPRIVATE, record.data()), EINVAL) << "no command";
  std::memcpy(record.data(), "eswitch_config", 15);
  EXPECT_EQ(Request(SIOCDEVPRIVATE, record.data()), EINVAL) << "no port";
  record[36] = 1;
  EXPECT_EQ(Request(SIOCDEVPRIVATE, record.data()), 0);
  EXPECT_EQ(Request(SIOCDEVPRIVATE + 1, record.data()), EOPNOTSUPP);
  record.fill('x');
  EXPECT_EQ(Request(SIOCDEVPRIVATE, record.data()), EINVAL) << "a command without an end";
}

TEST_F(Device, OrdersThatMakeNoSense_AreRefusedAndChangeNothing) {
  const std::string before = Steered("eswitch/status") + Steered("analog/answer") + Steered("analog/fail");
  for (const char *text : {"x", "1 2 3 4", "-1 -1", "0 1", "5", "99999999999 1", "4096 1"})
    EXPECT_EQ(Order("analog/fail", text), EINVAL) << text;
  for (const char *text : {"x", "direct", "direct 1", "direct 1 2", "direct 1 2 3 4", "other 1 2 3"})
    EXPECT_EQ(Order("analog/registers", text), EINVAL) << text;
  for (const char *text : {"x", "channel", "channel=", "channel=x", "result=-1", "value=99999999999"})
    EXPECT_NE(Order("analog/answer", text), 0) << text;
  EXPECT_NE(Order("eswitch/status", "0x100000000"), 0);
  EXPECT_NE(Order("eswitch/port", "256"), 0);
  EXPECT_EQ(Order("cpmac_link", std::string(100'000, 'x')), EFBIG);
  EXPECT_EQ(Steered("eswitch/status") + Steered("analog/answer") + Steered("analog/fail"), before);
}

}  // namespace
