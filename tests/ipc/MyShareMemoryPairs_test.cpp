// SPDX-License-Identifier: MIT
// Two processes use the ring at the same time: the first one is stopped after one of its instructions, the second one
// runs to its end, or until it has to wait, and then the first one continues. The results are the same as when they
// run one after the other.

#include <devsupport/ipc/MyShareMemory.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "tests/ipc/SteppedRing.h"
#include "tests/support/Moments.h"
#include "tests/support/SharedBlock.h"

namespace {

using namespace devsupport::test;

using Operation = std::function<int()>;

struct Results {
  std::atomic<int> first;
  std::atomic<int> second;
};

class RingPairs : public SteppedRing {
 protected:
  // Both results, and the content of the ring afterwards.
  std::string Outcome(int first, int second) {
    return std::to_string(first) + " " + std::to_string(second) + " " + TakeAll(ring);
  }

  // Runs the second operation at each moment of the first one, and calls judge after each pair.
  void Meet(const std::function<void()> &before, const Operation &first, const Operation &second,
            const std::function<void()> &judge) {
    const TestSeed seed;
    const auto begin = [&] {
      before();
      results->first = results->second = kNever;
      return std::make_unique<Traced>([&] { results->first = first(); });
    };
    const auto meet = [&](Traced &one) {
      Traced other([&] { results->second = second(); });
      one.FinishInTurn(other);
      judge();
    };
    AtEachMoment(seed, begin, meet);
  }

  void ExpectOneAfterTheOther(int cells, const Operation &first, const Operation &second) {
    std::set<std::string> allowed;
    Fill(cells);
    int firstResult = first();
    int secondResult = second();
    allowed.insert(Outcome(firstResult, secondResult));
    Fill(cells);
    secondResult = second();
    firstResult = first();
    allowed.insert(Outcome(firstResult, secondResult));
    const auto judge = [&] {
      EXPECT_EQ(SemValue(), 1);
      const std::string outcome = Outcome(results->first, results->second);
      EXPECT_TRUE(allowed.count(outcome)) << outcome;
    };
    Meet([&] { Fill(cells); }, first, second, judge);
  }

  // Each operation as the second one, in an empty ring, in one with one cell, and in a full one; in an ordinary run a
  // third of these.
  void ExpectInOrderWithEveryOther(const Operation &first) {
    const Operation others[] = {
        [this] { return PushText(ring, "X"); },
        [this] { return OverwriteText(ring, "Y"); },
        [this] { return Taken(); },
        [this] { return TShmQueue_Clear(&ring); },
        [this] { return TShmQueue_GetCount(&ring); },
    };
    std::uint64_t turn = TestSeed();
    for (const int cells : {0, 1, 3}) {
      for (const Operation &second : others)
        if (TakesEveryMoment() || ++turn % 3 == 0) ExpectOneAfterTheOther(cells, first, second);
    }
  }
  // The oldest cell's first character, 0 when there is none.
  int Taken() {
    const std::string text = GetText(ring);
    return text == "<empty>" ? 0 : text[0];
  }

  // A process makes or attaches the ring, checks that it works, and keeps it.
  int Attach() {
    TShmQueue mine{};
    if (Create(mine, kCells, 8) != 1) return 0;
    return OverwriteText(mine, "mine") >= 0 && TShmQueue_GetCount(&mine) > 0 ? 1 : 2;
  }

  SharedBlock<Results> results;
};

TEST_F(RingPairs, Push_ComesBeforeOrAfterTheOther) {
  ExpectInOrderWithEveryOther([this] { return PushText(ring, "new"); });
}

TEST_F(RingPairs, PushOverwrite_ComesBeforeOrAfterTheOther) {
  ExpectInOrderWithEveryOther([this] { return OverwriteText(ring, "new"); });
}

TEST_F(RingPairs, Get_ComesBeforeOrAfterTheOther) {
  ExpectInOrderWithEveryOther([this] { return Taken(); });
}

TEST_F(RingPairs, Clear_ComesBeforeOrAfterTheOther) {
  ExpectInOrderWithEveryOther([this] { return TShmQueue_Clear(&ring); });
}

TEST_F(RingPairs, AttachAndLeave_DisturbNoPush) {
  const Operation attachAndLeave = [this] {
    TShmQueue mine{};
    return Create(mine, kCells, 8) == 1 ? TShmQueue_Close(&mine, 1) : 0;
  };
  const Operation push = [this] { return PushText(ring, "new"); };
  ExpectOneAfterTheOther(1, attachAndLeave, push);
  ExpectOneAfterTheOther(1, push, attachAndLeave);
}

TEST_F(RingPairs, TwoCreators_ShareOneRing) {
  LeaveTheRing();
  const auto judge = [this] {
    EXPECT_EQ(results->first, 1);
    EXPECT_EQ(results->second, 1);
    TShmQueue next{};
    ASSERT_EQ(Create(next, kCells, 8), 1);
    EXPECT_EQ(TakeAll(next), "[mine][mine]");
    TShmQueue_Close(&next, 1);
  };
  Meet([] {}, [this] { return Attach(); }, [this] { return Attach(); }, judge);
}

TEST_F(RingPairs, CreatorAndTheLastOneWhoLeaves_BothWork) {
  LeaveTheRing();
  // The process that leaves the ring has made it before its first moment.
  const Operation leave = [this] {
    TShmQueue mine{};
    Create(mine, kCells, 8);
    return TShmQueue_Close(&mine, 1);
  };
  const auto judge = [this] {
    EXPECT_EQ(results->first, 1);
    EXPECT_EQ(results->second, 1);
    ContentsForTheNextCreator();
  };
  Meet([] {}, leave, [this] { return Attach(); }, judge);
  Meet([] {}, [this] { return Attach(); }, leave, judge);
}

}  // namespace
