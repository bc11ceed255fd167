// SPDX-License-Identifier: MIT
// The switch's link state from a simulated driver, and the query that each interface needs.

#include <devsupport/net/LinkStatus.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>

#include "tests/net/NetworkTest.h"
#include "tests/net/WrappedCalls.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/FaultInjection.h"

namespace {

using namespace devsupport::test;

// ---- The switch's link in its driver's answer ------------------------------------------------------------

constexpr std::size_t kRequestBytes = 48;

/// Replaces the switch's driver as long as it lives: it answers the private request and keeps its bytes.
struct TSwitchDriver {
  TSwitchDriver() {
    g_switchDriver = [this](ifreq &asked) { return Answer(asked); };
  }
  ~TSwitchDriver() { g_switchDriver = nullptr; }
  TSwitchDriver(const TSwitchDriver &) = delete;
  TSwitchDriver &operator=(const TSwitchDriver &) = delete;

  std::uint8_t port = 1;
  std::uint32_t status = 0;
  int failure = 0;  // an errno, or 0 to answer
  int calls = 0;
  std::string interface;
  std::array<unsigned char, kRequestBytes> request{};

  int Answer(ifreq &asked) {
    ++calls;
    interface = asked.ifr_name;
    std::memcpy(request.data(), asked.ifr_data, request.size());
    if (failure != 0) {
      errno = failure;
      return -1;
    }
    std::memcpy(asked.ifr_data + 36, &port, sizeof port);
    std::memcpy(asked.ifr_data + 44, &status, sizeof status);
    return 0;
  }
};

class EswLink : public ::testing::Test {
 protected:
  int AskWithAnswer(std::uint8_t port, std::uint32_t status) {
    driver_.port = port;
    driver_.status = status;
    return AskSilently(GetEswLink);
  }

  TSwitchDriver driver_;
};

TEST_F(EswLink, Request_HasTheCommandThePortAndZeroesOtherwise) {
  std::array<unsigned char, kRequestBytes> golden{'e', 's', 'w', 'i', 't', 'c', 'h',
                                                  '_', 'c', 'o', 'n', 'f', 'i', 'g'};
  golden[36] = 1;
  AskSilently(GetEswLink);
  EXPECT_EQ(driver_.request, golden);
  EXPECT_EQ(driver_.interface, "esw0");
  EXPECT_EQ(driver_.calls, 1);
}

TEST_F(EswLink, EachPort_IsUpExactlyWhenTheTopBitOfItsByteIsSet) {
  for (std::uint8_t port = 1; port <= 4; ++port) {
    const std::uint32_t bit = 0x80U << ((port - 1) * 8);
    EXPECT_EQ(AskWithAnswer(port, bit), 1) << "port " << int{port};
    EXPECT_EQ(AskWithAnswer(port, 0xFFFFFFFFU), 1) << "port " << int{port};
    EXPECT_EQ(AskWithAnswer(port, ~bit), 0) << "port " << int{port};
  }
}

TEST_F(EswLink, EverySingleStatusBit_MeansPort1UpOnlyWhenItIsBit7) {
  for (unsigned bit = 0; bit < 32; ++bit) EXPECT_EQ(AskWithAnswer(1, 1U << bit), bit == 7 ? 1 : 0) << "bit " << bit;
}

TEST_F(EswLink, StatusWord0_ReadsUp) {
  EXPECT_EQ(AskWithAnswer(1, 0), 1);
  EXPECT_EQ(AskWithAnswer(0, 0), 1);
  EXPECT_EQ(AskWithAnswer(9, 0), 1);
}

TEST_F(EswLink, PortThatHasNoByteInTheStatusWord_ReadsDown) {
  for (const int port : {0, 5, 8, 127, 128, 255})
    EXPECT_EQ(AskWithAnswer(static_cast<std::uint8_t>(port), 0xFFFFFFFFU), 0) << "port " << port;
}

TEST_F(EswLink, DriverThatRefuses_ReadsDownSilently) {
  driver_.failure = EIO;
  EXPECT_EQ(AskWithAnswer(1, 0xFFFFFFFFU), 0);
  EXPECT_EQ(driver_.calls, 1);
}

TEST_F(EswLink, WithoutSocket_ReadsDownSilentlyWithoutARequest) {
  FailCall fail("socket", 1);
  EXPECT_EQ(AskWithAnswer(1, 0xFFFFFFFFU), 0);
  EXPECT_EQ(driver_.calls, 0);
}

class RealEswLink : public NetworkTest {};

TEST_F(RealEswLink, WithoutSwitch_ReadsDown) { EXPECT_EQ(GetEswLink(), 0); }

TEST_F(RealEswLink, InterfaceOfThatNameWithAnotherDriver_ReadsDown) {
  AddInterface("esw0", {});
  EXPECT_EQ(GetEswLink(), 0);
}

// ---- Which of the two is asked --------------------------------------------------------------------------------

constexpr const char *kLinkIsUp = "number = 1\nport: link: UP\n";

class LinkStatus : public NetworkTest {};

TEST_F(LinkStatus, OfEth0_IsReadFromTheFile) {
  TSwitchDriver driver;
  HideFolder("/proc");
  EXPECT_EQ(GetLinkStatus("eth0"), 0);
  WriteFile(kLinkFile, kLinkIsUp);
  EXPECT_EQ(GetLinkStatus("eth0"), 1);
  EXPECT_EQ(driver.calls, 0);
}

TEST_F(LinkStatus, OfEveryOtherName_IsAskedFromTheSwitch) {
  TSwitchDriver driver;
  HideFolder("/proc");
  WriteFile(kLinkFile, kLinkIsUp);
  for (const char *const name : {"esw0", "ppp0", "eth1", "eth0.5", "ETH0", "eth", ""}) {
    driver.status = 0x80;
    EXPECT_EQ(GetLinkStatus(name), 1) << name;
    driver.status = 0x7F;
    EXPECT_EQ(GetLinkStatus(name), 0) << name;
    EXPECT_EQ(driver.interface, "esw0") << name;
  }
}

// ---- Which Ethernet interface the device has ------------------------------------------------------------------

struct TFound {
  int result;
  std::string name;
  bool operator==(const TFound &) const = default;
};

TFound FindNow() {
  char name[IF_NAMESIZE + 1];
  std::memset(name, '#', sizeof name);
  CapturedOutput err(stderr);
  const int result = FindEthIf(name);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(name[IF_NAMESIZE], '#') << "written after the 16 characters";
  return {result, name};
}

std::ostream &operator<<(std::ostream &out, const TFound &found) {
  return out << "{" << found.result << ", \"" << found.name << "\"}";
}

class EthIf : public NetworkTest {};

TEST_F(EthIf, NeitherThere_Returns0WithAnEmptyName) {
  AddInterface("ppp0", {}, 5);
  AddInterface("eth0.5", {}, 6);
  AddInterface("esw", {}, 7);
  EXPECT_EQ(FindNow(), (TFound{0, ""}));
}

TEST_F(EthIf, Eth0_IsFound) {
  AddInterface("eth0", {}, 7);
  EXPECT_EQ(FindNow(), (TFound{1, "eth0"}));
}

TEST_F(EthIf, Esw0_IsFound) {
  AddInterface("esw0", {}, 7);
  EXPECT_EQ(FindNow(), (TFound{1, "esw0"}));
}

TEST_F(EthIf, BothThere_TheLowerIndexWins) {
  AddInterface("eth0", {}, 9);
  AddInterface("esw0", {}, 7);
  EXPECT_EQ(FindNow(), (TFound{1, "esw0"}));
  EnterPrivateNetwork();
  AddInterface("eth0", {}, 7);
  AddInterface("esw0", {}, 9);
  EXPECT_EQ(FindNow(), (TFound{1, "eth0"}));
}

TEST_F(EthIf, Index31_IsTheLastAsked) {
  AddInterface("eth0", {}, 31);
  EXPECT_EQ(FindNow(), (TFound{1, "eth0"}));
  EnterPrivateNetwork();
  AddInterface("eth0", {}, 32);
  EXPECT_EQ(FindNow(), (TFound{0, ""}));
}

TEST_F(EthIf, AnotherInterfaceAtIndex31_LeavesItsName) {
  AddInterface("abcdefghijklmno", {}, 31);
  EXPECT_EQ(FindNow(), (TFound{0, "abcdefghijklmno"}));
}

}  // namespace
