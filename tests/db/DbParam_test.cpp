// SPDX-License-Identifier: MIT
// Settings with defaults.

#include <devsupport/db/DbParam.h>

#include <cstring>
#include <string>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"

namespace {

using namespace devsupport::test;

class Param : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) Open();
  }
  static void Store(const char *pName, const std::string &value) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, pName, value.c_str()), BERKDB_OK);
  }
  // The whole buffer of a text setting, preset to '#'.
  static std::string Buffer(const char *pName, std::int32_t room, const char *pDefault) {
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    GetDbParamToStr(pName, buffer, room, pDefault);
    return {buffer, sizeof buffer};
  }
};

TEST_F(Param, ToInt_OfANumber_IsTheNumber) {
  Store("vlan", "42");
  Store("minus", "-7");
  EXPECT_EQ(GetDbParamToInt("vlan", 1), 42);
  EXPECT_EQ(GetDbParamToInt("minus", 1), -7);
}

TEST_F(Param, ToInt_OfAMissingName_IsTheDefaultAndPrintsNothing) {
  CapturedOutput err(stderr);
  EXPECT_EQ(GetDbParamToInt("none", -4711), -4711);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Param, ToInt_OfWhatIsNoNumber_IsTheDefault) {
  Store("words", "12abc");
  Store("empty", "");
  EXPECT_EQ(GetDbParamToInt("words", 3), 3);
  EXPECT_EQ(GetDbParamToInt("empty", 3), 3);
}

TEST_F(Param, ToInt_OfATextOf31Characters_IsRead) {
  Store("long", std::string(29, '0') + "42");
  EXPECT_EQ(GetDbParamToInt("long", 3), 42);
}

TEST_F(Param, ToInt_OfATextOf32Characters_IsTheDefault) {
  Store("longer", std::string(30, '0') + "42");
  EXPECT_EQ(GetDbParamToInt("longer", 3), 3);
}

TEST_F(Param, ToInt_OfATextWithoutTerminator_EndsWhereTheRecordEnds) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "short", "42", 2), BERKDB_OK);
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "full", "00000000000000000000000000000042", 32), BERKDB_OK);
  EXPECT_EQ(GetDbParamToInt("short", 3), 42);
  EXPECT_EQ(GetDbParamToInt("full", 3), 42);
}

TEST_F(Param, ToInt_WhileTheStoreIsClosed_IsTheDefault) {
  BerkDb_Close();
  CapturedOutput err(stderr);
  EXPECT_EQ(GetDbParamToInt("vlan", 3), 3);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Param, ToStr_OfAText_IsTheText) {
  Store("dbl", "sipd=2");
  EXPECT_EQ(Buffer("dbl", 16, "none"), Raw("sipd=2\0#########"));
}

TEST_F(Param, ToStr_OfAMissingName_IsTheDefaultFilledUpWithNul) {
  EXPECT_EQ(Buffer("none", 6, "abc"), Raw("abc\0\0\0##########"));
}

TEST_F(Param, ToStr_OfATextThatDoesNotFit_IsTheDefault) {
  Store("dbl", "1234");
  EXPECT_EQ(Buffer("dbl", 5, "x"), Raw("1234\0###########"));
  EXPECT_EQ(Buffer("dbl", 4, "x"), Raw("x\0\0\0############"));
}

TEST_F(Param, ToStr_WithADefaultThatFillsTheBuffer_HasNoTerminator) {
  EXPECT_EQ(Buffer("none", 3, "abcdef"), "abc#############");
  EXPECT_EQ(Buffer("none", 3, "abc"), "abc#############");
}

TEST_F(Param, ToStr_OfATextWithoutTerminator_EndsWhereTheRecordEnds) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "raw", "abc", 3), BERKDB_OK);
  EXPECT_EQ(Buffer("raw", 16, "x"), Raw("abc\0############"));
}

TEST_F(Param, ToStr_WithoutRoomOrBufferOrDefault_WritesNoMoreThanItMay) {
  EXPECT_EQ(Buffer("none", 0, "abc"), "################");
  EXPECT_EQ(Buffer("none", -1, "abc"), "################");
  EXPECT_EQ(Buffer("none", 2, nullptr), Raw("\0\0##############"));
  GetDbParamToStr("none", nullptr, 5, "abc");
}

TEST_F(Param, ToStr_WhileTheStoreIsClosed_IsTheDefault) {
  BerkDb_Close();
  EXPECT_EQ(Buffer("dbl", 4, "x"), Raw("x\0\0\0############"));
}

}  // namespace
