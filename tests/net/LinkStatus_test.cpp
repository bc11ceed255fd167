// Link states out of a file of our own and out of a stand-in for the switch's driver, and the trace at a known time.

#include <devsupport/net/LinkStatus.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

#include "NetworkTest.h"
#include "support/CapturedOutput.h"
#include "support/FaultInjection.h"

namespace {

constexpr std::size_t kRequestBytes = 48;

/// Stands in for the switch's driver: it takes the private request, keeps its bytes and answers.
struct TSwitchDriver {
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

TSwitchDriver *g_driver = nullptr;  // answers the private request while set
const timespec *g_now = nullptr;    // the time of day while set

}  // namespace

DEVSUPPORT_FAULT_POINT(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE)

extern "C" int __real_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void *const record = va_arg(args, void *);
  va_end(args);
  if (request == SIOCDEVPRIVATE && g_driver != nullptr) return g_driver->Answer(*static_cast<ifreq *>(record));
  return __real_ioctl(fd, request, record);
}

extern "C" int __real_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  if (g_now == nullptr || clock != CLOCK_REALTIME) return __real_clock_gettime(clock, now);
  *now = *g_now;
  return 0;
}

namespace {

using devsupport::test::AddInterface;
using devsupport::test::CapturedOutput;
using devsupport::test::CountDescriptors;
using devsupport::test::FailCall;
using devsupport::test::HideFolder;
using devsupport::test::NetworkTest;
using devsupport::test::WriteFile;

/// Asks for a link state; nothing may be printed and no descriptor left open on the way.
int AskSilently(int (*query)()) {
  const int before = CountDescriptors();
  int result = -4711;
  {
    CapturedOutput err(stderr);
    result = query();
    EXPECT_EQ(err.Take(), "");
  }
  EXPECT_EQ(CountDescriptors(), before) << "descriptors leaked";
  return result;
}

// ---- The Ethernet port's link, out of its driver's file -------------------------------------------------------

constexpr const char *kLinkFile = "/proc/avalanche/cpmac_link";

int AskCpmacLink() { return AskSilently(GetCpmacLink); }

int AskCpmacLinkWithFile(const std::string &text) {
  WriteFile(kLinkFile, text);
  return AskCpmacLink();
}

struct TLinkFile {
  std::string name;
  std::string text;
  int result;
};

void PrintTo(const TLinkFile &file, std::ostream *out) { *out << file.name; }

/// A first line of exactly so many characters, its end not counted, that ends in the text given.
std::string FirstLine(std::size_t chars, const std::string &end) {
  return std::string(chars - end.size(), 'x') + end;
}

const std::string kFirst = "number = 1\n";
const std::string kSecond = "port: link: UP\n";

const TLinkFile kLinkFiles[] = {
    {"TwoLinesThatSayUp_ReadsUp", kFirst + kSecond, 1},
    {"MoreBehindTheWordUp_ReadsUp", "n = 2 of 3\nport: link: UP at: 100\nmore\n", 1},
    {"LinesThatEndInCrLf_ReadsUp", "n = 1\r\na:b:UP\r\n", 1},
    {"SecondLineWithoutEnd_ReadsUp", "n = 1\na:b:UP", 1},
    {"SeveralBlanksBeforeNumberAndWord_ReadsUp", "n =   1\na:b:   UP\n", 1},
    {"NumberBeyond32Bits_ReadsUp", "n = 99999999999999999999\n" + kSecond, 1},
    {"OnlyTheFirstEqualsSignCounts_ReadsUp", "n = 1 = 0\n" + kSecond, 1},

    {"WordDown_ReadsDown", kFirst + "port: link: DOWN\n", 0},
    {"WordInLowerCase_ReadsDown", kFirst + "port: link: up\n", 0},
    {"WordThatOnlyBeginsWithUp_ReadsDown", kFirst + "a:b:UPPER\n", 0},
    {"WordOf8Characters_ReadsDown", kFirst + "a:b:UPUPUPUP\n", 0},
    {"WordOfMoreThan8Characters_ReadsDown", kFirst + "a:b:UP" + std::string(200, 'x') + "\n", 0},
    {"TabBeforeTheWord_ReadsDown", kFirst + "a:b:\tUP\n", 0},
    {"NoWord_ReadsDown", kFirst + "a:b:\n", 0},
    {"BlanksForAWord_ReadsDown", kFirst + "a:b:  \n", 0},
    {"SecondLineWithOneColon_ReadsDown", kFirst + "port: UP\n", 0},
    {"SecondLineWithoutColon_ReadsDown", kFirst + "UP\n", 0},
    {"EmptySecondLine_ReadsDown", kFirst + "\n" + kSecond, 0},
    {"OneLine_ReadsDown", kFirst, 0},
    {"OneLineWithoutEnd_ReadsDown", "n = 1", 0},
    {"OneLineThatSaysAll_ReadsDown", "a:b:UP n = 1", 0},
    {"EmptyFile_ReadsDown", "", 0},
    {"EmptyFirstLine_ReadsDown", "\n" + kSecond, 0},

    {"Number0_ReadsDownWhateverTheSecondLineSays", "n = 0\n" + kSecond, 0},
    {"NegativeNumber_ReadsDown", "n = -1\n" + kSecond, 0},
    {"NumberWithLettersBehindIt_ReadsDown", "n = 1x\n" + kSecond, 0},
    {"NoNumber_ReadsDown", "n = \n" + kSecond, 0},
    {"NoBlankBehindTheEqualsSign_ReadsDown", "n =1\n" + kSecond, 0},
    {"NoEqualsSign_ReadsDown", "n 1\n" + kSecond, 0},

    {"FirstLineOf256Characters_IsReadWhole", FirstLine(256, "= 1") + "\n" + kSecond, 1},
    {"FirstLineOf255Characters_IsReadWhole", FirstLine(255, "= 1") + "\n" + kSecond, 1},
    {"NumberThatEndsAtCharacter256_IsReadWhole", FirstLine(256, "= 05") + "\n" + kSecond, 1},
    {"NumberThatGoesBeyondCharacter256_IsCut", FirstLine(257, "= 05") + "\n" + kSecond, 0},
    {"LongFirstLine_IsCutAndTheSecondLineIsStillTheSecond", "n = 1 " + std::string(100000, 'x') + "\n" + kSecond, 1},
    {"RestOfALongFirstLine_IsNotTheSecondLine", FirstLine(256, "n = 1 ") + "a:b:UP\nport: link: DOWN\n", 0},
    {"LongSecondLine_IsCut", kFirst + "a:b:UP " + std::string(100000, 'x') + "\n", 1},
    {"LongLineWithoutEnd_ReadsDown", std::string(100000, '='), 0},
    {"NulCharacters_EndTheLineEarly", std::string("n = 1\0 x\na:b:UP\0x\n", 18), 1},
};

class CpmacLinkFile : public NetworkTest, public ::testing::WithParamInterface<TLinkFile> {};

TEST_P(CpmacLinkFile, With) {
  InPrivateNetwork([] {
    HideFolder("/proc");
    EXPECT_EQ(AskCpmacLinkWithFile(GetParam().text), GetParam().result);
  });
}

INSTANTIATE_TEST_SUITE_P(, CpmacLinkFile, ::testing::ValuesIn(kLinkFiles),
                         [](const auto &file) { return file.param.name; });

class CpmacLink : public NetworkTest {};

TEST_F(CpmacLink, WithoutFile_ReadsDown) {
  InPrivateNetwork([] {
    HideFolder("/proc");
    EXPECT_EQ(AskCpmacLink(), 0);
  });
}

TEST_F(CpmacLink, FolderInPlaceOfTheFile_ReadsDown) {
  InPrivateNetwork([] {
    HideFolder("/proc");
    std::filesystem::create_directories(kLinkFile);
    EXPECT_EQ(AskCpmacLink(), 0);
  });
}

/// Makes this process obey the permissions of files, root though it is.
void DropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  ASSERT_EQ(::syscall(SYS_capset, &header, none), 0);
}

TEST_F(CpmacLink, FileThatMayNotBeRead_ReadsDown) {
  InPrivateNetwork([] {
    HideFolder("/proc");
    ASSERT_EQ(AskCpmacLinkWithFile(kFirst + kSecond), 1);
    ASSERT_EQ(::chmod(kLinkFile, 0), 0);
    DropCapabilities();
    EXPECT_EQ(AskCpmacLink(), 0);
  });
}

TEST_F(CpmacLink, FileThatChanges_IsReadAfreshAtEveryCall) {
  InPrivateNetwork([] {
    HideFolder("/proc");
    EXPECT_EQ(AskCpmacLinkWithFile(kFirst + "port: link: DOWN\n"), 0);
    EXPECT_EQ(AskCpmacLinkWithFile(kFirst + kSecond), 1);
    EXPECT_EQ(AskCpmacLinkWithFile("n = 0\n" + kSecond), 0);
  });
}

// ---- The switch's link, out of its driver's answer ------------------------------------------------------------

class EswLink : public ::testing::Test {
 protected:
  EswLink() { g_driver = &driver_; }
  ~EswLink() override { g_driver = nullptr; }

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
  for (unsigned bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(AskWithAnswer(1, 1U << bit), bit == 7 ? 1 : 0) << "bit " << bit;
  }
}

TEST_F(EswLink, StatusWord0_ReadsUp) {
  EXPECT_EQ(AskWithAnswer(1, 0), 1);
  EXPECT_EQ(AskWithAnswer(0, 0), 1);
  EXPECT_EQ(AskWithAnswer(9, 0), 1);
}

TEST_F(EswLink, PortThatHasNoByteInTheStatusWord_ReadsDown) {
  for (const int port : {0, 5, 8, 127, 128, 255}) {
    EXPECT_EQ(AskWithAnswer(static_cast<std::uint8_t>(port), 0xFFFFFFFFU), 0) << "port " << port;
  }
}

TEST_F(EswLink, DriverThatRefuses_ReadsDownSilently) {
  driver_.failure = EIO;
  EXPECT_EQ(AskWithAnswer(1, 0xFFFFFFFFU), 0);
  EXPECT_EQ(driver_.calls, 1);
}

TEST_F(EswLink, WithoutSocket_ReadsDownSilentlyAndAsksNobody) {
  FailCall fail("socket", 1);
  EXPECT_EQ(AskWithAnswer(1, 0xFFFFFFFFU), 0);
  EXPECT_EQ(driver_.calls, 0);
}

class RealEswLink : public NetworkTest {};

TEST_F(RealEswLink, WithoutSwitch_ReadsDown) {
  InPrivateNetwork([] { EXPECT_EQ(GetEswLink(), 0); });
}

TEST_F(RealEswLink, InterfaceOfThatNameWithAnotherDriver_ReadsDown) {
  InPrivateNetwork([] {
    AddInterface("esw0", {});
    EXPECT_EQ(GetEswLink(), 0);
  });
}

// ---- Which of the two is asked --------------------------------------------------------------------------------

class LinkStatus : public NetworkTest {};

TEST_F(LinkStatus, OfEth0_IsReadFromTheFile) {
  InPrivateNetwork([] {
    TSwitchDriver driver;
    g_driver = &driver;
    HideFolder("/proc");
    EXPECT_EQ(GetLinkStatus("eth0"), 0);
    WriteFile(kLinkFile, kFirst + kSecond);
    EXPECT_EQ(GetLinkStatus("eth0"), 1);
    EXPECT_EQ(driver.calls, 0);
  });
}

TEST_F(LinkStatus, OfEveryOtherName_IsAskedFromTheSwitch) {
  InPrivateNetwork([] {
    TSwitchDriver driver;
    g_driver = &driver;
    HideFolder("/proc");
    WriteFile(kLinkFile, kFirst + kSecond);
    for (const char *const name : {"esw0", "ppp0", "eth1", "eth0.5", "ETH0", "eth", ""}) {
      driver.status = 0x80;
      EXPECT_EQ(GetLinkStatus(name), 1) << name;
      driver.status = 0x7F;
      EXPECT_EQ(GetLinkStatus(name), 0) << name;
      EXPECT_EQ(driver.interface, "esw0") << name;
    }
  });
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
  EXPECT_EQ(name[IF_NAMESIZE], '#') << "written behind the 16 characters";
  return {result, name};
}

std::ostream &operator<<(std::ostream &out, const TFound &found) {
  return out << "{" << found.result << ", \"" << found.name << "\"}";
}

class EthIf : public NetworkTest {};

TEST_F(EthIf, NeitherThere_Returns0WithAnEmptyName) {
  InPrivateNetwork([] {
    AddInterface("ppp0", {}, 5);
    AddInterface("eth0.5", {}, 6);
    AddInterface("esw", {}, 7);
    EXPECT_EQ(FindNow(), (TFound{0, ""}));
  });
}

TEST_F(EthIf, Eth0_IsFound) {
  InPrivateNetwork([] {
    AddInterface("eth0", {}, 7);
    EXPECT_EQ(FindNow(), (TFound{1, "eth0"}));
  });
}

TEST_F(EthIf, Esw0_IsFound) {
  InPrivateNetwork([] {
    AddInterface("esw0", {}, 7);
    EXPECT_EQ(FindNow(), (TFound{1, "esw0"}));
  });
}

TEST_F(EthIf, BothThere_TheLowerIndexWins) {
  InPrivateNetwork([] {
    AddInterface("eth0", {}, 9);
    AddInterface("esw0", {}, 7);
    EXPECT_EQ(FindNow(), (TFound{1, "esw0"}));
  });
  InPrivateNetwork([] {
    AddInterface("eth0", {}, 7);
    AddInterface("esw0", {}, 9);
    EXPECT_EQ(FindNow(), (TFound{1, "eth0"}));
  });
}

TEST_F(EthIf, Index31_IsTheLastAsked) {
  InPrivateNetwork([] {
    AddInterface("eth0", {}, 31);
    EXPECT_EQ(FindNow(), (TFound{1, "eth0"}));
  });
  InPrivateNetwork([] {
    AddInterface("eth0", {}, 32);
    EXPECT_EQ(FindNow(), (TFound{0, ""}));
  });
}

TEST_F(EthIf, AnotherInterfaceAtIndex31_LeavesItsName) {
  InPrivateNetwork([] {
    AddInterface("abcdefghijklmno", {}, 31);
    EXPECT_EQ(FindNow(), (TFound{0, "abcdefghijklmno"}));
  });
}

// ---- The trace ------------------------------------------------------------------------------------------------

/// What TraceNow prints at a given time, in a time zone of 5 hours 30 minutes east.
std::string TraceAt(std::time_t seconds, long nanoseconds, const char *label) {
  const timespec now{seconds, nanoseconds};
  const char *const pZone = std::getenv("TZ");
  const std::optional<std::string> zone = pZone != nullptr ? std::optional<std::string>(pZone) : std::nullopt;
  ::setenv("TZ", "XST-05:30", 1);
  ::tzset();
  g_now = &now;
  CapturedOutput err(stderr);
  TraceNow(label);
  std::string printed = err.Take();
  g_now = nullptr;
  zone ? ::setenv("TZ", zone->c_str(), 1) : ::unsetenv("TZ");
  ::tzset();
  return printed;
}

TEST(Trace, PrintsLabelAndLocalTimeWithMilliseconds) {
  EXPECT_EQ(TraceAt(1000000000, 123456789, "dialled"), "dialled now=[07:16:40.123]\n");
}

TEST(Trace, EveryFieldKeepsItsWidth) { EXPECT_EQ(TraceAt(-19800 + 3661, 7000000, "x"), "x now=[01:01:01.007]\n"); }

TEST(Trace, LastMillisecondOfTheDay_IsNotRoundedUp) {
  EXPECT_EQ(TraceAt(-19800 + 86399, 999999999, "x"), "x now=[23:59:59.999]\n");
}

TEST(Trace, NullLabel_StandsForTheEmptyText) { EXPECT_EQ(TraceAt(1000000000, 0, nullptr), " now=[07:16:40.000]\n"); }

TEST(Trace, EmptyLabel_LeavesTheBlank) { EXPECT_EQ(TraceAt(1000000000, 0, ""), " now=[07:16:40.000]\n"); }

TEST(Trace, LabelWithPercentSigns_IsPrintedAsItIs) {
  EXPECT_EQ(TraceAt(1000000000, 0, "50%s%n"), "50%s%n now=[07:16:40.000]\n");
}

TEST(Trace, WithTheRealClock_LiesBetweenTheTimesBeforeAndAfter) {
  timespec before{};
  timespec after{};
  ::clock_gettime(CLOCK_REALTIME, &before);
  CapturedOutput err(stderr);
  TraceNow("t");
  const std::string printed = err.Take();
  ::clock_gettime(CLOCK_REALTIME, &after);
  int hours = -1;
  int minutes = -1;
  int seconds = -1;
  int milliseconds = -1;
  ASSERT_EQ(std::sscanf(printed.c_str(), "t now=[%2d:%2d:%2d.%3d]\n", &hours, &minutes, &seconds, &milliseconds), 4);
  tm local{};
  ::localtime_r(&before.tv_sec, &local);
  constexpr long kDay = 86400000;
  const long earliest = ((local.tm_hour * 60L + local.tm_min) * 60 + local.tm_sec) * 1000 + before.tv_nsec / 1000000;
  const long traced = ((hours * 60L + minutes) * 60 + seconds) * 1000 + milliseconds;
  const long elapsed = (after.tv_sec - before.tv_sec) * 1000 + after.tv_nsec / 1000000 - before.tv_nsec / 1000000;
  EXPECT_LE((traced - earliest + kDay) % kDay, elapsed) << printed;
}

}  // namespace
