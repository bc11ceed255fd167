// SPDX-License-Identifier: MIT
// Addresses of real interfaces: results and failures of each query.

#include <devsupport/net/LocalAddress.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <ostream>
#include <string>

#include "tests/net/NetworkTest.h"
#include "tests/net/WrappedCalls.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;

constexpr int kPreset = -4711;

// ---- GetLocalIp -----------------------------------------------------------------------------------------------

struct TQueryOutcome {
  int result = kPreset;
  std::string address;
  std::string printed = "";
  bool operator==(const TQueryOutcome &) const = default;
};

std::ostream &operator<<(std::ostream &out, const TQueryOutcome &outcome) {
  return out << outcome.result << " \"" << outcome.address << "\", printed: " << outcome.printed;
}

TQueryOutcome AskLocalIp(const char *interface) {
  TQueryOutcome outcome;
  char address[16 + 1];
  std::memset(address, '#', sizeof address);
  CapturedOutput err(stderr);
  outcome.result = GetLocalIp(address, interface);
  outcome.printed = err.Take();
  EXPECT_EQ(address[16], '#') << "written after the 16 characters";
  outcome.address = address;
  return outcome;
}

class LocalIp : public NetworkTest {};

TEST_F(LocalIp, OfInterfaceWithAddress_Returns1AndTheAddressSilently) {
  AddInterface("eth0", {"10.1.2.3/24"});
  EXPECT_EQ(AskLocalIp("eth0"), (TQueryOutcome{1, "10.1.2.3", ""}));
}

TEST_F(LocalIp, LongestAddress_FillsTheBuffer) {
  AddInterface("eth0", {"192.168.100.200/24"});
  EXPECT_EQ(AskLocalIp("eth0").address, "192.168.100.200");
}

TEST_F(LocalIp, OfInterfaceWithoutAddress_Returns0AndLeavesLoopback) {
  AddInterface("eth0", {"2001:db8::5/64"});
  EXPECT_EQ(AskLocalIp("eth0"), (TQueryOutcome{0, "127.0.0.1", "ioctl:Cannot assign requested address[eth0]\n"}));
}

TEST_F(LocalIp, OfUnknownInterface_Returns0AndLeavesLoopback) {
  EXPECT_EQ(AskLocalIp("ppp7"), (TQueryOutcome{0, "127.0.0.1", "ioctl:No such device[ppp7]\n"}));
}

TEST_F(LocalIp, OfEmptyName_Returns0) {
  const auto outcome = AskLocalIp("");
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.printed, "ioctl:No such device[]\n");
}

TEST_F(LocalIp, NameOf15Characters_IsWhole) {
  AddInterface("abcdefghijklmno", {"10.1.2.3/24"});
  EXPECT_EQ(AskLocalIp("abcdefghijklmno").address, "10.1.2.3");
}

TEST_F(LocalIp, LongerName_IsCutTo15CharactersInTheRequestAndPrintedWhole) {
  EXPECT_EQ(AskLocalIp("abcdefghijklmnopqrst").printed, "ioctl:No such device[abcdefghijklmnopqrst]\n");
  AddInterface("abcdefghijklmno", {"10.1.2.3/24"});
  const auto outcome = AskLocalIp("abcdefghijklmnopqrst");
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.address, "10.1.2.3");
}

TEST_F(LocalIp, WithoutSocket_Returns0AndSaysWhy) {
  FailCall fail("socket", 1);
  EXPECT_EQ(AskLocalIp("lo"), (TQueryOutcome{0, "127.0.0.1", "socket: Too many open files\n"}));
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
  EXPECT_EQ(address[46], '#') << "written after the 46 characters";
  outcome.address = address;
  return outcome;
}

class LocalIPv6 : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (::access("/proc/net/if_inet6", R_OK) != 0) GTEST_SKIP() << "this kernel has no IPv6";
  }

  /// Makes the query read this text instead of the kernel's file.
  static TQueryOutcome AskWithFile(const std::string &text, const char *interface) {
    HideFolder("/proc");
    WriteFile("/proc/net/if_inet6", text);
    return AskLocalIPv6(interface);
  }
};

TEST_F(LocalIPv6, OfInterfaceWithGlobalAddress_Returns1AndItsCompressedText) {
  AddInterface("eth0", {"2001:db8:0:0:1:0:0:5/64"});
  EXPECT_EQ(AskLocalIPv6("eth0"), (TQueryOutcome{1, "2001:db8::1:0:0:5"}));
}

TEST_F(LocalIPv6, LongestAddress_IsWhole) {
  AddInterface("eth0", {"2001:db81:2222:3333:4444:5555:6666:7777/64"});
  EXPECT_EQ(AskLocalIPv6("eth0").address, "2001:db81:2222:3333:4444:5555:6666:7777");
}

TEST_F(LocalIPv6, BesideALinkLocalAddress_IsFoundInAnyOrder) {
  AddInterface("eth0", {"fe80::1/64", "2001:db8::5/64", "fec0::7/64"});
  EXPECT_EQ(AskLocalIPv6("eth0"), (TQueryOutcome{1, "2001:db8::5"}));
}

TEST_F(LocalIPv6, UniqueLocalAddress_CountsAsGlobal) {
  AddInterface("eth0", {"fd00::5/64"});
  EXPECT_EQ(AskLocalIPv6("eth0"), (TQueryOutcome{1, "fd00::5"}));
}

TEST_F(LocalIPv6, OfInterfaceWithLinkLocalAddressOnly_Returns0AndLeavesThatAddress) {
  AddInterface("eth0", {"fe80::1/64"});
  EXPECT_EQ(AskLocalIPv6("eth0"), (TQueryOutcome{0, "fe80::1"}));
}

TEST_F(LocalIPv6, OfLoopback_Returns0AndLeavesItsAddress) {
  Ip({"link set lo up"});
  EXPECT_EQ(AskLocalIPv6("lo"), (TQueryOutcome{0, "::1"}));
}

TEST_F(LocalIPv6, OfInterfaceWithoutAddress_Returns0AndTouchesNothing) {
  AddInterface("eth0", {"10.1.2.3/24"});
  AddInterface("eth1", {"2001:db8::5/64", "fe80::1/64"});
  EXPECT_EQ(AskLocalIPv6("eth0"), (TQueryOutcome{0, kUntouched}));
}

TEST_F(LocalIPv6, NameThatOnlyBeginsAlike_IsAnotherInterface) {
  AddInterface("eth0.5", {"2001:db8::5/64"});
  EXPECT_EQ(AskLocalIPv6("eth0").result, 0);
  EXPECT_EQ(AskLocalIPv6("eth0.55").result, 0);
  EXPECT_EQ(AskLocalIPv6("eth0.5").result, 1);
}

TEST_F(LocalIPv6, NameOf15Characters_IsFound) {
  AddInterface("abcdefghijklmno", {"2001:db8::5/64"});
  EXPECT_EQ(AskLocalIPv6("abcdefghijklmno").result, 1);
  EXPECT_EQ(AskLocalIPv6("abcdefghijklmnop").result, 0);
}

TEST_F(LocalIPv6, InterfaceIndexBeyond255_IsFound) {
  AddInterface("ppp0", {"2001:db8::5/64"}, 0x12c);
  AddInterface("eth0", {"2001:db8::6/64"});
  EXPECT_EQ(AskLocalIPv6("ppp0").address, "2001:db8::5");
  EXPECT_EQ(AskLocalIPv6("eth0").address, "2001:db8::6");
}

TEST_F(LocalIPv6, WithoutTheKernelsFile_Returns0AndTouchesNothing) {
  AddInterface("eth0", {"2001:db8::5/64"});
  HideFolder("/proc");
  EXPECT_EQ(AskLocalIPv6("eth0"), (TQueryOutcome{0, kUntouched}));
}

TEST_F(LocalIPv6, SeveralAddresses_TheFirstGlobalLineWinsOverLaterLines) {
  EXPECT_EQ(AskWithFile("fe800000000000000000000000000001 02 40 20 80     eth0\n"
                        "20010db8000000000000000000000001 02 40 00 80     eth0\n"
                        "20010db8000000000000000000000002 02 40 00 80     eth0\n",
                        "eth0"),
            (TQueryOutcome{1, "2001:db8::1"}));
}

TEST_F(LocalIPv6, AfterAFailedSearch_TheLastAddressRemains) {
  EXPECT_EQ(AskWithFile("fe800000000000000000000000000001 02 40 20 80     eth0\n"
                        "fec00000000000000000000000000002 02 40 40 80     eth0\n"
                        "fe800000000000000000000000000003 03 40 20 80     eth1\n",
                        "eth0"),
            (TQueryOutcome{0, "fec0::2"}));
}

TEST_F(LocalIPv6, NameInTheFile_CountsUpTo20Characters) {
  const std::string line = "20010db8000000000000000000000001 02 40 00 80     ";
  EXPECT_EQ(AskWithFile(line + "abcdefghijklmnopqrst\n", "abcdefghijklmnopqrst").result, 1);
  EXPECT_EQ(AskWithFile(line + "abcdefghijklmnopqrstuvwxyz\n", "abcdefghijklmnopqrst").result, 1);
  EXPECT_EQ(AskWithFile(line + "abcdefghijklmnopqrs\n", "abcdefghijklmnopqrst").result, 0);
}

TEST_F(LocalIPv6, LinesThatAreNoneOfTheKernels_AreSkipped) {
  EXPECT_EQ(AskWithFile("\n"
                        "20010db8000000000000000000000001 02 40\n"
                        "zzzz0db8000000000000000000000001 02 40 00 80     eth0\n" +
                            std::string(5000, 'f') + "\n" + "20010db8000000000000000000000002 02 40 00 80     eth0",
                        "eth0"),
            (TQueryOutcome{1, "2001:db8::2"}));
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
