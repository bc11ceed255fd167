// SPDX-License-Identifier: MIT
// The list of the interfaces that have an address: its content, its order, and its failures.

#include <devsupport/net/LocalAddress.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "tests/net/NetworkTest.h"
#include "tests/net/WrappedCalls.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
  for (std::size_t i = 0; i < static_cast<std::size_t>(config.ifc_len) / sizeof(ifreq); ++i)
    names.emplace_back(requests[i].ifr_name);
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
  AddInterface("eth0", {"10.1.2.3/24"});
  Ip({"link set eth0 address 02:ab:cd:ef:09:f0"});
  EXPECT_THAT(AskList(4), ElementsAre("eth0 10.1.2.3 02:AB:CD:EF:09:F0"));
}

TEST_F(LocalIfList, LongestTexts_AreWhole) {
  AddInterface("abcdefghijklmno", {"192.168.100.200/24"});
  Ip({"link set abcdefghijklmno address fe:fe:fe:fe:fe:fe"});
  EXPECT_THAT(AskList(1), ElementsAre("abcdefghijklmno 192.168.100.200 FE:FE:FE:FE:FE:FE"));
}

TEST_F(LocalIfList, BytesAfterNameAndAddress_AreNul) {
  AddInterface("eth0", {"10.1.2.3/24"});
  TIfAddrInfo record;
  std::memset(&record, '#', sizeof record);
  ASSERT_EQ(GetLocalIfList(&record, 1), 1);
  EXPECT_EQ(std::string(record.szName, sizeof record.szName), "eth0" + std::string(12, '\0'));
  EXPECT_EQ(std::string(record.szAddress, sizeof record.szAddress), "10.1.2.3" + std::string(8, '\0'));
}

TEST_F(LocalIfList, WithoutInterfaces_IsEmpty) { EXPECT_THAT(AskList(4), IsEmpty()); }

TEST_F(LocalIfList, InterfacesWithoutIPv4Address_AreLeftOut) {
  AddInterface("eth0", {"2001:db8::5/64"});
  AddInterface("eth1", {});
  EXPECT_THAT(AskList(4), IsEmpty());
}

TEST_F(LocalIfList, LoopbackAddress_IsLeftOutEvenOnARealInterface) {
  Ip({"link set lo up"});
  AddInterface("eth0", {"127.0.0.1/32"});
  AddInterface("eth1", {"10.1.2.3/24"});
  EXPECT_THAT(NamesOf(AskList(4)), ElementsAre("eth1"));
}

TEST_F(LocalIfList, HardwareAddressOfZeros_IsLeftOutWhateverTheAddress) {
  Ip({"link set lo up", "addr add 10.9.9.9/32 dev lo"});
  AddInterface("eth0", {"10.1.2.3/24"});
  EXPECT_THAT(NamesOf(AskList(4)), ElementsAre("eth0"));
}

TEST_F(LocalIfList, HasTheReverseOfTheKernelsOrder) {
  AddInterface("eth1", {"10.1.1.1/24"}, 40);
  AddInterface("eth2", {"10.1.2.1/24"}, 20);
  AddInterface("eth3", {"10.1.3.1/24"}, 30);
  std::vector<std::string> expected = KernelOrder();
  ASSERT_EQ(expected.size(), 3U);
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(NamesOf(AskList(8)), expected);
}

TEST_F(LocalIfList, SeveralAddressesOfOneInterface_ComeOnceEach) {
  AddInterface("eth0", {"10.1.1.1/24", "10.1.1.2/24"});
  Ip({"addr add 10.2.2.2/24 dev eth0 label eth0:1", "link set eth0 address 02:00:00:00:00:01"});
  EXPECT_THAT(AskList(8),
              ::testing::UnorderedElementsAre("eth0 10.1.1.1 02:00:00:00:00:01", "eth0 10.1.1.2 02:00:00:00:00:01",
                                              "eth0:1 10.2.2.2 02:00:00:00:00:01"));
}

TEST_F(LocalIfList, NeverFillsMoreThanMaxRecords) {
  AddInterface("eth1", {"10.1.1.1/24"});
  AddInterface("eth2", {"10.1.2.1/24"});
  AddInterface("eth3", {"10.1.3.1/24"});
  EXPECT_THAT(NamesOf(AskList(2)), ElementsAre("eth3", "eth2"));
  EXPECT_THAT(AskList(0), IsEmpty());
  EXPECT_THAT(AskList(-1), IsEmpty());
}

TEST_F(LocalIfList, ARecordThatIsNotKept_IsOverwrittenByTheNext) {
  AddInterface("eth1", {"10.1.1.1/24"});
  AddInterface("eth2", {"127.0.0.1/32"});
  EXPECT_THAT(NamesOf(AskList(1)), ElementsAre("eth1"));
}

TEST_F(LocalIfList, MoreThan16Interfaces_OnlyTheKernelsFirst16AreSeen) {
  for (int i = 1; i <= 18; ++i) AddInterface("eth" + std::to_string(i), {"10.1." + std::to_string(i) + ".1/24"});
  std::vector<std::string> expected = KernelOrder();
  ASSERT_EQ(expected.size(), 18U);
  expected.resize(16);
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(NamesOf(AskList(32)), expected);
}

TEST_F(LocalIfList, InterfaceThatDoesNotAnswer_IsLeftOutSilently) {
  AddInterface("eth1", {"10.1.1.1/24"});
  AddInterface("eth2", {"10.1.2.1/24"});
  // The first request lists the interfaces; then each is asked for its address and its hardware address.
  for (const int nth : {2, 3}) {
    FailCall fail("ioctl", nth);
    EXPECT_THAT(NamesOf(AskList(8)), ElementsAre("eth1")) << "with request " << nth << " failing";
    EXPECT_TRUE(fail.Happened());
  }
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

}  // namespace
