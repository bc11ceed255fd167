// SPDX-License-Identifier: MIT
// Four processes write messages of several records while a timer signal hits each of them a thousand times a second
// and a fifth one reads.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>

#include "tests/logmgr/LogRing.h"
#include "tests/logmgr/Talk.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"

namespace {

using namespace devsupport::test;

constexpr int kWriters = 4;
constexpr auto kDuration = std::chrono::milliseconds(1500);
constexpr std::uint32_t kEnoughInterruptions = 20;
constexpr std::uint32_t kMostUnread = 1000;  // of 1024 records; a message has five at most

struct Storm {
  std::atomic<std::uint32_t> interruptions;
  std::atomic<std::uint32_t> written[kWriters];
  std::atomic<std::uint32_t> unread;
  std::atomic<std::uint32_t> writing;
};

SharedBlock<Storm> *g_storm = nullptr;

void OnAlarm(int /*signal*/) {}

}  // namespace

// Counts the waits that a signal really interrupted: without any, the storm would prove nothing.
extern "C" int __real_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count);
extern "C" int __wrap_semop(int id, sembuf *operations, std::size_t count) {
  const int result = __real_semop(id, operations, count);
  if (result == -1 && errno == EINTR && g_storm != nullptr) (*g_storm)->interruptions.fetch_add(1);
  return result;
}

namespace {

class LogStorm : public OpenChannelTest {
 protected:
  void SetUp() override {
    OpenChannelTest::SetUp();
    g_storm = &storm;
  }
  void TearDown() override {
    g_storm = nullptr;
    OpenChannelTest::TearDown();
  }

  // Writes until the storm is over; before each message it waits until nobody can lose one, when it is asked to.
  int Write(int writer, bool paced) {
    struct sigaction action {};
    action.sa_handler = OnAlarm;
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 1000}, {0, 1000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    if (TLogInfoShm_Open(4, 7, NameOf(writer).c_str()) != 1) return 1;

    const auto end = std::chrono::steady_clock::now() + kDuration;
    std::uint32_t number = 0;
    while (std::chrono::steady_clock::now() < end || storm->interruptions < kEnoughInterruptions) {
      if (paced && storm->unread.fetch_add(5) > kMostUnread - 5 * kWriters) {
        storm->unread.fetch_sub(5);
        ::sched_yield();
        continue;
      }
      const std::string text = MessageOf(writer, number);
      TLogInfoShm_Write(text.c_str(), writer, 0);
      if (paced) storm->unread.fetch_sub(5 - RecordsOf(writer, number));
      storm->written[writer] = ++number;
    }
    storm->writing.fetch_sub(1);
    return 0;
  }
  static std::uint32_t RecordsOf(int writer, unsigned number) {
    return static_cast<std::uint32_t>((NameOf(writer).size() + MessageOf(writer, number).size() + 126) / 127);
  }

  std::vector<Child> StartWriters(bool paced) {
    storm->writing = kWriters;
    std::vector<Child> writers;
    for (int i = 0; i < kWriters; ++i) writers.emplace_back([this, i, paced] { return Write(i, paced); });
    return writers;
  }
  static void ExpectGoodEnds(std::vector<Child> &writers) {
    for (Child &writer : writers) EXPECT_EQ(writer.Wait(), 0);
    EXPECT_EQ(SemValue(kLogRing), 1);
  }

  // Writers ask for the lock again before they wait, so they seldom wait. This holds it for several alarms at times.
  void LetThemWait() {
    const auto now = std::chrono::steady_clock::now();
    if (now < nextHold_) return;
    nextHold_ = now + std::chrono::milliseconds(20);
    ASSERT_EQ(TShmQueue_Lock(&_g_uLogInfoShmData.uLogQue), 1);
    ::usleep(3000);
    TShmQueue_Unlock(&_g_uLogInfoShmData.uLogQue);
  }

  static bool Take(Listener &listener) {
    std::uint8_t slot[140];
    std::uint32_t length = 0;
    if (TShmQueue_Get(&_g_uLogInfoShmData.uLogQue, slot + 4, &length, 136) == 0) return false;
    std::memcpy(slot, &length, sizeof length);
    listener.Hear(Record::Of(slot));
    return true;
  }

  SharedBlock<Storm> storm;

 private:
  std::chrono::steady_clock::time_point nextHold_{};
};

TEST_F(LogStorm, EveryMessage_ArrivesOnceInOrderAndWhole) {
  std::vector<Child> writers = StartWriters(true);
  Listener listener;
  while (storm->writing != 0) {
    LetThemWait();
    if (Take(listener))
      storm->unread.fetch_sub(1);
    else
      ::sched_yield();
  }
  ExpectGoodEnds(writers);
  while (Take(listener)) continue;
  listener.End();

  EXPECT_EQ(listener.findings.broken, 0u) << listener.findings.complaint;
  EXPECT_EQ(listener.findings.cut, 0u);
  EXPECT_EQ(listener.findings.gaps, 0u);
  std::uint32_t next[kWriters] = {};
  for (const auto &[writer, number] : listener.numbers) EXPECT_EQ(number, next[writer]++);
  for (int i = 0; i < kWriters; ++i) EXPECT_EQ(next[i], storm->written[i]);
  std::printf("%u messages, %u interrupted waits\n", listener.findings.whole, storm->interruptions.load());
}

TEST_F(LogStorm, FullRing_HoldsWholeRecordsWithConsecutiveNumbers) {
  std::vector<Child> writers = StartWriters(false);
  const RawRing ring(kLogRing);
  unsigned looks = 0;
  while (storm->writing != 0) {
    LetThemWait();
    ASSERT_EQ(TShmQueue_Lock(&_g_uLogInfoShmData.uLogQue), 1);
    const std::vector<std::uint8_t> bytes(ring.Bytes(), ring.Bytes() + ring.Size());
    TShmQueue_Unlock(&_g_uLogInfoShmData.uLogQue);
    const Findings findings = LookAt(RawRing(bytes, kLogRing));
    EXPECT_EQ(findings.broken, 0u) << findings.complaint;
    EXPECT_EQ(findings.cut, 0u);
    EXPECT_EQ(findings.gaps, 0u);
    ++looks;
    ::sched_yield();
  }
  ExpectGoodEnds(writers);
  EXPECT_EQ(ring.Records().size(), 1024u);
  std::printf("%u looks, %u interrupted waits\n", looks, storm->interruptions.load());
}

}  // namespace
