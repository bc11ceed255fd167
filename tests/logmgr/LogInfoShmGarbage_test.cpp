// SPDX-License-Identifier: MIT
// Any process can overwrite the rings. Writing a message never accesses memory outside the segment, and reads only
// the text.

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <devsupport/text/StringEdit.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "tests/ipc/FencedMemory.h"
#include "tests/ipc/Scribbler.h"
#include "tests/logmgr/LogRing.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

constexpr RingMeasures kRing{6, 136, 36};
constexpr std::size_t kLongestText = 600;

class LogGarbage : public ::testing::TestWithParam<FencedMemory::Against> {
 protected:
  void SetUp() override { std::memset(text.Start(), 'x', kLongestText); }
  void TearDown() override {
    TLogInfoShm_Close();
    _g_uLogInfoShmData.nNameLen = 0;
  }

  void WriteOne(Scribbler &choice) {
    const auto length = static_cast<std::uint16_t>(choice.Below(kLongestText + 1));
    const auto *end = reinterpret_cast<const char *>(text.Start()) + kLongestText;
    _TLogInfoShm_WriteData(&ring, end - length, length, 1);
  }

  FencedMemory memory{kRing.Size(), GetParam()};
  FencedMemory text{kLongestText, FencedMemory::Against::Back};
  TShmQueue ring = kRing.RingIn(memory.Start());
};

TEST_P(LogGarbage, Write_StaysInsideTheSegmentAndTheText) {
  const TestSeed seed;
  Scribbler scribbler(kRing, seed);
  for (int round = 0; round < 100'000; ++round) {
    scribbler.Scribble(memory.Start());
    WriteOne(scribbler);
  }
}

TEST_P(LogGarbage, Write_WhileTheRingIsOverwritten_StaysInside) {
  const TestSeed seed;
  const Child vandal = StartScribbling(Scribbler(kRing, seed), memory.Start());
  Scribbler choice(kRing, seed + 1);
  for (int round = 0; round < 100'000; ++round) WriteOne(choice);
}

TEST_P(LogGarbage, Write_IntoAnUnusableRing_EmptiesItAndIsWhole) {
  for (const std::uint32_t garbage : {kRing.cells + 1, 0x80000000u, 0xFFFFFFFFu}) {
    for (const std::size_t index : {std::size_t{12}, std::size_t{16}}) {
      std::memcpy(memory.Start() + index, &garbage, sizeof garbage);
      _TLogInfoShm_WriteData(&ring, reinterpret_cast<const char *>(text.Start()), 300, 1);
      EXPECT_EQ(_TShmQueue_CurrentCellCount(&ring), 3);
      for (std::uint32_t slot = 0; slot < 3; ++slot) {
        const Record record = Record::Of(ring.cells + slot * RawRing::kStride);
        EXPECT_EQ(record.fragment, slot);
        EXPECT_EQ(record.text, std::string(slot < 2 ? 127 : 46, 'x'));
      }
    }
  }
}

TEST_P(LogGarbage, Write_AfterAName_ReadsOnlyTheText) {
  StrNcpy(_g_uLogInfoShmData.szName, "name", sizeof _g_uLogInfoShmData.szName);
  _g_uLogInfoShmData.nNameLen = 4;
  const auto *end = reinterpret_cast<const char *>(text.Start()) + kLongestText;
  for (std::uint16_t length = 1; length <= 123; ++length) {
    TShmQueue_Clear(&ring);
    _TLogInfoShm_WriteData(&ring, end - length, length, 1);
    EXPECT_EQ(Record::Of(ring.cells).text, "name" + std::string(length, 'x'));
  }
}

TEST_P(LogGarbage, Counter_IsUsedBelowItsTwelveBits) {
  const std::uint16_t garbage = 0xFFFF;
  std::memcpy(ring.pUserArea, &garbage, sizeof garbage);
  _TLogInfoShm_WriteData(&ring, "x", 1, 2);
  EXPECT_EQ(Record::Of(ring.cells).sequence, 4095u);
  EXPECT_EQ(Record::Of(ring.cells).type, 2u);
  std::uint16_t counter = 0;
  std::memcpy(&counter, ring.pUserArea, sizeof counter);
  EXPECT_EQ(counter, 0xF000);
}

INSTANTIATE_TEST_SUITE_P(FencedAt, LogGarbage,
                         ::testing::Values(FencedMemory::Against::Front, FencedMemory::Against::Back));

}  // namespace
