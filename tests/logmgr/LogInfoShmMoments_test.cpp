// SPDX-License-Identifier: MIT
// A writer is killed after any one instruction of a message of several records. Those who come after it find whole
// records, consecutive numbers but for the one that it took with it, and a ring that works.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogInfoShm.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/logmgr/LogRing.h"
#include "tests/support/Moments.h"

namespace {

using namespace devsupport::test;

// Three records without a name.
std::string Message() { return std::string(127, 'a') + std::string(127, 'b') + std::string(20, 'c'); }

class LogMoments : public OpenChannelTest {
 protected:
  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    OpenChannelTest::SetUp();
  }

  using RecordsAndLostNumbers = std::pair<std::size_t, unsigned>;

  // How many of the dead writer's records there are and how many numbers are left out, over all its deaths. Each time
  // there are so many records in the ring before it.
  static std::set<RecordsAndLostNumbers> AfterADeath(unsigned records) {
    const TestSeed seed;
    const RawRing ring(kEventRing);
    std::set<RecordsAndLostNumbers> seen;
    const auto begin = [&] {
      TShmQueue_Clear(&_g_uLogInfoShmData.uEvtQue);
      for (unsigned i = 0; i < records; ++i) TLogInfoShm_Write_Evt("old", 0);
      return std::make_unique<Traced>([] { TLogInfoShm_Write_Evt(Message().c_str(), 0); });
    };
    const auto die = [&](Traced &writer) {
      writer.Kill();
      EXPECT_EQ(SemValue(kEventRing), 1);
      TLogInfoShm_Write_Evt("next", 0);
      seen.insert(Look(ring.Records()));
    };
    AtEachMoment(seed, begin, die);
    return seen;
  }

  static RecordsAndLostNumbers Look(const std::vector<Record> &records) {
    const std::vector<std::string> whole{std::string(127, 'a'), std::string(127, 'b'), std::string(20, 'c')};
    EXPECT_LE(records.size(), kEventRing.cells);
    EXPECT_EQ(records.back().text, "next");
    std::size_t found = 0;
    unsigned lost = 0;
    for (std::size_t i = 1; i < records.size(); ++i) {
      lost += (records[i].sequence - records[i - 1].sequence - 1) & 0xFFF;
      if (records[i].text == "old" || i + 1 == records.size()) continue;
      EXPECT_LT(found, whole.size());
      if (found == whole.size()) break;
      EXPECT_EQ(records[i].text, whole[found]);
      EXPECT_EQ(records[i].fragment, found);
      ++found;
    }
    return {found, lost};
  }

  static void ExpectAllowed(const std::set<RecordsAndLostNumbers> &seen) {
    const std::set<RecordsAndLostNumbers> allowed{{0, 0}, {0, 1}, {1, 0}, {1, 1}, {2, 0}, {2, 1}, {3, 0}};
    if (TakesEveryMoment()) {
      EXPECT_EQ(seen, allowed);
    }
    for (const auto &[records, lost] : seen)
      EXPECT_TRUE(allowed.count({records, lost})) << records << " records, " << lost << " numbers lost";
  }
};

TEST_F(LogMoments, MessageOfThreeRecords_LeavesWholeRecordsAndTakesOneNumberAlong) { ExpectAllowed(AfterADeath(1)); }

TEST_F(LogMoments, MessageToAFullRing_LeavesWholeRecordsAndTakesOneNumberAlong) {
  ExpectAllowed(AfterADeath(kEventRing.cells));
}

}  // namespace
