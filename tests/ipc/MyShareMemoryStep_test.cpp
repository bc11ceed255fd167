// SPDX-License-Identifier: MIT
// A process that dies stops between two instructions. These tests check the ring after each instruction of an
// operation, as the next process with the lock finds it, and they kill a process at each system call of creation and
// removal.

#include <devsupport/ipc/MyShareMemory.h>
#include <array>
#include <cstdint>
#include <functional>
#include <set>

#include "tests/ipc/SteppedRing.h"

namespace {

using namespace devsupport::test;

class RingStep : public SteppedRing {
 protected:
  // The cells that the next process would take out of the segment in its present state.
  std::string Contents() {
    std::vector<std::uint8_t> segment = Bytes(ring);
    TShmQueue copy = ring;
    copy.header = static_cast<_U_ShmQueue_SHM_VARI *>(static_cast<void *>(segment.data()));
    copy.cells = segment.data() + (ring.cells - reinterpret_cast<std::uint8_t *>(ring.header));
    copy.semid = -1;
    return TakeAllAndTry(copy);
  }

  // All contents between the instructions of one operation, with the oldest cell in each slot in turn.
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
  LeaveTheRing();
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
  EXPECT_EQ(seen.size(), 1u) << "a process that attaches a ring with a cell count relies on all of its header";
  ::shmdt(pHeader);
}

TEST_F(RingStep, LifeOfARing_EndedAtAnySystemCall_LeavesTheNextCreatorAWorkingRing) {
  LeaveTheRing();
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

    SCOPED_TRACE(stops);
    TShmQueueOpt opt{36, 0, 0};
    const std::string contents = ContentsForTheNextCreator(&opt);
    EXPECT_TRUE(contents.empty() || contents == "[x]") << contents;
  }
  EXPECT_GT(stops, 2 * 10);  // semget, semctl, semop, shmget, shmat; push; shmdt, stat, removals: each in and out
}

}  // namespace
