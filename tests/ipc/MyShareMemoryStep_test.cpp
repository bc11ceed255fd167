// SPDX-License-Identifier: MIT
// A process that dies is stopped between two instructions. Here the ring is looked at after every single instruction
// of an operation, as the one who takes the lock next would find it; and the life of a ring is ended at every single
// system call.

#include <devsupport/ipc/MyShareMemory.h>
#include <array>
#include <cstdint>
#include <functional>
#include <set>

#include "tests/ipc/RingFixture.h"
#include "tests/support/Traced.h"

namespace {

using devsupport::test::Traced;

constexpr std::uint32_t kCells = 3;

class RingStep : public devsupport::test::RingFixture {
 protected:
  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    ASSERT_EQ(Create(ring, kCells, 8), 1);
  }

  // A ring of so many cells "a", "b", ... whose oldest stands in the given slot.
  void Fill(int cells, int slot) {
    TShmQueue_Clear(&ring);
    for (int i = 0; i < slot; ++i) {
      PushText(ring, "gone");
      GetText(ring);
    }
    for (int i = 0; i < cells; ++i) PushText(ring, std::string(1, static_cast<char>('a' + i)));
  }

  // What the next process would take out of the segment as it is now.
  std::string Contents() {
    std::vector<std::uint8_t> segment = Bytes(ring);
    TShmQueue copy = ring;
    copy.header = static_cast<_U_ShmQueue_SHM_VARI *>(static_cast<void *>(segment.data()));
    copy.cells = segment.data() + (ring.cells - reinterpret_cast<std::uint8_t *>(ring.header));
    copy.semid = -1;
    std::string contents;
    for (std::string text; (text = GetText(copy)) != "<empty>";) contents += "[" + text + "]";
    // And it works on: all cells go in and come out.
    for (std::uint32_t i = 0; i < kCells; ++i) EXPECT_EQ(PushText(copy, std::to_string(i)), 1);
    EXPECT_EQ(PushText(copy, "more"), 0);
    for (std::uint32_t i = 0; i < kCells; ++i) EXPECT_EQ(GetText(copy), std::to_string(i));
    return contents;
  }

  // All contents seen between the instructions of one operation, the oldest cell starting in every slot in turn.
  std::set<std::string> ContentsDuring(int cells, const std::function<void()> &operation) {
    std::set<std::string> seen;
    for (int slot = 0; slot <= static_cast<int>(kCells); ++slot) {
      Fill(cells, slot);
      Traced process(operation);
      do {
        seen.insert(Contents());
      } while (process.Step(PTRACE_SINGLESTEP));
      process.Kill();
    }
    return seen;
  }
};

using Seen = std::set<std::string>;

TEST_F(RingStep, Push_IsDoneOrNotDone) {
  EXPECT_EQ(ContentsDuring(0, [this] { PushText(ring, "new"); }), (Seen{"", "[new]"}));
  EXPECT_EQ(ContentsDuring(2, [this] { PushText(ring, "new"); }), (Seen{"[a][b]", "[a][b][new]"}));
}

TEST_F(RingStep, Get_IsDoneOrNotDone) {
  EXPECT_EQ(ContentsDuring(1, [this] { GetText(ring); }), (Seen{"[a]", ""}));
  EXPECT_EQ(ContentsDuring(3, [this] { GetText(ring); }), (Seen{"[a][b][c]", "[b][c]"}));
}

TEST_F(RingStep, PushOverwriteWithRoom_MayLeaveAnEmptyCell) {
  EXPECT_EQ(ContentsDuring(1, [this] { OverwriteText(ring, "new"); }), (Seen{"[a]", "[a][]", "[a][new]"}));
}

TEST_F(RingStep, PushOverwriteOnFullRing_LosesNoMoreThanTheOldestCell) {
  EXPECT_EQ(ContentsDuring(3, [this] { OverwriteText(ring, "new"); }),
            (Seen{"[a][b][c]", "[b][c]", "[b][c][]", "[b][c][new]"}));
}

TEST_F(RingStep, Clear_BringsNoOldCellBack) {
  EXPECT_EQ(ContentsDuring(0, [this] { TShmQueue_Clear(&ring); }), (Seen{""}));
  EXPECT_EQ(ContentsDuring(2, [this] { TShmQueue_Clear(&ring); }), (Seen{"[a][b]", ""}));
}

TEST_F(RingStep, Create_WritesTheCellCountLast) {
  TShmQueue_Close(&ring, 1);
  ring.header = nullptr;
  using Header = std::array<std::uint32_t, sizeof(_U_ShmQueue_SHM_VARI) / 4>;
  const auto *pHeader = static_cast<const _U_ShmQueue_SHM_VARI *>(nullptr);
  std::set<Header> seen;
  Traced process([this] {
    TShmQueue mine{};
    Create(mine, kCells, 8);
  });
  do {
    if (pHeader == nullptr) {
      const int id = ::shmget(shareKey, 0, 0);
      if (id != -1) pHeader = static_cast<const _U_ShmQueue_SHM_VARI *>(::shmat(id, nullptr, SHM_RDONLY));
    }
    if (pHeader == nullptr || pHeader->dwCellCount == 0) continue;
    Header header;
    std::memcpy(header.data(), pHeader, sizeof header);
    seen.insert(header);
  } while (process.Step(PTRACE_SINGLESTEP));
  process.Kill();
  EXPECT_EQ(seen.size(), 1u) << "who attaches a ring with a cell count believes all of its header";
  ::shmdt(pHeader);
}

TEST_F(RingStep, LifeOfARing_EndedAtAnySystemCall_LeavesTheNextCreatorAWorkingRing) {
  TShmQueue_Close(&ring, 1);
  ring.header = nullptr;
  int stops = 0;
  for (bool ended = false; !ended; ++stops) {
    Traced process([this] {
      TShmQueue mine{};
      TShmQueueOpt opt{36, 1, 0};
      Create(mine, kCells, 8, &opt);
      TShmQueue_Unlock(&mine);
      PushText(mine, "x");
      TShmQueue_Close(&mine, 1);
    });
    for (int i = 0; i < stops && !ended; ++i) ended = !process.Step(PTRACE_SYSCALL);
    process.Kill();

    TShmQueue next{};
    TShmQueueOpt opt{36, 0, 0};
    ASSERT_EQ(Create(next, kCells, 8, &opt), 1) << "after stop " << stops;
    EXPECT_EQ(SemValue(), 1);
    const std::string left = GetText(next);
    EXPECT_TRUE(left == "x" || left == "<empty>") << left;
    for (std::uint32_t i = 0; i < kCells; ++i) EXPECT_EQ(PushText(next, "y"), 1);
    EXPECT_EQ(PushText(next, "y"), 0);
    EXPECT_EQ(TShmQueue_Close(&next, 1), 1);
    EXPECT_FALSE(SegmentExists());
    EXPECT_FALSE(SemExists());
  }
  EXPECT_GT(stops, 2 * 10);  // semget, semctl, semop, shmget, shmat; push; shmdt, stat, removals: each in and out
}

}  // namespace
