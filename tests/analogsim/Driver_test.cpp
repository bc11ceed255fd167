// SPDX-License-Identifier: MIT
// The simulated driver's answers to requests, and the registers that it keeps.

#include "tools/analogsim/Driver.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>

namespace {

using namespace analogsim;

constexpr std::uint32_t kGetIndirect = 10018;
constexpr std::uint32_t kGetDirect = 10019;
constexpr std::uint32_t kSetIndirect = 10020;
constexpr std::uint32_t kSetDirect = 10021;
constexpr std::uint32_t kSetDebug = 10037;

Record Ask(std::uint32_t request, std::int32_t channel, std::int32_t number, std::int32_t value = 0) {
  return {.dwRequest = cpld::AnalogRequest{request},
          .nChannel = channel,
          .nRegister = number,
          .nValue = value,
          .adwReserved = {}};
}

class DriverOf4Channels : public ::testing::Test {
 protected:
  Answer Handle(std::uint32_t request, std::int32_t channel, std::int32_t number, std::int32_t value = 0) {
    return driver_.Handle(request, Ask(request, channel, number, value), registers_);
  }

  Driver driver_{Behaviour{}};
  Registers registers_;
};

TEST_F(DriverOf4Channels, GetOfARegisterNeverWritten_Answers0) {
  const Answer answer = Handle(kGetDirect, 1, 23, 0x5A5A);
  EXPECT_EQ(answer.record.nValue, 0);
  EXPECT_EQ(answer.result, 0);
}

TEST_F(DriverOf4Channels, Get_LeavesNoTraceInTheRegisters) {
  Handle(kGetDirect, 1, 23);
  Handle(kGetIndirect, 1, 23);
  EXPECT_EQ(registers_, Registers{});
}

TEST_F(DriverOf4Channels, Set_IsReadBackWithTheRestOfTheRecordAsItWent) {
  const Answer set = Handle(kSetDirect, 1, 23, -48);
  EXPECT_EQ(set.result, 0);
  EXPECT_EQ(set.record.nValue, -48);
  const Answer got = Handle(kGetDirect, 1, 23);
  EXPECT_EQ(got.record.nChannel, 1);
  EXPECT_EQ(got.record.nRegister, 23);
  EXPECT_EQ(got.record.nValue, -48);
}

TEST_F(DriverOf4Channels, BanksAndChannels_AreApart) {
  Handle(kSetDirect, 1, 23, 1);
  Handle(kSetIndirect, 1, 23, 2);
  Handle(kSetDirect, 2, 23, 3);
  EXPECT_EQ(Handle(kGetDirect, 1, 23).record.nValue, 1);
  EXPECT_EQ(Handle(kGetIndirect, 1, 23).record.nValue, 2);
  EXPECT_EQ(Handle(kGetDirect, 2, 23).record.nValue, 3);
  EXPECT_EQ(Handle(kGetIndirect, 2, 23).record.nValue, 0);
  EXPECT_EQ(Handle(kGetDirect, 1, 24).record.nValue, 0);
}

TEST_F(DriverOf4Channels, AnyRegisterNumber_Exists) {
  for (const std::int32_t number : {std::numeric_limits<std::int32_t>::min(), -1, 0, 65536}) {
    Handle(kSetDirect, 0, number, number + 1);
    EXPECT_EQ(Handle(kGetDirect, 0, number).record.nValue, number + 1);
  }
}

TEST_F(DriverOf4Channels, RequestsForOtherChannels_FailWithEnxioAndChangeNothing) {
  for (const std::int32_t channel : {-1, 4, std::numeric_limits<std::int32_t>::max()}) {
    for (const std::uint32_t request : {kGetDirect, kSetDirect, kGetIndirect, kSetIndirect}) {
      const Answer answer = Handle(request, channel, 1, 7);
      EXPECT_EQ(answer.result, -1);
      EXPECT_EQ(answer.error, ENXIO);
      EXPECT_EQ(answer.record.nValue, 7);
    }
  }
  EXPECT_EQ(registers_, Registers{});
}

TEST_F(DriverOf4Channels, Channels0And3_Exist) {
  EXPECT_EQ(Handle(kGetDirect, 0, 1).result, 0);
  EXPECT_EQ(Handle(kGetDirect, 3, 1).result, 0);
}

TEST_F(DriverOf4Channels, DebugSwitch_IsOnWith0AndOffWith1) {
  EXPECT_EQ(Handle(kSetDebug, 0, 0).result, 0);
  EXPECT_TRUE(registers_.debug);
  EXPECT_EQ(Handle(kSetDebug, 1, 0).result, 0);
  EXPECT_FALSE(registers_.debug);
}

TEST_F(DriverOf4Channels, DebugSwitchOfAnotherNumber_FailsWithEinvalAndStaysAsItWas) {
  Handle(kSetDebug, 0, 0);
  EXPECT_EQ(Handle(kSetDebug, 2, 0).error, EINVAL);
  EXPECT_TRUE(registers_.debug);
}

TEST_F(DriverOf4Channels, UnknownRequests_FailWithEnotty) {
  for (const std::uint32_t request : {0U, 1U, 10017U, 10022U, 10036U, 10038U, 0x5401U, 0xFFFFFFFFU}) {
    const Answer answer = Handle(request, 1, 2, 3);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, ENOTTY);
  }
  EXPECT_EQ(registers_, Registers{});
}

TEST(DriverOf1Channel, StillHasADebugSwitchThatGoesOff) {
  Registers registers{.debug = true};
  const Driver driver(Behaviour{.channels = 1});
  EXPECT_EQ(driver.Handle(kSetDebug, Ask(kSetDebug, 1, 0), registers).result, 0);
  EXPECT_FALSE(registers.debug);
}

TEST(DriverThatFails, AnswersEveryRequestWithTheErrorAndChangesNothing) {
  Registers registers;
  const Driver driver(Behaviour{.failure = EIO});
  for (const std::uint32_t request : {kGetDirect, kSetDirect, kSetDebug, 0U}) {
    const Answer answer = driver.Handle(request, Ask(request, 0, 2, 3), registers);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, EIO);
    EXPECT_EQ(answer.record.nValue, 3);
  }
  EXPECT_EQ(registers, Registers{});
}

TEST(DriverThatDistorts, ChangesTheAnswerAndNotWhatItKeeps) {
  Registers registers;
  const Driver driver(Behaviour{.distortion = {.channel = 7, .registerNumber = 8, .value = 9, .result = 10}});
  const Answer answer = driver.Handle(kSetDirect, Ask(kSetDirect, 1, 2, 3), registers);
  EXPECT_EQ(answer.record.nChannel, 7);
  EXPECT_EQ(answer.record.nRegister, 8);
  EXPECT_EQ(answer.record.nValue, 9);
  EXPECT_EQ(answer.result, 10);
  EXPECT_EQ(registers.channels.at(1).direct, (Bank{{2, 3}}));
}

TEST(DriverThatDistorts, DoesNotTurnAFailureIntoASuccess) {
  Registers registers;
  const Driver driver(Behaviour{.distortion = {.result = 10}});
  EXPECT_EQ(driver.Handle(0, Ask(0, 1, 2), registers).result, -1);
}

}  // namespace
