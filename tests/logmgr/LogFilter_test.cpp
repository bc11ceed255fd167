// SPDX-License-Identifier: MIT
// The log filter, read from a real configuration store.

#include <devsupport/logmgr/LogFilter.h>
#include <devsupport/logmgr/LogInfoShm.h>

#include <cstdint>
#include <string>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"

namespace {

using namespace devsupport::test;

constexpr int kDefault = -4711;

class Filter : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    Open();
    TLogInfoShm_ChangeFilter(-1, 0);
  }
  static void Store(const char *key, const std::string &list) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, key, list.c_str()), BERKDB_OK);
  }
  /// The level that the list has for a process of that name.
  static int In(const std::string &list, const char *name) {
    Store("dbl", list);
    return GetDbLogParam(name, "dbl", kDefault);
  }
};

TEST_F(Filter, Param_IsTheEntryOfThatName) {
  EXPECT_EQ(In("sipd=2;cfgd=5", "cfgd"), 5);
  EXPECT_EQ(In("sipd=2;cfgd=5", "sipd"), 2);
  EXPECT_EQ(In("name1=3,name2=5;name3=1", "name2"), 5);
  EXPECT_EQ(In("a=-7,b=+8", "a"), -7);
  EXPECT_EQ(In("a=-7,b=+8", "b"), 8);
}

TEST_F(Filter, Param_WithoutAnEntry_IsTheDefault) {
  EXPECT_EQ(In("sipd=2;cfgd=5", "logd"), kDefault);
  EXPECT_EQ(In("", "logd"), kDefault);
  EXPECT_EQ(In("logd", "logd"), kDefault);
  EXPECT_EQ(GetDbLogParam("logd", "none", kDefault), kDefault);
}

TEST_F(Filter, Param_IsFoundAtTheEndOfALongerName) {
  EXPECT_EQ(In("sipd=2;cfgd=5", "d"), 2);
  EXPECT_EQ(In("xcfgd=1;cfgd=5", "cfgd"), 1);
  EXPECT_EQ(In("a=3", ""), 3);
}

TEST_F(Filter, Param_IsFoundInCaseOnly) { EXPECT_EQ(In("SIPD=2", "sipd"), kDefault); }

TEST_F(Filter, Param_ThatIsNoNumber_Is0) {
  EXPECT_EQ(In("cfgd=abc", "cfgd"), 0);
  EXPECT_EQ(In("cfgd=5x;a=1", "cfgd"), 0);
  EXPECT_EQ(In("cfgd=0x10", "cfgd"), 0);
}

TEST_F(Filter, Param_ThatIsEmpty_Is0) {
  EXPECT_EQ(In("cfgd=", "cfgd"), 0);
  EXPECT_EQ(In("cfgd=;a=1", "cfgd"), 0);
  EXPECT_EQ(In("cfgd=,a=1", "cfgd"), 0);
}

TEST_F(Filter, Param_WithBlanks_IsReadAsNumbersAre) {
  EXPECT_EQ(In("cfgd= 5;a=1", "cfgd"), 5);
  EXPECT_EQ(In("cfgd=5 ;a=1", "cfgd"), 0);
}

TEST_F(Filter, Param_OfMoreThan15Characters_IsReadFromTheFirst15) {
  EXPECT_EQ(In("cfgd=000000000000042999", "cfgd"), 42);
}

TEST_F(Filter, Param_InAListOf255Characters_IsFound) { EXPECT_EQ(In(std::string(248, 'x') + "cfgd=42", "cfgd"), 42); }

TEST_F(Filter, Param_InALongerList_IsTheDefault) {
  EXPECT_EQ(In("cfgd=42;" + std::string(248, 'x'), "cfgd"), kDefault);
}

TEST_F(Filter, Param_InAListOf256CharactersWithoutANul_EndsWithIt) {
  const std::string list = std::string(249, 'x') + "cfgd=42";
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "dbl", list.data(), 256), BERKDB_OK);
  EXPECT_EQ(GetDbLogParam("cfgd", "dbl", kDefault), 42);
}

TEST_F(Filter, Param_OfALongName_IsFoundUpTo126Characters) {
  const std::string name(126, 'n');
  EXPECT_EQ(In(name + "=42", name.c_str()), 42);
  // With one more character there is no room for the '=', and the rest of the text is no number.
  const std::string longer(127, 'n');
  EXPECT_EQ(In(longer + "=42", longer.c_str()), 0);
}

TEST_F(Filter, Param_WhileTheStoreIsClosed_IsTheDefault) {
  Store("dbl", "cfgd=5");
  BerkDb_Close();
  CapturedOutput err(stderr);
  EXPECT_EQ(GetDbLogParam("cfgd", "dbl", kDefault), kDefault);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Filter, Load_TakesLevelAndMask) {
  Store("dbl", "sipd=2;cfgd=5");
  Store("dbm", "sipd=255,cfgd=8");
  int level = kDefault;
  std::uint32_t mask = 4711;
  LogInfo_LoadFilter("cfgd", &level, &mask);
  EXPECT_EQ(level, 5);
  EXPECT_EQ(mask, 8u);
  EXPECT_EQ(TLogInfoShm_IsEnabled(5, 8), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(6, 8), 0);
  EXPECT_EQ(TLogInfoShm_IsEnabled(5, 7), 0);
}

TEST_F(Filter, Load_WithoutAMask_Takes7) {
  Store("dbl", "sipd=2;cfgd=5");
  int level = kDefault;
  std::uint32_t mask = 4711;
  LogInfo_LoadFilter("cfgd", &level, &mask);
  EXPECT_EQ(level, 5);
  EXPECT_EQ(mask, 7u);
  LogInfo_LoadFilter("d", &level, &mask);
  EXPECT_EQ(level, 2);
  EXPECT_EQ(mask, 7u);
}

TEST_F(Filter, Load_WithoutAnything_Takes4And7) {
  int level = kDefault;
  std::uint32_t mask = 4711;
  LogInfo_LoadFilter("cfgd", &level, &mask);
  EXPECT_EQ(level, 4);
  EXPECT_EQ(mask, 7u);
}

TEST_F(Filter, Load_OfANegativeMask_IsItsBits) {
  Store("dbm", "cfgd=-1");
  std::uint32_t mask = 4711;
  LogInfo_LoadFilter("cfgd", nullptr, &mask);
  EXPECT_EQ(mask, 0xFFFFFFFFu);
}

TEST_F(Filter, Load_WithoutOuts_SetsTheFilterOnly) {
  Store("dbl", "cfgd=9");
  LogInfo_LoadFilter("cfgd", nullptr, nullptr);
  EXPECT_EQ(TLogInfoShm_IsEnabled(9, 1), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(10, 1), 0);
}

}  // namespace
