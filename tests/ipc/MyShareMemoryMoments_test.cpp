// SPDX-License-Identifier: MIT
// A process is killed after any one instruction of an operation of the ring. The next one finds the semaphore free,
// the operation done or not done, and a ring that works.

#include <devsupport/ipc/MyShareMemory.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "tests/ipc/SteppedRing.h"
#include "tests/support/Moments.h"

namespace {

using namespace devsupport::test;

using Seen = std::set<std::string>;

class RingMoments : public SteppedRing {
 protected:
  // The contents that are found after the deaths in an operation, which begins with so many cells.
  Seen AfterADeathIn(int cells, const std::function<void()> &operation) {
    const TestSeed seed;
    Seen seen;
    int turn = 0;  // the oldest cell is in another slot each time
    const auto begin = [&] {
      Fill(cells, turn++ % static_cast<int>(kCells + 1));
      return std::make_unique<Traced>(operation);
    };
    const auto die = [&](Traced &process) {
      process.Kill();
      EXPECT_EQ(SemValue(), 1);
      seen.insert(TakeAllAndTry(ring));
    };
    AtEachMoment(seed, begin, die);
    return seen;
  }
  // Nothing is found but what is allowed, and, where every moment is taken, all of it.
  void ExpectAfterADeathIn(int cells, const std::function<void()> &operation, const Seen &allowed) {
    const Seen seen = AfterADeathIn(cells, operation);
    if (TakesEveryMoment()) {
      EXPECT_EQ(seen, allowed);
    }
    for (const std::string &contents : seen) EXPECT_TRUE(allowed.count(contents)) << contents;
  }

  // Processes die in an operation of a ring that only they have. The next creator has a ring that works, with or
  // without the cell that was in it.
  void ExpectARingAfterADeathIn(const std::function<void(TShmQueue &)> &preparation,
                                const std::function<void(TShmQueue &)> &operation) {
    LeaveTheRing();
    const TestSeed seed;
    TShmQueue mine{};
    const auto begin = [&] { return std::make_unique<Traced>([&] { preparation(mine); }, [&] { operation(mine); }); };
    const auto die = [&](Traced &process) {
      process.Kill();
      const std::string contents = ContentsForTheNextCreator();
      EXPECT_TRUE(contents.empty() || contents == "[x]") << contents;
    };
    EXPECT_GT(AtEachMoment(seed, begin, die), 1);
  }
};

TEST_F(RingMoments, Push_IsDoneOrNotDone) {
  ExpectAfterADeathIn(0, [this] { PushText(ring, "new"); }, {"", "[new]"});
  ExpectAfterADeathIn(2, [this] { PushText(ring, "new"); }, {"[a][b]", "[a][b][new]"});
  ExpectAfterADeathIn(3, [this] { PushText(ring, "new"); }, {"[a][b][c]"});
}

TEST_F(RingMoments, PushOverwrite_LosesNoMoreThanTheOldestCell) {
  ExpectAfterADeathIn(1, [this] { OverwriteText(ring, "new"); }, {"[a]", "[a][]", "[a][new]"});
  ExpectAfterADeathIn(3, [this] { OverwriteText(ring, "new"); }, {"[a][b][c]", "[b][c]", "[b][c][]", "[b][c][new]"});
}

TEST_F(RingMoments, Get_IsDoneOrNotDone) {
  ExpectAfterADeathIn(0, [this] { GetText(ring); }, {""});
  ExpectAfterADeathIn(1, [this] { GetText(ring); }, {"[a]", ""});
  ExpectAfterADeathIn(3, [this] { GetText(ring); }, {"[a][b][c]", "[b][c]"});
}

TEST_F(RingMoments, Clear_BringsNoOldCellBack) {
  ExpectAfterADeathIn(0, [this] { TShmQueue_Clear(&ring); }, {""});
  ExpectAfterADeathIn(2, [this] { TShmQueue_Clear(&ring); }, {"[a][b]", ""});
}

TEST_F(RingMoments, CountAndPeek_ChangeNothing) {
  ExpectAfterADeathIn(2, [this] { TShmQueue_GetCount(&ring); }, {"[a][b]"});
  const auto walk = [this] {
    TShmQueue_Lock(&ring);
    TShmQueue_PeekInit(&ring, 0);
    PeekNextText(ring);
    TShmQueue_PeekInit(&ring, -1);
    PeekPrevText(ring);
    TShmQueue_Unlock(&ring);
  };
  ExpectAfterADeathIn(2, walk, {"[a][b]"});
}

TEST_F(RingMoments, AttachAndLeave_ChangeNothing) {
  const auto attachAndLeave = [this] {
    TShmQueue mine{};
    Create(mine, kCells, 8);
    TShmQueue_Close(&mine, 1);
  };
  ExpectAfterADeathIn(2, attachAndLeave, {"[a][b]"});
}

TEST_F(RingMoments, Creation_IsFinishedByTheNextCreator) {
  ExpectARingAfterADeathIn([](TShmQueue &) {}, [this](TShmQueue &mine) { Create(mine, kCells, 8); });
}

TEST_F(RingMoments, CreationThatKeepsTheLock_IsFinishedByTheNextCreator) {
  const auto create = [this](TShmQueue &mine) {
    TShmQueueOpt opt{0, 1, 0};
    Create(mine, kCells, 8, &opt);
    TShmQueue_Unlock(&mine);
  };
  ExpectARingAfterADeathIn([](TShmQueue &) {}, create);
}

TEST_F(RingMoments, CloseByTheLastOne_LeavesTheNextCreatorARing) {
  const auto make = [this](TShmQueue &mine) {
    Create(mine, kCells, 8);
    PushText(mine, "x");
  };
  ExpectARingAfterADeathIn(make, [](TShmQueue &mine) { TShmQueue_Close(&mine, 1); });
  ASSERT_EQ(Create(ring, kCells, 8), 1);
  ExpectARingAfterADeathIn(make, [](TShmQueue &mine) { TShmQueue_Close(&mine, 0); });
}

}  // namespace
