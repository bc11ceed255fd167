// SPDX-License-Identifier: MIT
// Writers are killed at random moments. The others continue at once, and the ring holds only complete records.

#include <devsupport/detail/logmgr/LogInfoShm.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <random>

#include "tests/logmgr/LogRing.h"
#include "tests/logmgr/Talk.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

constexpr int kKills = 200;
constexpr int kKillsAmongOthers = 40;
constexpr int kVictim = kFirstLongWriter;

struct Turns {
  std::atomic<std::uint32_t> of[2];
  std::atomic<bool> stop;
};

class LogKill : public OpenChannelTest {
 protected:
  int WriteAsOther(int writer) {
    if (TLogInfoShm_Open(4, 7, NameOf(writer).c_str()) != 1) return 1;
    for (unsigned number = 0; !turns->stop; ++number) {
      TLogInfoShm_Write(MessageOf(writer, number).c_str(), writer, 0);
      turns->of[writer].fetch_add(1);
    }
    return 0;
  }

  void KillOne(std::chrono::nanoseconds after) {
    const Event writing;
    Child victim([&]() -> int {
      if (TLogInfoShm_Open(4, 7, NameOf(kVictim).c_str()) != 1) return 1;
      for (unsigned number = 0;; ++number) {
        TLogInfoShm_Write(MessageOf(kVictim, number).c_str(), kVictim, 0);
        if (number == 0) writing.Announce();
      }
    });
    writing.Wait();
    const auto end = std::chrono::steady_clock::now() + after;
    while (std::chrono::steady_clock::now() < end) continue;
    victim.Signal(SIGKILL);
    ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  }

  void AwaitTurns() {
    for (auto &count : turns->of)
      for (const std::uint32_t before = count; count - before < 2;) ::sched_yield();
  }

  SharedBlock<Turns> turns;
};

TEST_F(LogKill, WhileTheyWrite_TheOthersContinueAndNothingIsTorn) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  std::vector<Child> others;
  for (int writer = 0; writer < 2; ++writer) others.emplace_back([this, writer] { return WriteAsOther(writer); });
  const RawRing ring(kLogRing);
  unsigned cut = 0;
  unsigned gaps = 0;
  for (int kill = 0; kill < kKillsAmongOthers && !HasFailure(); ++kill) {
    KillOne(std::chrono::nanoseconds(random() % 100000));
    // Checks the ring before the others have filled it again, and then lets them write.
    ASSERT_EQ(TShmQueue_Lock(&_g_uLogInfoShmData.uLogQue), 1);
    const Findings findings = LookAt(ring);
    TShmQueue_Unlock(&_g_uLogInfoShmData.uLogQue);
    EXPECT_EQ(findings.broken, 0u) << findings.complaint;
    cut += findings.cut;
    gaps += findings.gaps;
    AwaitTurns();
  }
  turns->stop = true;
  for (Child &other : others) EXPECT_EQ(other.Wait(), 0);
  EXPECT_EQ(SemValue(kLogRing), 1);
  std::printf("%d kills: %u messages cut, %u numbers left out\n", kKillsAmongOthers, cut, gaps);
}

TEST_F(LogKill, AsTheOnlyWriter_LeavesAtMostOneMessageCutAndOneNumberOut) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  unsigned cut = 0;
  unsigned gaps = 0;
  for (int kill = 0; kill < kKills && !HasFailure(); ++kill) {
    TShmQueue_Clear(&_g_uLogInfoShmData.uLogQue);
    KillOne(std::chrono::nanoseconds(random() % 100000));
    ASSERT_EQ(TLogInfoShm_Open(4, 7, "w1 "), 1);
    TLogInfoShm_Write(MessageOf(1, 0).c_str(), 1, 0);
    const RawRing ring(kLogRing);
    const Findings findings = LookAt(ring);
    EXPECT_EQ(findings.broken, 0u) << findings.complaint;
    EXPECT_LE(findings.cut, 1u);
    EXPECT_LE(findings.gaps, 1u);
    cut += findings.cut;
    gaps += findings.gaps;
    EXPECT_EQ(ring.Records().back().sequence, (ring.Counter() + 4095) % 4096);
    EXPECT_EQ(SemValue(kLogRing), 1);
  }
  std::printf("%d kills: %u messages cut, %u numbers left out\n", kKills, cut, gaps);
}

}  // namespace
