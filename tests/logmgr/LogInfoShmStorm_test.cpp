// SPDX-License-Identifier: MIT
// Four processes write messages of several records while a timer signal interrupts each of them a thousand times a
// second, and a fifth one reads.

#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>

#include "tests/ipc/SignalStorm.h"
#include "tests/logmgr/LogRing.h"
#include "tests/logmgr/Talk.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;

constexpr int kWriters = 4;
constexpr std::uint32_t kMostUnread = 1000;  // of 1024 records; a message has five at most

struct Books {
  std::atomic<std::uint32_t> written[kWriters];
  std::atomic<std::uint32_t> unread;
  std::atomic<std::uint32_t> writing;
};

class LogStorm : public OpenChannelTest {
 protected:
  // Writes until the storm is over. On request it waits before each message until there is room, so that no message
  // is lost.
  int Write(int writer, bool paced) {
    storm.Begin();
    if (TLogInfoShm_Open(4, 7, NameOf(writer).c_str()) != 1) return 1;

    std::uint32_t number = 0;
    while (storm.GoesOn()) {
      if (paced && books->unread.fetch_add(5) > kMostUnread - 5 * kWriters) {
        books->unread.fetch_sub(5);
        ::sched_yield();
        continue;
      }
      const std::string text = MessageOf(writer, number);
      TLogInfoShm_Write(text.c_str(), writer, 0);
      if (paced) books->unread.fetch_sub(5 - RecordsOf(writer, number));
      books->written[writer] = ++number;
    }
    books->writing.fetch_sub(1);
    return 0;
  }
  static std::uint32_t RecordsOf(int writer, unsigned number) {
    return static_cast<std::uint32_t>((NameOf(writer).size() + MessageOf(writer, number).size() + 126) / 127);
  }

  std::vector<Child> StartWriters(bool paced) {
    books->writing = kWriters;
    std::vector<Child> writers;
    for (int i = 0; i < kWriters; ++i) writers.emplace_back([this, i, paced] { return Write(i, paced); });
    return writers;
  }
  static void ExpectGoodEnds(std::vector<Child> &writers) {
    for (Child &writer : writers) EXPECT_EQ(writer.Wait(), 0);
    EXPECT_EQ(SemValue(kLogRing), 1);
  }

  // Writers retry the lock before they wait, so they seldom wait. This process sometimes holds the lock for several
  // signals.
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

  SignalStorm storm{std::chrono::milliseconds(1500)};
  SharedBlock<Books> books;

 private:
  std::chrono::steady_clock::time_point nextHold_{};
};

TEST_F(LogStorm, EveryMessage_ArrivesOnceInOrderAndWhole) {
  std::vector<Child> writers = StartWriters(true);
  Listener listener;
  while (books->writing != 0) {
    LetThemWait();
    if (Take(listener))
      books->unread.fetch_sub(1);
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
  for (int i = 0; i < kWriters; ++i) EXPECT_EQ(next[i], books->written[i]);
  std::printf("%u messages, %u interrupted waits\n", listener.findings.whole, storm.Interruptions());
}

TEST_F(LogStorm, FullRing_HoldsWholeRecordsWithConsecutiveNumbers) {
  std::vector<Child> writers = StartWriters(false);
  const RawRing ring(kLogRing);
  unsigned looks = 0;
  while (books->writing != 0) {
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
  std::printf("%u looks, %u interrupted waits\n", looks, storm.Interruptions());
}

}  // namespace
