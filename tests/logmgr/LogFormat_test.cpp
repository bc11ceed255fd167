// SPDX-License-Identifier: MIT
// Values in the form of log messages, each in a buffer of exactly the needed size.

#include <devsupport/logmgr/LogFormat.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstdint>
#include <string>

#include "tests/text/GuardedBuffer.h"

namespace {

using devsupport::test::GuardedBuffer;

/// The text that a formatter writes to a buffer of exactly the needed size.
template <typename TFormatter, typename TValue>
std::string Shown(TFormatter *formatter, TValue value, std::size_t room) {
  GuardedBuffer buffer(room);
  EXPECT_EQ(formatter(buffer.Data(), value), buffer.Data());
  EXPECT_TRUE(buffer.GuardsIntact());
  return buffer.Text();
}

TEST(LogFormat, Int_IsDecimal) {
  EXPECT_EQ(Shown(LogFmt_Int, 0, 2), "0");
  EXPECT_EQ(Shown(LogFmt_Int, INT_MAX, 11), "2147483647");
  EXPECT_EQ(Shown(LogFmt_Int, INT_MIN, 12), "-2147483648");
}

TEST(LogFormat, Float_HasSixDecimals) {
  EXPECT_EQ(Shown(LogFmt_Float, 1.5F, 9), "1.500000");
  EXPECT_EQ(Shown(LogFmt_Float, 0.1F, 9), "0.100000");
  EXPECT_EQ(Shown(LogFmt_Float, -FLT_MAX, 48), "-340282346638528859811704183484516925440.000000");
}

TEST(LogFormat, Float_IsWidenedToDouble) { EXPECT_EQ(Shown(LogFmt_Float, 16777.217F, 13), "16777.216797"); }

TEST(LogFormat, Double_HasSixDecimals) {
  EXPECT_EQ(Shown(LogFmt_Double, -2.25, 10), "-2.250000");
  EXPECT_EQ(Shown(LogFmt_Double, 16777.217, 13), "16777.217000");
  EXPECT_EQ(Shown(LogFmt_Double, -DBL_MAX, 318).size(), 317u);
}

TEST(LogFormat, Char_IsTheCharacterAndANul) {
  EXPECT_EQ(Shown(LogFmt_Char, 'x', 2), "x");
  EXPECT_EQ(Shown(LogFmt_Char, '%', 2), "%");
  GuardedBuffer buffer(2);
  LogFmt_Char(buffer.Data(), '\0');
  EXPECT_EQ(buffer.Bytes(), std::string(2, '\0'));
}

TEST(LogFormat, Hex_IsUpperCase) {
  EXPECT_EQ(Shown(LogFmt_Hex, 0xbeef, 5), "BEEF");
  EXPECT_EQ(Shown(LogFmt_Hex, -1, 9), "FFFFFFFF");
  EXPECT_EQ(Shown(LogFmt_HexU, 0xdeadbeefU, 9), "DEADBEEF");
  EXPECT_EQ(Shown(LogFmt_HexU, 0U, 2), "0");
}

TEST(LogFormat, Chn_IsALabelAndADecimal) {
  EXPECT_EQ(Shown(LogFmt_Chn, 3, 8), "CHN=3, ");
  EXPECT_EQ(Shown(LogFmt_Chn, INT_MIN, 18), "CHN=-2147483648, ");
}

TEST(LogFormat, Sid_IsALabelAndLowerCaseHex) {
  EXPECT_EQ(Shown(LogFmt_Sid, std::int16_t{0x7abc}, 11), "SID=7abc, ");
  EXPECT_EQ(Shown(LogFmt_Sid, std::int16_t{0}, 8), "SID=0, ");
}

TEST(LogFormat, Sid_OfANegativeNumber_IsWidenedWithItsSign) {
  EXPECT_EQ(Shown(LogFmt_Sid, std::int16_t{-1}, 15), "SID=ffffffff, ");
  EXPECT_EQ(Shown(LogFmt_Sid, std::int16_t{INT16_MIN}, 15), "SID=ffff8000, ");
}

}  // namespace
