// SPDX-License-Identifier: MIT
// The Ethernet port's link state, read from a file that replaces the driver's.

#include <devsupport/net/LinkStatus.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>
#include <string>

#include "tests/net/NetworkTest.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;

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

/// A first line of exactly this many characters, without the newline, that ends with the given text.
std::string FirstLine(std::size_t chars, const std::string &end) {
  return std::string(chars - end.size(), 'x') + end;
}

const std::string kFirst = "number = 1\n";
const std::string kSecond = "port: link: UP\n";

const TLinkFile kLinkFiles[] = {
    {"TwoLinesThatSayUp_ReadsUp", kFirst + kSecond, 1},
    {"MoreAfterTheWordUp_ReadsUp", "n = 2 of 3\nport: link: UP at: 100\nmore\n", 1},
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
    {"NumberWithLettersAfterIt_ReadsDown", "n = 1x\n" + kSecond, 0},
    {"NoNumber_ReadsDown", "n = \n" + kSecond, 0},
    {"NoBlankAfterTheEqualsSign_ReadsDown", "n =1\n" + kSecond, 0},
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
  HideFolder("/proc");
  EXPECT_EQ(AskCpmacLinkWithFile(GetParam().text), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(, CpmacLinkFile, ::testing::ValuesIn(kLinkFiles),
                         [](const auto &file) { return file.param.name; });

class CpmacLink : public NetworkTest {};

TEST_F(CpmacLink, WithoutFile_ReadsDown) {
  HideFolder("/proc");
  EXPECT_EQ(AskCpmacLink(), 0);
}

TEST_F(CpmacLink, FolderInPlaceOfTheFile_ReadsDown) {
  HideFolder("/proc");
  std::filesystem::create_directories(kLinkFile);
  EXPECT_EQ(AskCpmacLink(), 0);
}

/// Makes this process obey the permissions of files, also as root.
void DropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  ASSERT_EQ(::syscall(SYS_capset, &header, none), 0);
}

TEST_F(CpmacLink, FileThatMayNotBeRead_ReadsDown) {
  HideFolder("/proc");
  ASSERT_EQ(AskCpmacLinkWithFile(kFirst + kSecond), 1);
  ASSERT_EQ(::chmod(kLinkFile, 0), 0);
  Child reader([] {
    DropCapabilities();
    return AskCpmacLink();
  });
  EXPECT_EQ(reader.Wait(), 0);
}

TEST_F(CpmacLink, FileThatChanges_IsReadAfreshAtEveryCall) {
  HideFolder("/proc");
  EXPECT_EQ(AskCpmacLinkWithFile(kFirst + "port: link: DOWN\n"), 0);
  EXPECT_EQ(AskCpmacLinkWithFile(kFirst + kSecond), 1);
  EXPECT_EQ(AskCpmacLinkWithFile("n = 0\n" + kSecond), 0);
}

}  // namespace
