// SPDX-License-Identifier: MIT
// The command line of analogsim, and the numbers and names in it.

#include "tools/analogsim/Options.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tools/analogsim/Numbers.h"

namespace {

using namespace analogsim;
using devsupport::test::CapturedOutput;
using Words = std::vector<std::string>;

constexpr int kMistake = 77;

Options Read(const Words &words) {
  std::vector<const char *> args{"analogsim"};
  for (const std::string &word : words) args.push_back(word.c_str());
  return ReadOptions(static_cast<int>(args.size()), args.data(), kMistake);
}

int StopOf(const Words &words) {
  try {
    Read(words);
  } catch (const Stop &stop) {
    return stop.status;
  }
  return -1;
}

TEST(Options, WithoutAny_RunTheUsersShellBeside4ChannelsInMemory) {
  ::setenv("SHELL", "/bin/his-shell", 1);
  const Options options = Read({});
  EXPECT_EQ(options.command, Words{"/bin/his-shell"});
  EXPECT_EQ(options.behaviour.channels, 4);
  EXPECT_FALSE(options.stateFile.has_value());
  EXPECT_FALSE(options.trace || options.traceBytes);
  EXPECT_FALSE(options.behaviour.failure.has_value());
}

TEST(Options, WithoutACommandAndWithoutAShellOfTheUser_RunTheSystemsShell) {
  ::unsetenv("SHELL");
  EXPECT_EQ(Read({"--trace", "--"}).command, Words{"/bin/sh"});
  ::setenv("SHELL", "", 1);
  EXPECT_EQ(Read({}).command, Words{"/bin/sh"});
}

TEST(Options, All_AreTaken) {
  const Options options = Read({"--state", "a/b.json", "--channels=0x10", "-t", "--trace-bytes", "--fail", "EIO",
                                "--answer", "channel=1,register=-2,value=0xffffffff,result=5", "--", "true"});
  EXPECT_EQ(options.stateFile, "a/b.json");
  EXPECT_EQ(options.behaviour.channels, 16);
  EXPECT_TRUE(options.trace);
  EXPECT_TRUE(options.traceBytes);
  EXPECT_EQ(options.behaviour.failure, EIO);
  EXPECT_EQ(options.behaviour.distortion.channel, 1);
  EXPECT_EQ(options.behaviour.distortion.registerNumber, -2);
  EXPECT_EQ(options.behaviour.distortion.value, -1);
  EXPECT_EQ(options.behaviour.distortion.result, 5);
  EXPECT_EQ(options.command, Words{"true"});
}

TEST(OptionsCommand, KeepsEveryWordAfterTheSeparator) {
  const Words command = {"sh", "--", "-x", "--help", "[1,2]", "", "{}", "--trace"};
  Words words = {"--"};
  words.insert(words.end(), command.begin(), command.end());
  const Options options = Read(words);
  EXPECT_EQ(options.command, command);
  EXPECT_FALSE(options.trace);
}

TEST(OptionsCommand, WithoutASeparator_BeginsWithTheFirstWordThatIsNoOption) {
  const Options options = Read({"--trace", "cpld", "1", "1", "23", "-5", "--help"});
  EXPECT_EQ(options.command, (Words{"cpld", "1", "1", "23", "-5", "--help"}));
  EXPECT_TRUE(options.trace);
}

class MistakenOptions : public ::testing::TestWithParam<Words> {};

TEST_P(MistakenOptions, PrintAMessageToStandardErrorAndStop) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  EXPECT_EQ(StopOf(GetParam()), kMistake);
  EXPECT_TRUE(err.Take().starts_with("analogsim: "));
  EXPECT_EQ(out.Take(), "");
}

INSTANTIATE_TEST_SUITE_P(Options, MistakenOptions,
                         ::testing::Values(Words{"--bogus"}, Words{"--bogus", "--", "true"}, Words{"--bogus", "true"},
                                           Words{"-x", "true"}, Words{"--state"}, Words{"--channels", "0"},
                                           Words{"--channels", "-1"}, Words{"--channels", "4x"},
                                           Words{"--channels", "2147483648"}, Words{"--fail", "EFOO"},
                                           Words{"--fail", "0"}, Words{"--fail", "4096"}, Words{"--fail", "eio"},
                                           Words{"--answer", "value"}, Words{"--answer", "value="},
                                           Words{"--answer", "colour=1"}, Words{"--answer", "value=1,,"},
                                           Words{"--answer", "value=1;result=2"}, Words{"--answer", "result=-1"},
                                           Words{"--answer", "value=0x100000000"}, Words{"--trace=maybe", "true"}));

TEST(OptionsHelp, GoesToStandardOutputAndStopsWith0) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  EXPECT_EQ(StopOf({"--help"}), 0);
  EXPECT_EQ(err.Take(), "");
  EXPECT_NE(out.Take().find("Usage: analogsim [OPTIONS] [--] [COMMAND [ARG...]]\n"), std::string::npos);
}

TEST(OptionsVersion, GoesToStandardOutputAndStopsWith0) {
  CapturedOutput out(stdout);
  EXPECT_EQ(StopOf({"--version"}), 0);
  EXPECT_TRUE(out.Take().starts_with("analogsim "));
}

TEST(ToDistortion, OfNothing_IsRefused) { EXPECT_THROW(ToDistortion(""), std::runtime_error); }

TEST(ToInt32, TakesDecimalAndHexadecimalNumbersOf32Bits) {
  EXPECT_EQ(ToInt32("0"), 0);
  EXPECT_EQ(ToInt32("-2147483648"), INT32_MIN);
  EXPECT_EQ(ToInt32("2147483647"), INT32_MAX);
  EXPECT_EQ(ToInt32("0x7FFFFFFF"), INT32_MAX);
  EXPECT_EQ(ToInt32("0xffffffff"), -1);
  EXPECT_EQ(ToInt32("-0x1"), -1);
  EXPECT_EQ(ToInt32("010"), 10);
}

TEST(ToInt32, RefusesWhatIsNoNumberOrTooLarge) {
  for (const char *text : {"", "-", "0x", "--1", "+1", " 1", "1 ", "1x", "0x1g", "2147483648", "-2147483649",
                           "0x100000000", "-0x80000001", "99999999999999999999"})
    EXPECT_EQ(ToInt32(text), std::nullopt) << text;
}

TEST(ToErrno, TakesNamesAndNumbers) {
  EXPECT_EQ(ToErrno("EIO"), EIO);
  EXPECT_EQ(ToErrno("5"), EIO);
  EXPECT_EQ(ToErrno("0x10"), EBUSY);
}

}  // namespace
