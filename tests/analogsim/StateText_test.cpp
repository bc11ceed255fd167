// SPDX-License-Identifier: MIT
// The text of a state file, written and read.

#include "tools/analogsim/StateText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

namespace {

using namespace analogsim;

constexpr auto kMin = std::numeric_limits<std::int32_t>::min();
constexpr auto kMax = std::numeric_limits<std::int32_t>::max();

TEST(StateText, OfNothing_IsReadable) {
  EXPECT_EQ(ToStateText({}), "{\n  \"version\": 1,\n  \"debug\": false,\n  \"channels\": {}\n}\n");
}

TEST(StateText, OfSomeRegisters_NamesChannelBankAndRegister) {
  const Registers registers{.channels = {{1, {.direct = {{23, 48}}, .indirect = {}}}}, .debug = true};
  EXPECT_EQ(ToStateText(registers),
            R"({
  "version": 1,
  "debug": true,
  "channels": {
    "1": {
      "direct": {
        "23": 48
      },
      "indirect": {}
    }
  }
}
)");
}

TEST(StateText, ComesBackAsItWas) {
  const Registers registers{.channels = {{0, {.direct = {{kMin, kMax}, {0, 0}}, .indirect = {{kMax, kMin}}}},
                                         {-3, {.direct = {}, .indirect = {{-1, -1}}}}},
                            .debug = true};
  EXPECT_EQ(FromStateText(ToStateText(registers)), registers);
}

class DamagedText : public ::testing::TestWithParam<const char *> {};

TEST_P(DamagedText, IsRefused) { EXPECT_THROW(FromStateText(GetParam()), std::runtime_error); }

INSTANTIATE_TEST_SUITE_P(
    StateText, DamagedText,
    ::testing::Values("", "{", "[]", "null", "{}", "rubbish",
                      R"({"version":1,"debug":false,"channels":{}} tail)",                              //
                      R"({"version":2,"debug":false,"channels":{}})",                                   //
                      R"({"version":"1","debug":false,"channels":{}})",                                 //
                      R"({"version":1,"debug":0,"channels":{}})",                                       //
                      R"({"version":1,"debug":false,"channels":[]})",                                   //
                      R"({"version":1,"debug":false})",                                                 //
                      R"({"version":1,"debug":false,"channels":{},"more":1})",                          //
                      R"({"version":1,"debug":false,"channels":{"one":{"direct":{},"indirect":{}}}})",  //
                      R"({"version":1,"debug":false,"channels":{"01":{"direct":{},"indirect":{}}}})",   //
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{}}}})",                  //
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":[],"indirect":{}}}})",    //
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{"x":1},"indirect":{}}}})",
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{"2":"1"},"indirect":{}}}})",
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{"2":1.5},"indirect":{}}}})",
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{"2":2147483648},"indirect":{}}}})",
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{"2":-2147483649},"indirect":{}}}})",
                      R"({"version":1,"debug":false,"channels":{"1":{"direct":{"4294967296":1},"indirect":{}}}})"));

TEST(DamagedStateText, NamesThePlaceOfTheDamage) {
  try {
    FromStateText(R"({"version":1,"debug":false,"channels":{"3":{"direct":{"7":true},"indirect":{}}}})");
    FAIL() << "was taken";
  } catch (const std::runtime_error &error) {
    EXPECT_STREQ(error.what(), "channel 3 direct register 7 holds no whole number");
  }
}

}  // namespace
