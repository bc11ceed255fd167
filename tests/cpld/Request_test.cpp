// SPDX-License-Identifier: MIT
// The command line of cpld turned into a request record: word counts, conversions, the record's bytes.

#include "cpld/Request.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "tests/cpld/RandomWords.h"
#include "tests/support/TestSeed.h"

namespace {

using cpld::Action;
using cpld::TAnalogRegRequest;
using namespace devsupport::test;

struct Parsed {
  Action action;
  TAnalogRegRequest request;
};

/// Parses the words after the program's name into a record of random bytes.
Parsed Parse(const std::vector<std::string> &words) {
  std::vector<const char *> args{"cpld"};
  for (const std::string &word : words) args.push_back(word.c_str());
  const int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  Parsed parsed;
  std::memset(&parsed.request, 0xA5, sizeof parsed.request);
  parsed.action = cpld::ParseRequest(count, args.data(), &parsed.request);
  return parsed;
}

/// Names a parameterised test after its parameter.
struct NameOf {
  template <typename Parameter>
  std::string operator()(const ::testing::TestParamInfo<Parameter> &test) const {
    return test.param.name;
  }
};

using Bytes = std::array<std::uint8_t, 24>;

Bytes BytesOf(const TAnalogRegRequest &request) { return std::bit_cast<Bytes>(request); }

std::int32_t ValueSentFor(const std::string &value) { return Parse({"1", "1", "23", value}).request.nValue; }
std::int32_t ChannelSentFor(const std::string &channel) { return Parse({"0", channel, "23"}).request.nChannel; }
std::int32_t RegisterSentFor(const std::string &number) { return Parse({"0", "1", number}).request.nRegister; }

// What each command sends.

struct Row {
  const char *name;
  std::vector<std::string> words;
  Action action;
  std::uint32_t code;
  std::int32_t channel;
  std::int32_t registerNumber;
  std::int32_t value;
};

std::ostream &operator<<(std::ostream &stream, const Row &row) { return stream << row.name; }

class EachCommand : public ::testing::TestWithParam<Row> {};

TEST_P(EachCommand, FillsTheRecord) {
  const Row &row = GetParam();
  const Parsed parsed = Parse(row.words);
  EXPECT_EQ(parsed.action, row.action);
  EXPECT_EQ(static_cast<std::uint32_t>(parsed.request.dwRequest), row.code);
  EXPECT_EQ(parsed.request.nChannel, row.channel);
  EXPECT_EQ(parsed.request.nRegister, row.registerNumber);
  EXPECT_EQ(parsed.request.nValue, row.value);
  EXPECT_EQ(parsed.request.adwReserved[0], 0U);
  EXPECT_EQ(parsed.request.adwReserved[1], 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Request, EachCommand,
    ::testing::Values(Row{"GetDirect", {"0", "1", "23"}, Action::Register, 10019, 1, 23, 0},
                      Row{"SetDirect", {"1", "2", "24", "0x30"}, Action::Register, 10021, 2, 24, 48},
                      Row{"GetIndirect", {"2", "3", "25"}, Action::Register, 10018, 3, 25, 0},
                      Row{"SetIndirect", {"3", "4", "26", "7"}, Action::Register, 10020, 4, 26, 7},
                      Row{"DebugOn", {"4", "1"}, Action::DebugSwitch, 10037, 0, 0, 0},
                      Row{"DebugOff", {"4", "0"}, Action::DebugSwitch, 10037, 1, 0, 0},
                      Row{"DebugOnByAnyOtherNumber", {"4", "-2"}, Action::DebugSwitch, 10037, 0, 0, 0},
                      Row{"DebugOffByGarbage", {"4", "on"}, Action::DebugSwitch, 10037, 1, 0, 0}),
    NameOf());

TEST(RequestRecord, HasTheDriversByteOrderAndOffsets) {
  const Bytes expected = {0x25, 0x27, 0, 0, 1, 0, 0, 0, 23, 0, 0, 0, 0x78, 0x56, 0x34, 0x12, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(BytesOf(Parse({"1", "1", "23", "0x12345678"}).request), expected);
}

// How many words a command takes.

struct Count {
  const char *name;
  std::vector<std::string> words;
};

std::ostream &operator<<(std::ostream &stream, const Count &count) { return stream << count.name; }

class WrongCount : public ::testing::TestWithParam<Count> {};

TEST_P(WrongCount, AsksForTheUsageTextAndLeavesTheRecordZero) {
  const Parsed parsed = Parse(GetParam().words);
  EXPECT_EQ(parsed.action, Action::Usage);
  EXPECT_EQ(BytesOf(parsed.request), Bytes{});
}

INSTANTIATE_TEST_SUITE_P(Request, WrongCount,
                         ::testing::Values(Count{"NoWord", {}},                                      //
                                           Count{"CommandAlone", {"0"}},                             //
                                           Count{"UnknownCommandAlone", {"7"}},                      //
                                           Count{"DebugAlone", {"4"}},                               //
                                           Count{"GetDirectOf2", {"0", "1"}},                        //
                                           Count{"GetDirectOf4", {"0", "1", "23", "0x30"}},          //
                                           Count{"SetDirectOf2", {"1", "1"}},                        //
                                           Count{"SetDirectOf3", {"1", "1", "23"}},                  //
                                           Count{"SetDirectOf5", {"1", "1", "23", "0x30", "1"}},     //
                                           Count{"GetIndirectOf2", {"2", "1"}},                      //
                                           Count{"GetIndirectOf4", {"2", "1", "23", "0x30"}},        //
                                           Count{"SetIndirectOf3", {"3", "1", "23"}},                //
                                           Count{"SetIndirectOf5", {"3", "1", "23", "0x30", "1"}},   //
                                           Count{"DebugOf3", {"4", "1", "0"}},                       //
                                           Count{"GarbageIsGetDirectOf2", {"help", "me"}},           //
                                           Count{"TrailingGarbageIsSetDirectOf3", {"1x", "1", "2"}}  //
                                           ),
                         NameOf());

TEST(RequestCount, WithoutEvenAProgramName_AsksForTheUsageText) {
  const char *const none[] = {nullptr};
  TAnalogRegRequest request;
  std::memset(&request, 0xA5, sizeof request);
  EXPECT_EQ(cpld::ParseRequest(0, none, &request), Action::Usage);
  EXPECT_EQ(BytesOf(request), Bytes{});
}

// Unknown command numbers.

class UnknownCommand : public ::testing::TestWithParam<const char *> {};

TEST_P(UnknownCommand, IsSentAsRequest0WithChannelAndRegister) {
  const Parsed parsed = Parse({GetParam(), "1", "2"});
  EXPECT_EQ(parsed.action, Action::Register);
  EXPECT_EQ(BytesOf(parsed.request), (Bytes{0, 0, 0, 0, 1, 0, 0, 0, 2}));
}

INSTANTIATE_TEST_SUITE_P(Request, UnknownCommand,
                         ::testing::Values("5", "7", "-1", "-4294967295", "2147483647", "-2147483648",
                                           "4294967296",  // 2^32: clamps, and so is not command 0
                                           "4294967297", "18446744073709551616", "99999999999999999999999"));

TEST(RequestOfUnknownCommand, WithTwoWords_ReadsTheMissingRegisterAs0) {
  const Parsed parsed = Parse({"7", "1"});
  EXPECT_EQ(parsed.action, Action::Register);
  EXPECT_EQ(BytesOf(parsed.request), (Bytes{0, 0, 0, 0, 1}));
}

TEST(RequestOfUnknownCommand, WithAValueWord_DoesNotReadIt) {
  EXPECT_EQ(BytesOf(Parse({"7", "1", "2", "0x30"}).request), (Bytes{0, 0, 0, 0, 1, 0, 0, 0, 2}));
}

TEST(RequestOfUnknownCommand, WithManyWords_IsNoUsageError) {
  EXPECT_EQ(Parse({"-1", "1", "2", "3", "4", "5", "6"}).action, Action::Register);
}

// Numbers.

TEST(CommandWord, MayHaveBlanksASignAndATail) {
  EXPECT_EQ(static_cast<std::uint32_t>(Parse({" \t\n+2nd", "1", "2"}).request.dwRequest), 10018U);
}

TEST(CommandWord, ThatIsGarbageOrEmpty_IsCommand0) {
  EXPECT_EQ(static_cast<std::uint32_t>(Parse({"get", "1", "2"}).request.dwRequest), 10019U);
  EXPECT_EQ(static_cast<std::uint32_t>(Parse({"", "1", "2"}).request.dwRequest), 10019U);
}

TEST(CommandWord, IsDecimalOnly) {
  EXPECT_EQ(static_cast<std::uint32_t>(Parse({"0x1", "1", "2"}).request.dwRequest), 10019U);
  EXPECT_EQ(static_cast<std::uint32_t>(Parse({"02", "1", "2"}).request.dwRequest), 10018U);
}

TEST(ChannelAndRegister, AreDecimalOnly) {
  EXPECT_EQ(ChannelSentFor("010"), 10);
  EXPECT_EQ(ChannelSentFor("0x10"), 0);
  EXPECT_EQ(RegisterSentFor("010"), 10);
  EXPECT_EQ(RegisterSentFor("0x10"), 0);
}

TEST(ChannelAndRegister, TakeBlanksAndASignAndStopAtTheFirstNonDigit) {
  EXPECT_EQ(ChannelSentFor(" \t-3.7"), -3);
  EXPECT_EQ(RegisterSentFor("\n+23abc"), 23);
  EXPECT_EQ(ChannelSentFor("- 3"), 0);
  EXPECT_EQ(RegisterSentFor("--3"), 0);
}

TEST(ChannelAndRegister, ThatAreGarbageOrEmpty_Are0) {
  EXPECT_EQ(ChannelSentFor("one"), 0);
  EXPECT_EQ(ChannelSentFor(""), 0);
  EXPECT_EQ(RegisterSentFor("x23"), 0);
  EXPECT_EQ(RegisterSentFor(" "), 0);
}

TEST(ChannelAndRegister, Beyond32Bits_Clamp) {
  EXPECT_EQ(ChannelSentFor("2147483648"), INT32_MAX);
  EXPECT_EQ(ChannelSentFor("4294967297"), INT32_MAX);
  EXPECT_EQ(RegisterSentFor("-2147483649"), INT32_MIN);
  EXPECT_EQ(RegisterSentFor("-99999999999999999999999"), INT32_MIN);
}

TEST(ValueWord, IsDecimalHexadecimalOrOctalByItsPrefix) {
  EXPECT_EQ(ValueSentFor("48"), 48);
  EXPECT_EQ(ValueSentFor("0x30"), 48);
  EXPECT_EQ(ValueSentFor("0X30"), 48);
  EXPECT_EQ(ValueSentFor("060"), 48);
  EXPECT_EQ(ValueSentFor("-0x30"), -48);
  EXPECT_EQ(ValueSentFor(" +060"), 48);
}

TEST(ValueWord, StopsAtTheFirstCharacterThatDoesNotFitTheBase) {
  EXPECT_EQ(ValueSentFor("089"), 0);
  EXPECT_EQ(ValueSentFor("0x3g"), 3);
  EXPECT_EQ(ValueSentFor("0x"), 0);
  EXPECT_EQ(ValueSentFor("12ab"), 12);
  EXPECT_EQ(ValueSentFor("garbage"), 0);
  EXPECT_EQ(ValueSentFor(""), 0);
}

TEST(ValueWord, AtTheEdgesOf32Bits_IsExact) {
  EXPECT_EQ(ValueSentFor("0x7fffffff"), INT32_MAX);
  EXPECT_EQ(ValueSentFor("-2147483648"), INT32_MIN);
  EXPECT_EQ(ValueSentFor("-0x80000000"), INT32_MIN);
}

TEST(ValueWord, Beyond32Bits_ClampsAsALongOfTheDevice) {
  EXPECT_EQ(ValueSentFor("0xffffffff"), INT32_MAX);
  EXPECT_EQ(ValueSentFor("0x80000000"), INT32_MAX);
  EXPECT_EQ(ValueSentFor("037777777777"), INT32_MAX);
  EXPECT_EQ(ValueSentFor("4294967296"), INT32_MAX);
  EXPECT_EQ(ValueSentFor("0xffffffffffffffffffff"), INT32_MAX);
  EXPECT_EQ(ValueSentFor("-2147483649"), INT32_MIN);
  EXPECT_EQ(ValueSentFor("-0xffffffff"), INT32_MIN);
}

TEST(ValueWord, OfAGet_IsNeverThere) { EXPECT_EQ(Parse({"2", "1", "23"}).request.nValue, 0); }

// 10,000 random command lines: the record is always a valid request.

void ExpectSendable(const Parsed &parsed) {
  const auto code = static_cast<std::uint32_t>(parsed.request.dwRequest);
  const bool isSet = code == 10020 || code == 10021;
  const bool isDebug = code == 10037;
  EXPECT_TRUE(code == 0 || (code >= 10018 && code <= 10021) || isDebug) << code;
  EXPECT_EQ(parsed.action == Action::DebugSwitch, isDebug);
  EXPECT_TRUE(isSet || parsed.request.nValue == 0);
  EXPECT_TRUE(!isDebug || (parsed.request.nChannel & ~1) == 0);
  EXPECT_TRUE(parsed.action != Action::Usage || BytesOf(parsed.request) == Bytes{});
  EXPECT_EQ(parsed.request.adwReserved[0] | parsed.request.adwReserved[1], 0U);
}

TEST(RandomCommandLine, AlwaysGivesARecordThatCanBeSent) {
  const TestSeed seed;
  cpld_test::RandomWords random(seed);
  for (int line = 0; line < 10'000 && !::testing::Test::HasFailure(); ++line) {
    const std::vector<std::string> words = random.Line();
    SCOPED_TRACE(::testing::PrintToString(words));
    ExpectSendable(Parse(words));
  }
}

}  // namespace
