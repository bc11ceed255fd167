// Addresses of real interfaces, as each query tells them and as it fails.

#include <arpa/inet.h>
#include <devsupport/net/LocalAddress.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "NetworkTest.h"
#include "support/CapturedOutput.h"
#include "support/FaultInjection.h"

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
  return __real_ioctl(fd, request, record);
}

namespace {

using devsupport::test::AddInterface;
using devsupport::test::CapturedOutput;
using devsupport::test::CountDescriptors;
using devsupport::test::FailCall;
using devsupport::test::HideFolder;
using devsupport::test::Ip;
using devsupport::test::NetworkTest;
using devsupport::test::WriteFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kPreset = -4711;

// ---- GetLocalIp -----------------------------------------------------------------------------------------------

struct TQueryOutcome {
  int result = kPreset;
  std::string address;
  std::string printed;
};

TQueryOutcome AskLocalIp(const char *interface) {
  TQueryOutcome outcome;
  char address[16 + 1];
  std::memset(address, '#', sizeof address);
  CapturedOutput err(stderr);
  outcome.result = GetLocalIp(address, interface);
  outcome.printed = err.Take();
  EXPECT_EQ(address[16], '#') << "written behind the 16 characters";
  outcome.address = address;
  return outcome;
}

class LocalIp : public NetworkTest {};

TEST_F(LocalIp, OfInterfaceWithAddress_Returns1AndTheAddressSilently) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"10.1.2.3/24"});
    const auto outcome = AskLocalIp("eth0");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "10.1.2.3");
    EXPECT_EQ(outcome.printed, "");
  });
}

TEST_F(LocalIp, LongestAddress_FillsTheBuffer) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"192.168.100.200/24"});
    EXPECT_EQ(AskLocalIp("eth0").address, "192.168.100.200");
  });
}

TEST_F(LocalIp, OfInterfaceWithoutAddress_Returns0AndLeavesLoopback) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"2001:db8::5/64"});
    const auto outcome = AskLocalIp("eth0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, "127.0.0.1");
    EXPECT_EQ(outcome.printed, "ioctl:Cannot assign requested address[eth0]\n");
  });
}

TEST_F(LocalIp, OfUnknownInterface_Returns0AndLeavesLoopback) {
  InPrivateNetwork([] {
    const auto outcome = AskLocalIp("ppp7");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, "127.0.0.1");
    EXPECT_EQ(outcome.printed, "ioctl:No such device[ppp7]\n");
  });
}

TEST_F(LocalIp, OfEmptyName_Returns0) {
  InPrivateNetwork([] {
    const auto outcome = AskLocalIp("");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.printed, "ioctl:No such device[]\n");
  });
}

TEST_F(LocalIp, NameOf15Characters_IsWhole) {
  InPrivateNetwork([] {
    AddInterface("abcdefghijklmno", {"10.1.2.3/24"});
    EXPECT_EQ(AskLocalIp("abcdefghijklmno").address, "10.1.2.3");
  });
}

TEST_F(LocalIp, LongerName_IsCutTo15CharactersInTheRequestAndPrintedWhole) {
  InPrivateNetwork([] {
    EXPECT_EQ(AskLocalIp("abcdefghijklmnopqrst").printed, "ioctl:No such device[abcdefghijklmnopqrst]\n");
    AddInterface("abcdefghijklmno", {"10.1.2.3/24"});
    const auto outcome = AskLocalIp("abcdefghijklmnopqrst");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "10.1.2.3");
  });
}

TEST_F(LocalIp, WithoutSocket_Returns0AndSaysWhy) {
  FailCall fail("socket", 1);
  const auto outcome = AskLocalIp("lo");
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.address, "127.0.0.1");
  EXPECT_EQ(outcome.printed, "socket: Too many open files\n");
}

TEST_F(LocalIp, WhenTheRequestFails_ClosesItsSocket) {
  const int before = CountDescriptors();
  FailCall fail("ioctl", 1);
  EXPECT_EQ(AskLocalIp("lo").printed, "ioctl:Input/output error[lo]\n");
  EXPECT_EQ(CountDescriptors(), before);
}

// ---- GetLocalIPv6 ---------------------------------------------------------------------------------------------

constexpr const char *kUntouched = "never written";

TQueryOutcome AskLocalIPv6(const char *interface) {
  TQueryOutcome outcome;
  char address[46 + 1];
  std::memset(address, '#', sizeof address);
  std::strcpy(address, kUntouched);
  CapturedOutput err(stderr);
  outcome.result = GetLocalIPv6(address, interface);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(address[46], '#') << "written behind the 46 characters";
  outcome.address = address;
  return outcome;
}

class LocalIPv6 : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (::access("/proc/net/if_inet6", R_OK) != 0) GTEST_SKIP() << "this kernel has no IPv6";
  }

  /// Has the query read a file of our own.
  static TQueryOutcome AskWithFile(const std::string &text, const char *interface) {
    HideFolder("/proc");
    WriteFile("/proc/net/if_inet6", text);
    return AskLocalIPv6(interface);
  }
};

TEST_F(LocalIPv6, OfInterfaceWithGlobalAddress_Returns1AndItsCompressedText) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"2001:db8:0:0:1:0:0:5/64"});
    const auto outcome = AskLocalIPv6("eth0");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "2001:db8::1:0:0:5");
  });
}

TEST_F(LocalIPv6, LongestAddress_IsWhole) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"2001:db81:2222:3333:4444:5555:6666:7777/64"});
    EXPECT_EQ(AskLocalIPv6("eth0").address, "2001:db81:2222:3333:4444:5555:6666:7777");
  });
}

TEST_F(LocalIPv6, BesideALinkLocalAddress_IsFoundInAnyOrder) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"fe80::1/64", "2001:db8::5/64", "fec0::7/64"});
    const auto outcome = AskLocalIPv6("eth0");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "2001:db8::5");
  });
}

TEST_F(LocalIPv6, UniqueLocalAddress_CountsAsGlobal) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"fd00::5/64"});
    const auto outcome = AskLocalIPv6("eth0");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "fd00::5");
  });
}

TEST_F(LocalIPv6, OfInterfaceWithLinkLocalAddressOnly_Returns0AndLeavesThatAddress) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"fe80::1/64"});
    const auto outcome = AskLocalIPv6("eth0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, "fe80::1");
  });
}

TEST_F(LocalIPv6, OfLoopback_Returns0AndLeavesItsAddress) {
  InPrivateNetwork([] {
    Ip({"link set lo up"});
    const auto outcome = AskLocalIPv6("lo");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, "::1");
  });
}

TEST_F(LocalIPv6, OfInterfaceWithoutAddress_Returns0AndTouchesNothing) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"10.1.2.3/24"});
    AddInterface("eth1", {"2001:db8::5/64", "fe80::1/64"});
    const auto outcome = AskLocalIPv6("eth0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, kUntouched);
  });
}

TEST_F(LocalIPv6, NameThatOnlyBeginsAlike_IsAnotherInterface) {
  InPrivateNetwork([] {
    AddInterface("eth0.5", {"2001:db8::5/64"});
    EXPECT_EQ(AskLocalIPv6("eth0").result, 0);
    EXPECT_EQ(AskLocalIPv6("eth0.55").result, 0);
    EXPECT_EQ(AskLocalIPv6("eth0.5").result, 1);
  });
}

TEST_F(LocalIPv6, NameOf15Characters_IsFound) {
  InPrivateNetwork([] {
    AddInterface("abcdefghijklmno", {"2001:db8::5/64"});
    EXPECT_EQ(AskLocalIPv6("abcdefghijklmno").result, 1);
    EXPECT_EQ(AskLocalIPv6("abcdefghijklmnop").result, 0);
  });
}

TEST_F(LocalIPv6, InterfaceIndexBeyond255_IsFound) {
  InPrivateNetwork([] {
    AddInterface("ppp0", {"2001:db8::5/64"}, 0x12c);
    AddInterface("eth0", {"2001:db8::6/64"});
    EXPECT_EQ(AskLocalIPv6("ppp0").address, "2001:db8::5");
    EXPECT_EQ(AskLocalIPv6("eth0").address, "2001:db8::6");
  });
}

TEST_F(LocalIPv6, WithoutTheKernelsFile_Returns0AndTouchesNothing) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"2001:db8::5/64"});
    HideFolder("/proc");
    const auto outcome = AskLocalIPv6("eth0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, kUntouched);
  });
}

TEST_F(LocalIPv6, SeveralAddresses_TheFirstGlobalLineWinsOverLaterLines) {
  InPrivateNetwork([] {
    const auto outcome = AskWithFile(
        "fe800000000000000000000000000001 02 40 20 80     eth0\n"
        "20010db8000000000000000000000001 02 40 00 80     eth0\n"
        "20010db8000000000000000000000002 02 40 00 80     eth0\n",
        "eth0");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "2001:db8::1");
  });
}

TEST_F(LocalIPv6, AfterAFailedSearch_TheLastAddressIsLeftBehind) {
  InPrivateNetwork([] {
    const auto outcome = AskWithFile(
        "fe800000000000000000000000000001 02 40 20 80     eth0\n"
        "fec00000000000000000000000000002 02 40 40 80     eth0\n"
        "fe800000000000000000000000000003 03 40 20 80     eth1\n",
        "eth0");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.address, "fec0::2");
  });
}

TEST_F(LocalIPv6, NameInTheFile_CountsUpTo20Characters) {
  InPrivateNetwork([] {
    const std::string line = "20010db8000000000000000000000001 02 40 00 80     ";
    EXPECT_EQ(AskWithFile(line + "abcdefghijklmnopqrst\n", "abcdefghijklmnopqrst").result, 1);
    EXPECT_EQ(AskWithFile(line + "abcdefghijklmnopqrstuvwxyz\n", "abcdefghijklmnopqrst").result, 1);
    EXPECT_EQ(AskWithFile(line + "abcdefghijklmnopqrs\n", "abcdefghijklmnopqrst").result, 0);
  });
}

TEST_F(LocalIPv6, LinesThatAreNoneOfTheKernels_AreSkipped) {
  InPrivateNetwork([] {
    const auto outcome = AskWithFile(
        "\n"
        "20010db8000000000000000000000001 02 40\n"
        "zzzz0db8000000000000000000000001 02 40 00 80     eth0\n" +
            std::string(5000, 'f') + "\n" + "20010db8000000000000000000000002 02 40 00 80     eth0",
        "eth0");
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.address, "2001:db8::2");
  });
}

// ---- GetLocalIfList -------------------------------------------------------------------------------------------

std::string Words(const TIfAddrInfo &record) {
  return std::string(record.szName) + " " + record.szAddress + " " + record.szHwAddress;
}

std::vector<std::string> AskList(int max, const std::string &printed = "") {
  std::vector<TIfAddrInfo> records(static_cast<std::size_t>(std::max(max, 0)));
  for (TIfAddrInfo &record : records) std::memset(&record, '#', sizeof record);
  CapturedOutput err(stderr);
  const int count = GetLocalIfList(records.data(), max);
  EXPECT_EQ(err.Take(), printed);
  EXPECT_THAT(count, ::testing::AllOf(::testing::Ge(0), ::testing::Le(std::max(max, 0))));
  std::vector<std::string> words;
  for (int i = 0; i < count; ++i) words.push_back(Words(records[static_cast<std::size_t>(i)]));
  return words;
}

std::vector<std::string> NamesOf(const std::vector<std::string> &list) {
  std::vector<std::string> names;
  for (const std::string &words : list) names.push_back(words.substr(0, words.find(' ')));
  return names;
}

/// The names of all interfaces that have an IPv4 address, in the kernel's own order.
std::vector<std::string> KernelOrder() {
  std::vector<ifreq> requests(64);
  ifconf config{};
  config.ifc_len = static_cast<int>(requests.size() * sizeof(ifreq));
  config.ifc_req = requests.data();
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(::ioctl(fd, SIOCGIFCONF, &config), 0);
  ::close(fd);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < static_cast<std::size_t>(config.ifc_len) / sizeof(ifreq); ++i) {
    names.emplace_back(requests[i].ifr_name);
  }
  return names;
}

class LocalIfList : public NetworkTest {};

TEST(IfAddrInfo, RecordsLieBackToBackInTheFixedLayout) {
  EXPECT_EQ(offsetof(TIfAddrInfo, szName), 0U);
  EXPECT_EQ(offsetof(TIfAddrInfo, szAddress), 16U);
  EXPECT_EQ(offsetof(TIfAddrInfo, szHwAddress), 32U);
  EXPECT_EQ(sizeof(TIfAddrInfo[2]), 100U);
}

TEST_F(LocalIfList, OfOneInterface_HasNameAddressAndUpperCaseHardwareAddress) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"10.1.2.3/24"});
    Ip({"link set eth0 address 02:ab:cd:ef:09:f0"});
    EXPECT_THAT(AskList(4), ElementsAre("eth0 10.1.2.3 02:AB:CD:EF:09:F0"));
  });
}

TEST_F(LocalIfList, LongestTexts_AreWhole) {
  InPrivateNetwork([] {
    AddInterface("abcdefghijklmno", {"192.168.100.200/24"});
    Ip({"link set abcdefghijklmno address fe:fe:fe:fe:fe:fe"});
    EXPECT_THAT(AskList(1), ElementsAre("abcdefghijklmno 192.168.100.200 FE:FE:FE:FE:FE:FE"));
  });
}

TEST_F(LocalIfList, WithoutInterfaces_IsEmpty) {
  InPrivateNetwork([] { EXPECT_THAT(AskList(4), IsEmpty()); });
}

TEST_F(LocalIfList, InterfacesWithoutIPv4Address_AreLeftOut) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"2001:db8::5/64"});
    AddInterface("eth1", {});
    EXPECT_THAT(AskList(4), IsEmpty());
  });
}

TEST_F(LocalIfList, LoopbackAddress_IsLeftOutEvenOnARealInterface) {
  InPrivateNetwork([] {
    Ip({"link set lo up"});
    AddInterface("eth0", {"127.0.0.1/32"});
    AddInterface("eth1", {"10.1.2.3/24"});
    EXPECT_THAT(NamesOf(AskList(4)), ElementsAre("eth1"));
  });
}

TEST_F(LocalIfList, HardwareAddressOfZeros_IsLeftOutWhateverTheAddress) {
  InPrivateNetwork([] {
    Ip({"link set lo up", "addr add 10.9.9.9/32 dev lo"});
    AddInterface("eth0", {"10.1.2.3/24"});
    EXPECT_THAT(NamesOf(AskList(4)), ElementsAre("eth0"));
  });
}

TEST_F(LocalIfList, StandsInTheReverseOfTheKernelsOrder) {
  InPrivateNetwork([] {
    AddInterface("eth1", {"10.1.1.1/24"}, 40);
    AddInterface("eth2", {"10.1.2.1/24"}, 20);
    AddInterface("eth3", {"10.1.3.1/24"}, 30);
    std::vector<std::string> expected = KernelOrder();
    ASSERT_EQ(expected.size(), 3U);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(NamesOf(AskList(8)), expected);
  });
}

TEST_F(LocalIfList, SeveralAddressesOfOneInterface_ComeOnceEach) {
  InPrivateNetwork([] {
    AddInterface("eth0", {"10.1.1.1/24", "10.1.1.2/24"});
    Ip({"addr add 10.2.2.2/24 dev eth0 label eth0:1", "link set eth0 address 02:00:00:00:00:01"});
    EXPECT_THAT(AskList(8),
                ::testing::UnorderedElementsAre("eth0 10.1.1.1 02:00:00:00:00:01", "eth0 10.1.1.2 02:00:00:00:00:01",
                                                "eth0:1 10.2.2.2 02:00:00:00:00:01"));
  });
}

TEST_F(LocalIfList, NeverFillsMoreThanMaxRecords) {
  InPrivateNetwork([] {
    AddInterface("eth1", {"10.1.1.1/24"});
    AddInterface("eth2", {"10.1.2.1/24"});
    AddInterface("eth3", {"10.1.3.1/24"});
    EXPECT_THAT(NamesOf(AskList(2)), ElementsAre("eth3", "eth2"));
    EXPECT_THAT(AskList(0), IsEmpty());
    EXPECT_THAT(AskList(-1), IsEmpty());
  });
}

TEST_F(LocalIfList, ARecordThatIsNotKept_IsOverwrittenByTheNext) {
  InPrivateNetwork([] {
    AddInterface("eth1", {"10.1.1.1/24"});
    AddInterface("eth2", {"127.0.0.1/32"});
    EXPECT_THAT(NamesOf(AskList(1)), ElementsAre("eth1"));
  });
}

TEST_F(LocalIfList, MoreThan16Interfaces_OnlyTheKernelsFirst16AreSeen) {
  InPrivateNetwork([] {
    for (int i = 1; i <= 18; ++i) {
      AddInterface("eth" + std::to_string(i), {"10.1." + std::to_string(i) + ".1/24"});
    }
    std::vector<std::string> expected = KernelOrder();
    ASSERT_EQ(expected.size(), 18U);
    expected.resize(16);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(NamesOf(AskList(32)), expected);
  });
}

TEST_F(LocalIfList, InterfaceThatDoesNotAnswer_IsLeftOutWithoutAWord) {
  InPrivateNetwork([] {
    AddInterface("eth1", {"10.1.1.1/24"});
    AddInterface("eth2", {"10.1.2.1/24"});
    // The first request lists the interfaces; then each is asked for its address and its hardware address.
    for (const int nth : {2, 3}) {
      FailCall fail("ioctl", nth);
      EXPECT_THAT(NamesOf(AskList(8)), ElementsAre("eth1")) << "with request " << nth << " failing";
      EXPECT_TRUE(fail.Happened());
    }
  });
}

TEST_F(LocalIfList, WithoutSocket_Returns0AndSaysWhy) {
  FailCall fail("socket", 1);
  EXPECT_THAT(AskList(4, "cpm: socket: Too many open files\n"), IsEmpty());
}

TEST_F(LocalIfList, WhenTheKernelGivesNoList_Returns0SaysWhyAndClosesItsSocket) {
  const int before = CountDescriptors();
  FailCall fail("ioctl", 1);
  EXPECT_THAT(AskList(4, "cpm: ioctl: Input/output error\n"), IsEmpty());
  EXPECT_EQ(CountDescriptors(), before);
}

// ---- Address texts --------------------------------------------------------------------------------------------

TEST(HostNameStr, DottedAddressesAndBlanks_AreNoHostNames) {
  EXPECT_EQ(IsHostNameStr("192.168.0.1"), 0);
  EXPECT_EQ(IsHostNameStr(" 10.0.0.1 "), 0);
  EXPECT_EQ(IsHostNameStr("..."), 0);
  EXPECT_EQ(IsHostNameStr("0123456789"), 0);
  EXPECT_EQ(IsHostNameStr(""), 0);
}

TEST(HostNameStr, OneOtherCharacterAnywhere_MakesAHostName) {
  EXPECT_EQ(IsHostNameStr("sip.example.org"), 1);
  EXPECT_EQ(IsHostNameStr("192.168.0.1x"), 1);
  EXPECT_EQ(IsHostNameStr("-1"), 1);
  EXPECT_EQ(IsHostNameStr("10.0.0.1\t"), 1);
  EXPECT_EQ(IsHostNameStr("10.0.0.1:5060"), 1);
  EXPECT_EQ(IsHostNameStr("fe80::1"), 1);
}

TEST(HostNameStr, EveryCharacterAlone_IsANameUnlessDigitDotOrBlank) {
  for (int c = 1; c < 256; ++c) {
    const char text[] = {'1', static_cast<char>(c), '\0'};
    const bool isAddress = (c >= '0' && c <= '9') || c == '.' || c == ' ';
    EXPECT_EQ(IsHostNameStr(text), isAddress ? 0 : 1) << "character " << c;
  }
}

TEST(HostNameStr, Null_IsNoHostName) { EXPECT_EQ(IsHostNameStr(nullptr), 0); }

TEST(IPv6Str, TwoColonsOrMore_MakeAnIPv6Address) {
  EXPECT_EQ(IsIPv6Str("::"), 1);
  EXPECT_EQ(IsIPv6Str("fe80::1"), 1);
  EXPECT_EQ(IsIPv6Str("a:b:c"), 1);
  EXPECT_EQ(IsIPv6Str(":anything between:"), 1);
}

TEST(IPv6Str, FewerColons_DoNot) {
  EXPECT_EQ(IsIPv6Str(""), 0);
  EXPECT_EQ(IsIPv6Str("10.0.0.1"), 0);
  EXPECT_EQ(IsIPv6Str("10.0.0.1:5060"), 0);
  EXPECT_EQ(IsIPv6Str(":"), 0);
}

}  // namespace
