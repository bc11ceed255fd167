// SPDX-License-Identifier: MIT
// The real cpld with the simulated driver and without a driver: requests, printed texts and exit status.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/analogsim/Simulated.h"
#include "tests/support/Command.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"

namespace {

using analogsim_test::ReceivedRecords;
using analogsim_test::Simulated;
using analogsim_test::Words;
using namespace devsupport::test;

constexpr char kUsage[] =
    "usage: cpld cmd ch_id reg value \n"
    "example: cpld 0 1 23\n"
    "example: cpld 0 1 23 0x30\n"
    "set direct register 23 to the 0x30\n"
    "cmd: 0:get direct reg, 1: set direct reg\n"
    "     2:get indirect reg, 3: set indirect reg\n"
    "     4:Set reg debug,ch_id:(1:debug on, 0:debug off)\n";

Words Cpld(const Words &words) {
  Words command{CPLD_PATH};
  command.insert(command.end(), words.begin(), words.end());
  return command;
}

Words Split(const std::string &words) {
  std::istringstream stream(words);
  return {std::istream_iterator<std::string>(stream), {}};
}

/// One run of cpld with a driver that has these options.
CommandResult RunCpld(const Words &words, const Words &driver = {}) {
  Words options{"--trace-bytes"};
  options.insert(options.end(), driver.begin(), driver.end());
  return Simulated(options, Cpld(words)).Run();
}

/// Several runs of cpld, one shell line each, with the same driver.
CommandResult RunSession(const std::string &script, const Words &options = {}) {
  return Simulated(options, {"sh", "-c", script, CPLD_PATH}).Run();
}

// What the driver receives and what is printed.

struct Case {
  const char *name;
  const char *words;
  const char *driver;  ///< how the driver behaves: options of analogsim
  const char *record;
  const char *printed;
};

std::ostream &operator<<(std::ostream &stream, const Case &run) { return stream << run.name; }

struct NameOf {
  template <typename Parameter>
  std::string operator()(const ::testing::TestParamInfo<Parameter> &test) const {
    return test.param.name;
  }
};

class EachCase : public ::testing::TestWithParam<Case> {};

TEST_P(EachCase, SendsOneRecordPrintsOneLineAndExits0) {
  const Case &run = GetParam();
  const CommandResult result = RunCpld(Split(run.words), Split(run.driver));
  EXPECT_EQ(ReceivedRecords(result.err), Words{run.record});
  EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  EXPECT_EQ(result.out, run.printed);
  EXPECT_EQ(result.status, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Command, EachCase,
    ::testing::Values(
        Case{"GetDirect", "0 1 23", "", "23270000 01000000 17000000 00000000 00000000 00000000",
             "ch=1, reg23, data=0x0 value=0x0\n"},
        Case{"SetDirect", "1 1 23 0x30", "", "25270000 01000000 17000000 30000000 00000000 00000000",
             "ch=1, reg23, data=0x30 value=0x0\n"},
        Case{"SetDirectOctal", "1 1 23 060", "", "25270000 01000000 17000000 30000000 00000000 00000000",
             "ch=1, reg23, data=0x30 value=0x0\n"},
        Case{"GetIndirect", "2 1 23", "", "22270000 01000000 17000000 00000000 00000000 00000000",
             "ch=1, reg23, data=0x0 value=0x0\n"},
        Case{"SetIndirect", "3 2 300 -1", "", "24270000 02000000 2c010000 ffffffff 00000000 00000000",
             "ch=2, reg300, data=0xffffffff value=0x0\n"},
        Case{"DebugOn", "4 1", "", "35270000 00000000 00000000 00000000 00000000 00000000", "debug on\n"},
        Case{"DebugOffThatSucceeds", "4 0", "", "35270000 01000000 00000000 00000000 00000000 00000000",
             "debug on\n"},
        Case{"ValueBeyond32Bits", "1 1 23 0xffffffff", "", "25270000 01000000 17000000 ffffff7f 00000000 00000000",
             "ch=1, reg23, data=0x7fffffff value=0x0\n"},
        Case{"UnknownCommand", "7 1 2", "", "00000000 01000000 02000000 00000000 00000000 00000000",
             "ch=1, reg2, data=0x0 value=0xffffffff\n"},
        Case{"NegativeCommand", "-1 1 2", "", "00000000 01000000 02000000 00000000 00000000 00000000",
             "ch=1, reg2, data=0x0 value=0xffffffff\n"},
        Case{"UnknownCommandOfTwoWords", "7 1", "", "00000000 01000000 00000000 00000000 00000000 00000000",
             "ch=1, reg0, data=0x0 value=0xffffffff\n"},
        Case{"UnknownCommandWithAValue", "7 1 2 0x30 9", "", "00000000 01000000 02000000 00000000 00000000 00000000",
             "ch=1, reg2, data=0x0 value=0xffffffff\n"},
        Case{"NegativeNumbers", "0 -1 -23", "", "23270000 ffffffff e9ffffff 00000000 00000000 00000000",
             "ch=-1, reg-23, data=0x0 value=0xffffffff\n"},
        Case{"DriverChangesChannelRegisterAndValue", "0 1 23", "--answer channel=7,register=-9,value=0x80001234",
             "23270000 01000000 17000000 00000000 00000000 00000000", "ch=7, reg-9, data=0x80001234 value=0x0\n"},
        Case{"DriverReturnsAPositiveNumber", "0 1 23", "--answer result=0x2a",
             "23270000 01000000 17000000 00000000 00000000 00000000", "ch=1, reg23, data=0x0 value=0x2a\n"},
        Case{"DriverFails", "1 1 23 0x30", "--fail EIO", "25270000 01000000 17000000 30000000 00000000 00000000",
             "ch=1, reg23, data=0x30 value=0xffffffff\n"},
        Case{"DriverFailsAndChangesTheRecord", "0 1 23", "--fail EIO --answer channel=2,register=3,value=4",
             "23270000 01000000 17000000 00000000 00000000 00000000", "ch=2, reg3, data=0x4 value=0xffffffff\n"},
        Case{"DebugThatFails", "4 1", "--fail EBUSY", "35270000 00000000 00000000 00000000 00000000 00000000",
             "debug off\n"},
        Case{"DebugThatReturnsAPositiveNumber", "4 1", "--answer result=1",
             "35270000 00000000 00000000 00000000 00000000 00000000", "debug off\n"}),
    NameOf());

TEST(CpldSession, ReadsBackWhatItWrote) {
  const CommandResult result = RunSession("$0 1 1 23 0x30; $0 0 1 23; $0 2 1 23; $0 0 2 23");
  EXPECT_EQ(result.out,
            "ch=1, reg23, data=0x30 value=0x0\n"
            "ch=1, reg23, data=0x30 value=0x0\n"
            "ch=1, reg23, data=0x0 value=0x0\n"
            "ch=2, reg23, data=0x0 value=0x0\n");
}

// The usage text.

class UsageOf : public ::testing::TestWithParam<Words> {};

TEST_P(UsageOf, PrintsTheWholeTextAsksNoDriverAndExits0) {
  EXPECT_EQ(RunCpld(GetParam()), (CommandResult{0, kUsage, ""}));
}

INSTANTIATE_TEST_SUITE_P(Command, UsageOf,
                         ::testing::Values(Words{}, Words{"0"}, Words{"7"}, Words{"0", "1"}, Words{"1", "1", "23"},
                                           Words{"0", "1", "23", "0x30"}, Words{"3", "1", "23", "1", "2"}, Words{"4"},
                                           Words{"4", "1", "0"}));

// Without a device.

/// The words of a command that runs in an environment without a real /dev/analog/0.
Words WithoutDevice(const Words &command) {
  if (!std::filesystem::exists("/dev/analog/0")) return command;
  Words hidden{"unshare", "--mount"};
  if (::geteuid() != 0) hidden.emplace_back("--map-root-user");
  for (const char *word : {"sh", "-c", "mount -t tmpfs none /dev && exec \"$0\" \"$@\""}) hidden.emplace_back(word);
  hidden.insert(hidden.end(), command.begin(), command.end());
  return hidden;
}

TEST(CpldWithoutDevice, Exits1WithoutAMessage) {
  for (const Words &words : {Words{"0", "1", "23"}, Words{"1", "1", "23", "1"}, Words{"4", "1"}, Words{"7", "1"}}) {
    EXPECT_EQ(Command(WithoutDevice(Cpld(words))).Run(), (CommandResult{1, "", ""}));
  }
}

TEST(CpldWithoutDevice, StillPrintsTheUsageText) {
  const CommandResult result = Command(WithoutDevice(Cpld({"0"}))).Run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, kUsage);
}

/// The system calls of one run of cpld without a device, one a line; none when strace cannot be used.
Words SystemCalls(const Words &words) {
  const TempDir dir;
  const std::string log = dir / "calls";
  Words command{"strace", "-o", log};
  const Words cpld = Cpld(words);
  command.insert(command.end(), cpld.begin(), cpld.end());
  // The leak check also traces the process, and only one tracer is possible.
  Command(WithoutDevice(command)).Environment("ASAN_OPTIONS", "detect_leaks=0").Run();
  return std::filesystem::exists(log) ? Lines(FileText(log)) : Words{};
}

bool CanTrace() {
  try {
    return !SystemCalls({}).empty();
  } catch (const std::runtime_error &) {
    return false;
  }
}

constexpr char kCannotTrace[] = "strace is missing or may not trace programs here";

TEST(CpldWithoutDevice, AsksForTheDeviceOnceToReadAndWrite) {
  if (!CanTrace()) GTEST_SKIP() << kCannotTrace;
  Words calls = SystemCalls({"0", "1", "23"});
  std::erase_if(calls, [](const std::string &call) { return call.find("\"/dev/") == std::string::npos; });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_TRUE(calls[0].starts_with("openat(AT_FDCWD, \"/dev/analog/0\", O_RDWR) ") ||
              calls[0].starts_with("open(\"/dev/analog/0\", O_RDWR) "))
      << calls[0];
}

#ifndef INSTRUMENTED  // the run-time libraries of sanitizers and counters have system calls of their own

std::string NameOfCall(const std::string &line) { return line.substr(0, line.find('(')); }

TEST(CpldWithoutDevice, AsksTheSystemForNothingElse) {
  if (!CanTrace()) GTEST_SKIP() << kCannotTrace;
  Words calls = SystemCalls({"0", "1", "23"});
  // The C library's calls at the start are the same for each run. They are taken from a run that prints the usage
  // text with one write and ends.
  Words expected = SystemCalls({});
  ASSERT_EQ(calls.size(), expected.size());
  ASSERT_GT(calls.size(), 3U);
  const Words end(calls.end() - 3, calls.end());
  EXPECT_TRUE(end[0].starts_with("openat(AT_FDCWD, \"/dev/analog/0\", O_RDWR) = -1")) << end[0];
  EXPECT_TRUE(end[1].starts_with("exit_group(1)")) << end[1];
  EXPECT_EQ(end[2], "+++ exited with 1 +++");
  calls.resize(calls.size() - 3);
  expected.resize(expected.size() - 3);
  std::transform(calls.begin(), calls.end(), calls.begin(), NameOfCall);
  std::transform(expected.begin(), expected.end(), expected.begin(), NameOfCall);
  EXPECT_EQ(calls, expected);
}

TEST(CpldProgram, NeedsTheCLibraryOnly) {
  const CommandResult result = Command({"readelf", "-d", CPLD_PATH}).Run();
  ASSERT_EQ(result.status, 0) << result.err;
  Words needed = Lines(result.out);
  std::erase_if(needed, [](const std::string &line) { return line.find("(NEEDED)") == std::string::npos; });
  ASSERT_EQ(needed.size(), 1U);
  EXPECT_NE(needed[0].find("[libc.so"), std::string::npos) << needed[0];
}

#endif

// Standard output is closed.

TEST(CpldOutput, ToAFullDevice_DoesNotChangeTheStatus) {
  for (const Words &words : {Words{}, Words{"0", "1", "23"}, Words{"4", "1"}})
    EXPECT_EQ(Simulated({}, Cpld(words)).OutputTo("/dev/full").Run().status, 0);
}

TEST(CpldOutput, ToAClosedDescriptor_DoesNotChangeTheStatus) {
  EXPECT_EQ(RunSession("$0 >&-").status, 0);
  EXPECT_EQ(RunSession("$0 0 1 23 >&-").status, 0);
  EXPECT_EQ(RunSession("$0 4 1 >&-").status, 0);
  EXPECT_EQ(Command(WithoutDevice(Cpld({"0", "1", "23"}))).CloseOutput().Run().status, 1);
}

TEST(CpldOutput, ToAClosedDescriptor_IsNotWrittenToTheDriver) {
  // The device gets the descriptor of the missing standard output. The simulated device is a file with one byte, so
  // that a write to it can be detected.
  const CommandResult result =
      RunSession("cat /dev/analog/0 | wc -c; $0 1 1 23 7 >&-; cat /dev/analog/0 | od -An -c");
  EXPECT_EQ(result.out, "1\n  \\0\n");
  EXPECT_EQ(RunSession("$0 1 1 23 7 >&-; $0 0 1 23").out, "ch=1, reg23, data=0x7 value=0x0\n");
}

// Anything on the command line.

TEST(CpldRandomCommandLines, AlwaysEndWith0Or1AndOneOfThreeForms) {
#ifdef INSTRUMENTED
  constexpr char kRuns[] = "500";  // an instrumented program takes much longer to start
#else
  constexpr char kRuns[] = "10000";
#endif
  const TestSeed seed;
  EXPECT_EQ(Simulated({}, {RANDOM_RUNS_PATH, CPLD_PATH, kRuns, std::to_string(seed)}).Run(),
            (CommandResult{0, std::string(kRuns) + " runs\n", ""}));
}

}  // namespace
