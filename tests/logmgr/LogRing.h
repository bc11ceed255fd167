// SPDX-License-Identifier: MIT
// Fixture of the tests of the log channel: private shared memory, since the channel's keys are fixed, and a reader of
// the rings' bytes that does not use the library's headers.
#pragma once

#include <devsupport/logmgr/LogInfoShm.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace devsupport::test {

struct RingFacts {
  int shareKey;
  int semKey;
  std::uint32_t cells;
};
inline constexpr RingFacts kLogRing{1895, 2151, 1024};
inline constexpr RingFacts kEventRing{1893, 2149, 256};

/// One record, decoded without the library.
struct Record {
  std::uint32_t length = 0;  // the cell's length word
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned ms = 0;
  unsigned fragment = 0;
  unsigned sequence = 0;
  unsigned type = 0;
  unsigned upper = 0;  // bits that no writer sets
  std::string text;    // as long as the length word says

  unsigned Time() const { return ((hour * 60 + minute) * 60 + second) * 1000 + ms; }

  static Record Of(const std::uint8_t *slot) {
    std::uint32_t words[3];
    std::memcpy(words, slot, sizeof words);
    Record record;
    record.length = words[0];
    record.hour = words[1] & 0x1F;
    record.minute = words[1] >> 5 & 0x3F;
    record.second = words[1] >> 11 & 0x3F;
    record.ms = words[1] >> 17 & 0x3FF;
    record.fragment = words[1] >> 27;
    record.sequence = words[2] & 0xFFF;
    record.type = words[2] >> 12 & 0xF;
    record.upper = words[2] >> 16;
    if (record.length >= 9 && record.length <= 136)
      record.text.assign(reinterpret_cast<const char *>(slot) + 12, record.length - 9);
    return record;
  }
};

/// A ring's segment as bytes: attached by its key, or a copy of one.
class RawRing {
 public:
  static constexpr std::uint32_t kUserArea = 256;
  static constexpr std::uint32_t kFirstSlot = 256 + 36;
  static constexpr std::uint32_t kStride = 140;

  explicit RawRing(const RingFacts &facts)
      : facts_(facts), bytes_(static_cast<std::uint8_t *>(::shmat(::shmget(facts.shareKey, 0, 0), nullptr, 0))) {
    EXPECT_NE(bytes_, reinterpret_cast<std::uint8_t *>(-1)) << "there is no such ring";
  }
  RawRing(std::vector<std::uint8_t> copy, const RingFacts &facts)
      : facts_(facts), copy_(std::move(copy)), bytes_(copy_.data()) {}
  ~RawRing() {
    if (copy_.empty()) ::shmdt(bytes_);
  }
  RawRing(const RawRing &) = delete;
  RawRing &operator=(const RawRing &) = delete;

  std::uint8_t *Bytes() const { return bytes_; }
  std::uint8_t *Slot(std::uint32_t index) const { return bytes_ + kFirstSlot + index * kStride; }
  std::size_t Size() const { return kFirstSlot + (facts_.cells + 1) * kStride; }
  std::uint32_t Word(std::size_t offset) const { return At<std::uint32_t>(offset); }
  std::uint16_t Half(std::size_t offset) const { return At<std::uint16_t>(offset); }
  void SetHalf(std::size_t offset, std::uint16_t value) const { std::memcpy(bytes_ + offset, &value, sizeof value); }
  std::uint32_t ReadIndex() const { return Word(12); }
  std::uint32_t WriteIndex() const { return Word(16); }
  unsigned Counter() const { return Half(kUserArea); }

  /// The stored records, the oldest first.
  std::vector<Record> Records() const {
    std::vector<Record> records;
    for (std::uint32_t i = ReadIndex(); i != WriteIndex(); i = (i + 1) % (facts_.cells + 1))
      records.push_back(Record::Of(Slot(i)));
    return records;
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const Record &record : Records()) texts.push_back(record.text);
    return texts;
  }

 private:
  template <typename T>
  T At(std::size_t offset) const {
    T value;
    std::memcpy(&value, bytes_ + offset, sizeof value);
    return value;
  }

  RingFacts facts_;
  std::vector<std::uint8_t> copy_;
  std::uint8_t *bytes_;
};

inline int SemValue(const RingFacts &facts) { return ::semctl(::semget(facts.semKey, 0, 0), 0, GETVAL); }
inline bool SegmentExists(const RingFacts &facts) { return ::shmget(facts.shareKey, 0, 0) != -1; }
inline unsigned long Attachments(const RingFacts &facts) {
  shmid_ds status{};
  return ::shmctl(::shmget(facts.shareKey, 0, 0), IPC_STAT, &status) == 0 ? status.shm_nattch : 4711;
}

/// Gives each test a private IPC namespace; the channel is not open.
class ChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::unshare(CLONE_NEWIPC) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0)
      GTEST_SKIP() << "the machine does not let us make a private IPC namespace";
  }
  void TearDown() override { TLogInfoShm_Close(); }
};

/// The same with the channel open and no name set.
class OpenChannelTest : public ChannelTest {
 protected:
  void SetUp() override {
    ChannelTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(TLogInfoShm_Open(4, 7, nullptr), 1);
  }
};

}  // namespace devsupport::test
