// SPDX-License-Identifier: MIT
// The build stamp from the compiler's date and time texts.

#include <devsupport/text/BuildStamp.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/text/GuardedBuffer.h"

namespace {

using devsupport::test::GuardedBuffer;
using namespace std::string_literals;

std::string Stamp(char separator, const std::string &date, const std::string &time) {
  GuardedBuffer buffer(16);
  GetBuildTimeStr(buffer.Data(), separator, date.c_str(), time.c_str());
  EXPECT_TRUE(buffer.GuardsIntact());
  return buffer.Bytes();
}

TEST(BuildStamp, DateAndTime_AreWrittenInFixedWidth) {
  EXPECT_EQ(Stamp('.', "Feb  5 2007", "09:32:30"), "20070205.093230\0"s);
}

TEST(BuildStamp, DayOfTwoDigitsAndOtherSeparator) {
  EXPECT_EQ(Stamp('-', "Dec 31 1999", "23:59:58"), "19991231-235958\0"s);
}

TEST(BuildStamp, EveryMonth_HasItsNumber) {
  const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  int number = 0;
  for (const char *month : months) {
    ++number;
    const std::string digits = (number < 10 ? "0" : "") + std::to_string(number);
    EXPECT_EQ(Stamp('.', month + " 17 2024"s, "00:00:00"), "2024" + digits + "17.000000\0"s);
  }
}

TEST(BuildStamp, UnknownMonth_Gives00) {
  EXPECT_EQ(Stamp('.', "Foo  5 2007", "09:32:30"), "20070005.093230\0"s);
  EXPECT_EQ(Stamp('.', "feb  5 2007", "09:32:30"), "20070005.093230\0"s);
}

TEST(BuildStamp, CompilersOwnTexts_GiveDigitsOnly) {
  const std::string stamp = Stamp('.', __DATE__, __TIME__);
  for (const int i : {0, 1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 12, 13, 14})
    EXPECT_TRUE(stamp[static_cast<std::size_t>(i)] >= '0' && stamp[static_cast<std::size_t>(i)] <= '9') << stamp;
}

}  // namespace
