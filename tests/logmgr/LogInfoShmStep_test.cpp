// SPDX-License-Identifier: MIT
// The log ring is checked after each instruction of a write, as the next process finds it after a writer was killed
// there.

#include <devsupport/logmgr/LogInfoShm.h>

#include <set>
#include <string>
#include <utility>

#include "tests/logmgr/LogRing.h"
#include "tests/support/Traced.h"

namespace {

using namespace devsupport::test;

class LogStep : public OpenChannelTest {
 protected:
  void SetUp() override {
    if (!Traced::MayTrace()) GTEST_SKIP() << "needs the right to trace a child";
    OpenChannelTest::SetUp();
  }
};

TEST_F(LogStep, Record_HasUsedUpItsNumberBeforeItIsSeen) {
  TLogInfoShm_Write("old", 0, 0);
  const RawRing ring(kLogRing);
  using NewestAndCounter = std::pair<std::string, unsigned>;
  std::set<NewestAndCounter> seen;
  Traced writer([] { TLogInfoShm_Write("new", 0, 0); });
  do {
    seen.emplace(ring.Texts().back(), ring.Counter());
  } while (writer.Step(PTRACE_SINGLESTEP));
  writer.Kill();
  EXPECT_EQ(seen, (std::set<NewestAndCounter>{{"old", 1}, {"old", 2}, {"new", 2}}));
}

}  // namespace
