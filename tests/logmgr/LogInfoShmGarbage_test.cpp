// SPDX-License-Identifier: MIT
// Anybody may scribble over the rings. Writing a message stays inside the segment and reads no more than the text.

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/detail/logmgr/LogInfoShm.h>

#include <cstdint>
#include <cstring>
#include <random>

#include "tests/ipc/FencedMemory.h"
#include "tests/logmgr/LogRing.h"
#include "tests/support/Child.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

constexpr std::uint32_t kCells = 6;
constexpr std::size_t kSize = RawRing::kFirstSlot + (kCells + 1) * RawRing::kStride;
constexpr std::size_t kLongestText = 600;

// The record of a process that attached while the ring was whole. It runs unlocked, for speed.
TShmQueue RingIn(std::uint8_t *segment) {
  TShmQueue que{};
  que.nSlotCount = kCells + 1;
  que.wCellSize = 136;
  que.dwStride = RawRing::kStride;
  que.semid = -1;
  que.header = static_cast<_U_ShmQueue_SHM_VARI *>(static_cast<void *>(segment));
  que.cells = segment + RawRing::kFirstSlot;
  que.pUserArea = segment + RawRing::kUserArea;
  return que;
}

class Scribbler {
 public:
  explicit Scribbler(std::uint64_t seed) : random_(seed) {}
  std::uint32_t Below(std::size_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

  // Cursors at the edges of what they may be, and anything anywhere.
  void Scribble(std::uint8_t *segment) {
    const std::uint32_t edges[] = {0,  kCells, kCells + 1, kCells * RawRing::kStride, kCells * RawRing::kStride + 1,
                                   ~0u};
    const std::uint32_t word = Below(2) == 0 ? edges[Below(std::size(edges))] : static_cast<std::uint32_t>(random_());
    const std::size_t place = Below(4) != 0 ? 12 + 4 * Below(5) : Below(kSize - 3);
    std::memcpy(segment + place, &word, sizeof word);
  }

 private:
  std::mt19937_64 random_;
};

class LogGarbage : public ::testing::TestWithParam<FencedMemory::Against> {
 protected:
  void SetUp() override { std::memset(text.Start(), 'x', kLongestText); }
  void TearDown() override { TLogInfoShm_Close(); }

  void WriteOne(Scribbler &choice) {
    const auto length = static_cast<std::uint16_t>(choice.Below(kLongestText + 1));
    const auto *end = reinterpret_cast<const char *>(text.Start()) + kLongestText;
    _TLogInfoShm_WriteData(&ring, end - length, length, 1);
  }

  FencedMemory memory{kSize, GetParam()};
  FencedMemory text{kLongestText, FencedMemory::Against::Back};
  TShmQueue ring = RingIn(memory.Start());
};

TEST_P(LogGarbage, Write_StaysInsideTheSegmentAndTheText) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedHint(seed));
  Scribbler scribbler(seed);
  for (int round = 0; round < 100'000; ++round) {
    scribbler.Scribble(memory.Start());
    WriteOne(scribbler);
  }
}

TEST_P(LogGarbage, Write_WhileSomebodyScribbles_StaysInside) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedHint(seed));
  Event scribbling;
  const Child vandal([&]() -> int {
    Scribbler scribbler(seed);
    scribbling.Announce();
    for (;;) scribbler.Scribble(memory.Start());
  });
  scribbling.Wait();
  Scribbler choice(seed + 1);
  for (int round = 0; round < 100'000; ++round) WriteOne(choice);
}

TEST_P(LogGarbage, Write_IntoAnUnusableRing_EmptiesItAndIsWhole) {
  for (const std::uint32_t garbage : {kCells + 1, 0x80000000u, 0xFFFFFFFFu}) {
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
