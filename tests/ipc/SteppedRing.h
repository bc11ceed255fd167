// SPDX-License-Identifier: MIT
// Fixture of the tests that stop an operation of the ring between two of its instructions.
#pragma once

#include <string>

#include "tests/ipc/RingFixture.h"
#include "tests/support/Traced.h"

namespace devsupport::test {

/// A ring of three cells.
class SteppedRing : public RingFixture {
 protected:
  static constexpr std::uint32_t kCells = 3;

  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    ASSERT_EQ(Create(ring, kCells, 8), 1);
  }
  void TearDown() override {
    if (ring.header != nullptr) LeaveTheRing();
  }
  void LeaveTheRing() {
    TShmQueue_Close(&ring, 1);
    ring.header = nullptr;
  }

  /// Fills the ring with this many cells "a", "b", ..., the oldest one in the given slot.
  void Fill(int cells, int slot = 0) {
    TShmQueue_Clear(&ring);
    for (int i = 0; i < slot; ++i) {
      PushText(ring, "gone");
      GetText(ring);
    }
    for (int i = 0; i < cells; ++i) PushText(ring, std::string(1, static_cast<char>('a' + i)));
  }
  /// Empties a ring: "[a][b]".
  static std::string TakeAll(TShmQueue &que) {
    std::string contents;
    for (std::string text; (text = GetText(que)) != "<empty>";) contents += "[" + text + "]";
    return contents;
  }
  /// Empties a ring and checks that all its cells can be pushed and taken.
  static std::string TakeAllAndTry(TShmQueue &que) {
    const std::string contents = TakeAll(que);
    for (std::uint32_t i = 0; i < kCells; ++i) EXPECT_EQ(PushText(que, std::to_string(i)), 1);
    EXPECT_EQ(PushText(que, "more"), 0);
    EXPECT_EQ(TShmQueue_GetCount(&que), static_cast<int>(kCells));
    for (std::uint32_t i = 0; i < kCells; ++i) EXPECT_EQ(GetText(que), std::to_string(i));
    return contents;
  }
  /// Makes a ring after processes have died or left, checks that it works and that nothing remains when it is closed.
  /// Returns its content.
  std::string ContentsForTheNextCreator(TShmQueueOpt *opt = nullptr) {
    TShmQueue next{};
    EXPECT_EQ(Create(next, kCells, 8, opt), 1);
    if (next.header == nullptr) return "<no ring>";
    EXPECT_EQ(SemValue(), 1);
    const std::string contents = TakeAllAndTry(next);
    EXPECT_EQ(TShmQueue_Close(&next, 1), 1);
    EXPECT_FALSE(SegmentExists());
    EXPECT_FALSE(SemExists());
    return contents;
  }
};

}  // namespace devsupport::test
