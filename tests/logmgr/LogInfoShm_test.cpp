// SPDX-License-Identifier: MIT
// The log channel's messages: the content of the rings after each of them.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <thread>

#include "tests/logmgr/FakeClock.h"
#include "tests/logmgr/LogRing.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::string Bytes(const std::uint8_t *first, std::size_t count) {
  return {reinterpret_cast<const char *>(first), count};
}

std::string Letters(std::size_t count) {
  std::string text;
  while (text.size() < count) text += static_cast<char>('a' + text.size() % 26);
  return text;
}

class Message : public OpenChannelTest {
 protected:
  void TearDown() override {
    LetClockGo();
    OpenChannelTest::TearDown();
  }
  static void Write(const std::string &text) { TLogInfoShm_Write(text.c_str(), 1, 0); }
  static std::vector<Record> Log() { return RawRing(kLogRing).Records(); }
};

// --- bytes -------------------------------------------------------------------------------------------------------

// 12:34:56.789 of type 5, the fourth record of the ring: 12 | 34 << 5 | 56 << 11 | 789 << 17, 3 | 5 << 12.
constexpr std::uint8_t kGolden[] = {0x0E, 0, 0, 0,   0x4C, 0xC4, 0x2B, 0x06, 0x03,
                                    0x50, 0, 0, 'h', 'e',  'l',  'l',  'o',  0};
constexpr std::int64_t kGoldenSecond = 45296;  // 12:34:56

TEST_F(Message, Bytes_AreTheFormat) {
  ::setenv("TZ", "UTC0", 1);
  StopClockAt(kGoldenSecond, 789);
  for (int i = 0; i < 3; ++i) Write("x");
  TLogInfoShm_Write("hello", 5, 0);
  EXPECT_EQ(Bytes(RawRing(kLogRing).Slot(3), sizeof kGolden), Bytes(kGolden, sizeof kGolden));
}

TEST_F(Message, Bytes_AreReadBackFromARecordMadeByHand) {
  TShmQueue &ring = _g_uLogInfoShmData.uLogQue;
  ASSERT_EQ(TShmQueue_Push(&ring, kGolden + 4, sizeof kGolden - 4), 1);
  TLogCell cell{};
  std::uint32_t length = 4711;
  ASSERT_EQ(TShmQueue_Get(&ring, &cell, &length, sizeof cell), 1);
  EXPECT_EQ(length, LOGCELL_LENGTH(5u));
  EXPECT_EQ(LOGCELL_GET(cell.dwTime, HOUR), 12u);
  EXPECT_EQ(LOGCELL_GET(cell.dwTime, MINUTE), 34u);
  EXPECT_EQ(LOGCELL_GET(cell.dwTime, SECOND), 56u);
  EXPECT_EQ(LOGCELL_GET(cell.dwTime, MS), 789u);
  EXPECT_EQ(LOGCELL_GET(cell.dwTime, FRAGMENT), 0u);
  EXPECT_EQ(LOGCELL_GET(cell.wSequence, SEQUENCE), 3u);
  EXPECT_EQ(LOGCELL_GET(cell.wSequence, TYPE), 5u);
  EXPECT_STREQ(cell.szText, "hello");
}

TEST_F(Message, UpperHalfOfTheSecondWord_AndWhatIsAfterTheText_StayAsTheSlotHadThem) {
  const RawRing ring(kLogRing);
  std::memset(ring.Slot(0), 0xEE, 2 * RawRing::kStride);
  Write("hello");
  const std::uint8_t *slot = ring.Slot(0);
  EXPECT_EQ(Bytes(slot + 10, 8), std::string("\xEE\xEEhello\0", 8));
  EXPECT_EQ(Bytes(slot + 18, RawRing::kStride - 18 + 4), std::string(RawRing::kStride - 18 + 4, '\xEE'));
}

TEST_F(Message, Fields_HoldTheirLargestValues) {
  ::setenv("TZ", "UTC0", 1);
  StopClockAt(86399, 999);
  RawRing(kLogRing).SetHalf(RawRing::kUserArea, 0x0FFF);
  TLogInfoShm_Write(Letters(5000).c_str(), -1, 0);
  const Record last = Log().back();
  EXPECT_EQ(last.hour, 23u);
  EXPECT_EQ(last.minute, 59u);
  EXPECT_EQ(last.second, 59u);
  EXPECT_EQ(last.ms, 999u);
  EXPECT_EQ(last.fragment, 31u);
  EXPECT_EQ(last.type, 15u);
  EXPECT_EQ(Log().front().sequence, 4095u);
  EXPECT_EQ(last.sequence, 30u);
}

TEST_F(Message, Type_IsItsLowFourBits) {
  for (const int type : {0, 15, 16, 0x7FFFFFF9, -2}) TLogInfoShm_Write("x", type, 0);
  std::vector<unsigned> types;
  for (const Record &record : Log()) types.push_back(record.type);
  EXPECT_THAT(types, ElementsAre(0, 15, 0, 9, 14));
}

TEST_F(Message, ExtraArgument_ChangesNothing) {
  StopClockAt(kGoldenSecond, 1);
  TLogInfoShm_Write("x", 1, 0);
  TLogInfoShm_Write("x", 1, -1);
  const RawRing ring(kLogRing);
  std::uint32_t second = 0;
  std::memcpy(&second, ring.Slot(1) + 8, sizeof second);
  EXPECT_EQ(second, 0x1001u);
  EXPECT_EQ(Bytes(ring.Slot(0), 8), Bytes(ring.Slot(1), 8));
}

// --- cutting -----------------------------------------------------------------------------------------------------

TEST_F(Message, Of127Characters_FillsOneRecord) {
  Write(Letters(127));
  ASSERT_THAT(Log(), SizeIs(1));
  EXPECT_EQ(Log()[0].length, 136u);
  EXPECT_EQ(Log()[0].text, Letters(127));
  EXPECT_EQ(RawRing(kLogRing).Slot(0)[12 + 127], 0);
}

TEST_F(Message, Of128Characters_IsCutInto127And1) {
  const std::string text = Letters(128);
  Write(text);
  ASSERT_THAT(Log(), SizeIs(2));
  EXPECT_EQ(Log()[0].text, text.substr(0, 127));
  EXPECT_EQ(Log()[1].text, text.substr(127));
  EXPECT_EQ(Log()[1].length, 10u);
  EXPECT_EQ(Log()[0].fragment, 0u);
  EXPECT_EQ(Log()[1].fragment, 1u);
  EXPECT_EQ(Log()[1].sequence, Log()[0].sequence + 1);
  EXPECT_EQ(Log()[1].Time(), Log()[0].Time());
}

TEST_F(Message, Of200CharactersAfterANameOf10_IsCutInto117And83) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "0123456789"), 1);
  const std::string text = Letters(200);
  Write(text);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("0123456789" + text.substr(0, 117), text.substr(117)));
}

TEST_F(Message, AfterAName_FillsTheRecordOrTakesOneMore) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "name"), 1);
  Write(Letters(123));
  Write(Letters(124));
  EXPECT_THAT(RawRing(kLogRing).Texts(),
              ElementsAre("name" + Letters(123), "name" + Letters(123), Letters(124).substr(123)));
}

TEST_F(Message, Of5000Characters_IsLostBeyond32Records) {
  const std::string text = Letters(5000);
  Write(text);
  ASSERT_THAT(Log(), SizeIs(32));
  std::string read;
  for (unsigned i = 0; i < 32; ++i) {
    EXPECT_EQ(Log()[i].fragment, i);
    EXPECT_EQ(Log()[i].sequence, i);
    read += Log()[i].text;
  }
  EXPECT_EQ(read, text.substr(0, 4064));
}

TEST_F(Message, OfExactly32Records_IsWhole) {
  Write(Letters(4064));
  EXPECT_THAT(Log(), SizeIs(32));
  Write("next");
  EXPECT_EQ(Log().back().text, "next");
  EXPECT_EQ(Log().back().fragment, 0u);
}

TEST_F(Message, Empty_WritesNothing) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "name"), 1);
  Write("");
  TLogInfoShm_Write_Evt("", 1);
  TLogInfoShm_WriteN("", 1, 1);
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_THAT(RawRing(kEventRing).Records(), IsEmpty());
}

TEST_F(Message, Length_IsTakenModulo65536) {
  Write(std::string(65536, 'x'));
  EXPECT_THAT(Log(), IsEmpty());
  Write(std::string(65536, 'x') + "yz");
  const std::string sized(65540, 'q');
  TLogInfoShm_WriteN(sized.data(), 65537, 1);
  TLogInfoShm_WriteN(sized.data(), 65540, 1);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("xx", "qqq"));
}

TEST_F(Message, OfAGivenSize_HasOneCharacterLess) {
  TLogInfoShm_WriteN("hello", 6, 2);
  TLogInfoShm_WriteN("hello", 3, 2);
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("hello", "he"));
  EXPECT_EQ(Log()[0].length, 14u);
  EXPECT_EQ(Log()[0].type, 2u);
}

TEST_F(Message, OfASizeBelow2_IsNotWrittenAndNotRead) {
  for (const int size : {1, 0, -1, -65534, INT32_MIN}) {
    TLogInfoShm_WriteN(nullptr, size, 1);
    TLogInfoShm_WriteN_Evt(nullptr, size, 1);
  }
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_THAT(RawRing(kEventRing).Records(), IsEmpty());
}

TEST_F(Message, OfAGivenSize_HasTheTextAfterANul) {
  TLogInfoShm_WriteN("ab\0cd", 6, 1);
  EXPECT_EQ(Log()[0].text, std::string("ab\0cd", 5));
}

TEST_F(Message, OfAGivenSizeAfterAName_EndsAtANulWithinItsLength) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "n:"), 1);
  TLogInfoShm_WriteN("ab\0cd", 6, 1);
  EXPECT_EQ(Log()[0].text, std::string("n:ab\0\0\0", 7));
  EXPECT_EQ(Log()[0].length, 16u);
}

TEST_F(Message, OfAGivenSizeAfterAName_ThatBeginsWithANul_LeavesTheRestOfTheCell) {
  ASSERT_EQ(TLogInfoShm_Open(4, 7, "n:"), 1);
  Write("xxxxx");
  TShmQueue_Clear(&_g_uLogInfoShmData.uLogQue);
  TLogInfoShm_WriteN("\0cd", 4, 1);
  EXPECT_EQ(Log()[0].text, std::string("n:\0xx", 5));
}

// --- rings -------------------------------------------------------------------------------------------------------

TEST_F(Message, OfAnEvent_GoesToTheEventRingOnly) {
  TLogInfoShm_Write_Evt("event", 3);
  TLogInfoShm_WriteN_Evt("sized", 6, 4);
  EXPECT_THAT(RawRing(kEventRing).Texts(), ElementsAre("event", "sized"));
  EXPECT_EQ(RawRing(kEventRing).Records()[0].type, 3u);
  EXPECT_EQ(RawRing(kEventRing).Records()[1].type, 4u);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(Message, AfterTheLogRingIsFull_TakesThePlaceOfTheOldest) {
  for (int i = 0; i < 1025; ++i) Write(std::to_string(i));
  const std::vector<Record> records = Log();
  ASSERT_THAT(records, SizeIs(1024));
  EXPECT_EQ(records.front().text, "1");
  EXPECT_EQ(records.back().text, "1024");
  EXPECT_EQ(records.back().sequence, 1024u);
}

TEST_F(Message, AfterTheEventRingIsFull_TakesThePlaceOfTheOldest) {
  for (int i = 0; i < 257; ++i) TLogInfoShm_Write_Evt(std::to_string(i).c_str(), 1);
  const std::vector<Record> records = RawRing(kEventRing).Records();
  ASSERT_THAT(records, SizeIs(256));
  EXPECT_EQ(records.front().text, "1");
}

TEST_F(Message, SequenceNumbers_RunOnModulo4096AndLeaveTheBitsAbove) {
  const RawRing ring(kLogRing);
  ring.SetHalf(RawRing::kUserArea, 0xA000 + 4094);
  for (int i = 0; i < 4; ++i) Write("x");
  std::vector<unsigned> numbers;
  for (const Record &record : Log()) numbers.push_back(record.sequence);
  EXPECT_THAT(numbers, ElementsAre(4094, 4095, 0, 1));
  EXPECT_EQ(ring.Counter(), 0xA002u);
}

TEST_F(Message, OfAnyLength_LeavesTheRestOfTheUserAreaAlone) {
  const RawRing ring(kLogRing);
  std::memset(ring.Bytes() + RawRing::kUserArea + 2, 0x77, 34);
  Write(Letters(5000));
  EXPECT_EQ(Bytes(ring.Bytes() + RawRing::kUserArea + 2, 34), std::string(34, '\x77'));
}

TEST_F(Message, OfAnyLength_LeavesTheSemaphoreFree) {
  Write(Letters(300));
  EXPECT_EQ(SemValue(kLogRing), 1);
  EXPECT_EQ(SemValue(kEventRing), 1);
}

TEST_F(Message, WithoutItsSemaphore_IsWrittenAllTheSame) {
  ::semctl(::semget(kLogRing.semKey, 0, 0), 0, IPC_RMID);
  Write("x");
  EXPECT_THAT(RawRing(kLogRing).Texts(), ElementsAre("x"));
}

TEST_F(Message, WhileTheRingIsLocked_WaitsAndHasTheTimeFromBefore) {
  ::setenv("TZ", "UTC0", 1);
  StopClockAt(60, 0);
  TShmQueue &ring = _g_uLogInfoShmData.uLogQue;
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  std::thread writer([] { Write("late"); });
  while (::semctl(ring.semid, 0, GETNCNT) < 1) ::sched_yield();
  EXPECT_THAT(Log(), IsEmpty());
  StopClockAt(120, 0);
  TShmQueue_Unlock(&ring);
  writer.join();
  EXPECT_EQ(Log()[0].Time(), 60000u);
}

// --- the function that writes
// them ----------

TEST_F(Message, ToAnotherRing_IsWrittenThere) {
  TShmQueueOpt opt{36, 0, 0};
  TShmQueue ring{};
  ASSERT_EQ(TShmQueue_Create(77, 78, 2, 136, &opt, &ring), 1);
  _TLogInfoShm_WriteData(&ring, "hello", 3, 9);
  TLogCell cell{};
  std::uint32_t length = 0;
  EXPECT_EQ(TShmQueue_Get(&ring, &cell, &length, sizeof cell), 1);
  EXPECT_STREQ(cell.szText, "hel");
  EXPECT_EQ(length, 12u);
  EXPECT_EQ(TShmQueue_Close(&ring, 1), 1);
}

TEST_F(Message, OfLength0_DoesNotWaitForTheRing) {
  TShmQueue &ring = _g_uLogInfoShmData.uLogQue;
  ASSERT_EQ(TShmQueue_Lock(&ring), 1);
  _TLogInfoShm_WriteData(&ring, "x", 0, 1);
  EXPECT_EQ(TShmQueue_Unlock(&ring), 1);
  EXPECT_THAT(Log(), IsEmpty());
}

using MessageDeathTest = Message;

TEST_F(MessageDeathTest, ToNoRing_StopsWithTheStandardAssertion) {
  EXPECT_DEATH(
      _TLogInfoShm_WriteData(nullptr, "x", 0, 1),
      "logmgr/LogInfoShm:124: _TLogInfoShm_WriteData: Assertion `puMember != \\(\\(void \\*\\)0\\)' failed\\.\n$");
}

TEST_F(Message, Writing_PrintsNothing) {
  CapturedOutput out(stdout);
  CapturedOutput err(stderr);
  for (int i = 0; i < 2000; ++i) Write(Letters(200));
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(out.Take(), "");
}

// --- filter ------------------------------------------------------------------------------------------------------

TEST_F(Message, Filter_PassesLevelsUpToItsOwn) {
  TLogInfoShm_ChangeFilter(4, 7);
  EXPECT_EQ(TLogInfoShm_IsEnabled(4, 1), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(INT32_MIN, 1), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(5, 1), 0);
  EXPECT_EQ(TLogInfoShm_IsEnabled(INT32_MAX, 1), 0);
  TLogInfoShm_ChangeFilter(-3, 7);
  EXPECT_EQ(TLogInfoShm_IsEnabled(-3, 1), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(-2, 1), 0);
}

TEST_F(Message, Filter_PassesModulesThatShareABit) {
  TLogInfoShm_ChangeFilter(4, 7);
  EXPECT_EQ(TLogInfoShm_IsEnabled(1, 2), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(1, 8), 0);
  EXPECT_EQ(TLogInfoShm_IsEnabled(1, 12), 1);
  EXPECT_EQ(TLogInfoShm_IsEnabled(1, 0), 0);
  TLogInfoShm_ChangeFilter(4, 0x80000000u);
  EXPECT_EQ(TLogInfoShm_IsEnabled(1, 0x80000000u), 1);
}

TEST_F(Message, Filter_StopsNoMessage) {
  TLogInfoShm_ChangeFilter(-1, 0);
  Write("x");
  EXPECT_THAT(Log(), SizeIs(1));
}

TEST_F(Message, Filter_IsTheProcessesOwn) {
  Child other([] {
    TLogInfoShm_ChangeFilter(9, 0xFF);
    return 0;
  });
  EXPECT_EQ(other.Wait(), 0);
  EXPECT_EQ(TLogInfoShm_IsEnabled(5, 1), 0);
}

}  // namespace
