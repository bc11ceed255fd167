// SPDX-License-Identifier: MIT
// The builders of log messages: the texts that they pass to the channel.

#include <devsupport/detail/logmgr/LogRecord.h>
#include <gmock/gmock.h>

#include "tests/logmgr/LogRing.h"
#include "tests/support/CapturedOutput.h"
#include "tests/text/GuardedBuffer.h"

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;

/// The message of the last builder, joined from its records.
class Builder : public OpenChannelTest {
 protected:
  static std::string Written(const RingFacts &facts = kLogRing) {
    std::string message;
    for (const Record &record : RawRing(facts).Records()) {
      if (record.fragment == 0) message.clear();
      message += record.text;
    }
    return message;
  }
};

TEST_F(Builder, Printf_FormatsIntoTheLogRing) {
  LogInfo_Printf(3, "%s=%d%%", "x", -5);
  EXPECT_EQ(Written(), "x=-5%");
  EXPECT_EQ(RawRing(kLogRing).Records()[0].type, 3u);
  EXPECT_EQ(RawRing(kEventRing).Records().size(), 0u);
}

TEST_F(Builder, PrintfEvt_FormatsIntoTheEventRing) {
  LogInfo_PrintfEvt(4, "%s=%d%%", "x", -5);
  EXPECT_EQ(Written(kEventRing), "x=-5%");
  EXPECT_EQ(RawRing(kEventRing).Records()[0].type, 4u);
  EXPECT_EQ(RawRing(kLogRing).Records().size(), 0u);
}

TEST_F(Builder, Printf_Of511Characters_IsWhole) {
  const std::string text(511, 'x');
  LogInfo_Printf(1, "%s", text.c_str());
  EXPECT_EQ(Written(), text);
}

TEST_F(Builder, Printf_Of600Characters_IsCutAt511) {
  const std::string text = std::string(510, 'x') + "y" + std::string(89, 'z');
  LogInfo_Printf(1, "%s", text.c_str());
  EXPECT_EQ(Written(), text.substr(0, 511));
  LogInfo_PrintfEvt(1, "%s", text.c_str());
  EXPECT_EQ(Written(kEventRing), text.substr(0, 511));
}

TEST_F(Builder, Printf_OfAnEmptyText_WritesNothing) {
  LogInfo_Printf(1, "%s", "");
  EXPECT_EQ(RawRing(kLogRing).Records().size(), 0u);
}

TEST_F(Builder, Cat2_PutsPiecesAndLocationTogether) {
  LogInfo_Cat2("a", 7, 5, 0, "x", "y");
  EXPECT_EQ(Written(), "xy \\a 7");
  EXPECT_EQ(RawRing(kLogRing).Records()[0].type, 5u);
}

TEST_F(Builder, Cats_TakeOneToTwelvePieces) {
  LogInfo_Cat1("f", 1, 1, 0, "a");
  LogInfo_Cat2("f", 2, 1, 0, "a", "b");
  LogInfo_Cat3("f", 3, 1, 0, "a", "b", "c");
  LogInfo_Cat4("f", 4, 1, 0, "a", "b", "c", "d");
  LogInfo_Cat5("f", 5, 1, 0, "a", "b", "c", "d", "e");
  LogInfo_Cat6("f", 6, 1, 0, "a", "b", "c", "d", "e", "f");
  LogInfo_Cat7("f", 7, 1, 0, "a", "b", "c", "d", "e", "f", "g");
  LogInfo_Cat8("f", 8, 1, 0, "a", "b", "c", "d", "e", "f", "g", "h");
  LogInfo_Cat9("f", 9, 1, 0, "a", "b", "c", "d", "e", "f", "g", "h", "i");
  LogInfo_Cat10("f", 10, 1, 0, "a", "b", "c", "d", "e", "f", "g", "h", "i", "j");
  LogInfo_Cat11("f", 11, 1, 0, "a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k");
  LogInfo_Cat12("f", 12, 1, 0, "a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l");
  EXPECT_THAT(RawRing(kLogRing).Texts(),
              ElementsAre("a \\f 1", "ab \\f 2", "abc \\f 3", "abcd \\f 4", "abcde \\f 5", "abcdef \\f 6",
                          "abcdefg \\f 7", "abcdefgh \\f 8", "abcdefghi \\f 9", "abcdefghij \\f 10",
                          "abcdefghijk \\f 11", "abcdefghijkl \\f 12"));
}

TEST_F(Builder, Cat_OfEmptyPieces_HasTheLocation) {
  LogInfo_Cat3("f", -1, 1, 0, "", "", "");
  EXPECT_EQ(Written(), " \\f -1");
}

TEST_F(Builder, Cat_OfNullPiecesAndFile_TakesThemForEmpty) {
  LogInfo_Cat3(nullptr, 9, 1, 0, nullptr, "b", nullptr);
  EXPECT_EQ(Written(), "b \\ 9");
}

TEST_F(Builder, Cat_OfExactly511Characters_IsWhole) {
  const std::string text(505, 'x');
  LogInfo_Cat2("f", 12, 1, 0, text.c_str(), "");
  EXPECT_EQ(Written(), text + " \\f 12");
}

TEST_F(Builder, Cat_OfTooManyCharacters_IsCutAt511InWhicheverPiece) {
  const std::string text(505, 'x');
  LogInfo_Cat2("f", 123, 1, 0, text.c_str(), "");
  EXPECT_EQ(Written(), text + " \\f 12");
  LogInfo_Cat2("f", 1, 1, 0, std::string(511, 'x').c_str(), "yz");
  EXPECT_EQ(Written(), std::string(511, 'x'));
  LogInfo_Cat3("f", 1, 1, 0, "ab", std::string(100'000, 'x').c_str(), "yz");
  EXPECT_EQ(Written(), "ab" + std::string(509, 'x'));
  const std::string half(300, 'h');
  LogInfo_Cat12("f", 1, 1, 0, half.c_str(), half.c_str(), half.c_str(), half.c_str(), half.c_str(), half.c_str(),
                half.c_str(), half.c_str(), half.c_str(), half.c_str(), half.c_str(), half.c_str());
  EXPECT_EQ(Written(), std::string(511, 'h'));
}

TEST_F(Builder, Location_IsCutAt63Characters) {
  LogInfo_Cat1(std::string(57, 'f').c_str(), 1234, 1, 0, "x");
  EXPECT_EQ(Written(), "x \\" + std::string(57, 'f') + " 123");
  LogInfo_Cat1(std::string(500, 'f').c_str(), 1234, 1, 0, "x");
  EXPECT_EQ(Written(), "x \\" + std::string(61, 'f'));
}

TEST_F(Builder, LocationFormat_IsStoredAndNotUsed) {
  EXPECT_STREQ(_g_pLogInfoLocFmt, " \\%s %d");
  const char format[] = "(%s:%d)";
  EXPECT_EQ(LogInfo_SetLocFmt(format), format);
  EXPECT_EQ(_g_pLogInfoLocFmt, format);
  LogInfo_Cat1("f", 1, 1, 0, "x");
  EXPECT_EQ(Written(), "x \\f 1");
  EXPECT_EQ(LogInfo_SetLocFmt(nullptr), nullptr);
  LogInfo_SetLocFmt(" \\%s %d");
}

TEST_F(Builder, Extra_IsNotUsed) {
  LogInfo_Cat1("f", 1, 1, 77, "x");
  EXPECT_EQ(Written(), "x \\f 1");
}

TEST_F(Builder, Builders_DoNotAskTheFilter) {
  TLogInfoShm_ChangeFilter(-1, 0);
  LogInfo_Printf(1, "p");
  LogInfo_PrintfEvt(1, "e");
  LogInfo_Cat1("f", 1, 1, 0, "c");
  EXPECT_EQ(RawRing(kLogRing).Records().size(), 2u);
  EXPECT_EQ(RawRing(kEventRing).Records().size(), 1u);
}

TEST_F(Builder, Builders_PrintNothing) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  LogInfo_Printf(1, "%s", std::string(600, 'x').c_str());
  LogInfo_Cat1("f", 1, 1, 0, std::string(600, 'x').c_str());
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(out.Take(), "");
}

}  // namespace
