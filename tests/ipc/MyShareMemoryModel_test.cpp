// SPDX-License-Identifier: MIT
// Random scripts with several attached records of one ring, compared with a model that keeps the whole segment as
// plain bytes and computes each offset by a multiplication. Results, buffers and all bytes must agree after each
// operation.

#include <devsupport/ipc/MyShareMemory.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>

#include "tests/ipc/RingFixture.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

struct Measures {
  int cells;
  int size;
  int user;
};

/// The naive ring: slot numbers and an array of bytes.
class Oracle {
 public:
  explicit Oracle(const Measures &measures)
      : slots_(measures.cells + 1),
        size_(measures.size),
        user_((measures.user + 3) / 4 * 4),
        bytes(static_cast<std::size_t>(256 + user_ + slots_ * Stride()), 0) {
    Put(0, measures.cells);
    Put(4, size_);
    Put(8, user_);
    Put(28, measures.cells * Stride());
    Publish();
  }

  int Stride() const { return size_ + 4; }
  int Count() const { return (write_ - read_ + slots_) % slots_; }
  int SlotAt(int slot) const { return 256 + user_ + slot * Stride(); }
  int Slots() const { return slots_; }
  int UserBytes() const { return user_; }

  void Store(const std::vector<std::uint8_t> &data) {
    const int length = std::min(static_cast<int>(data.size()), size_);
    Put(SlotAt(write_), length);
    std::copy_n(data.begin(), length, bytes.begin() + SlotAt(write_) + 4);
    write_ = (write_ + 1) % slots_;
    Publish();
  }
  int Push(const std::vector<std::uint8_t> &data) {
    if (data.empty() || Count() == slots_ - 1) return 0;
    Store(data);
    return 1;
  }
  int Overwrite(const std::vector<std::uint8_t> &data) {
    if (data.empty()) return 0;
    const bool full = Count() == slots_ - 1;
    if (full) read_ = (read_ + 1) % slots_;
    Store(data);
    return full ? 0 : 1;
  }
  int Get(std::vector<std::uint8_t> &buffer, int room, std::uint32_t &stored) {
    stored = 0;
    if (Count() == 0) return 0;
    std::memcpy(&stored, &bytes[static_cast<std::size_t>(SlotAt(read_))], 4);
    const int copied = room == 0 ? static_cast<int>(stored) : std::min(room, static_cast<int>(stored));
    std::copy_n(bytes.begin() + SlotAt(read_) + 4, copied, buffer.begin());
    read_ = (read_ + 1) % slots_;
    Publish();
    return 1;
  }
  void Clear() {
    read_ = write_ = 0;
    Publish();
  }
  int PeekInit(int &cursor, int position) const {
    if (position < 0) position += Count();
    cursor = position < Count() ? (read_ + position) % slots_ : read_;
    return position < Count() ? 1 : 0;
  }
  int PeekNext(int &cursor) const {
    if (cursor == write_) return -1;
    const int shown = SlotAt(cursor);
    cursor = (cursor + 1) % slots_;
    return shown;
  }
  int PeekPrev(int &cursor) const {
    if ((cursor + 1) % slots_ == read_) return -1;
    const int shown = SlotAt(cursor);
    cursor = (cursor + slots_ - 1) % slots_;
    return shown;
  }

 private:
  void Put(int place, int value) { std::memcpy(&bytes[static_cast<std::size_t>(place)], &value, 4); }
  void Publish() {
    Put(12, read_);
    Put(16, write_);
    Put(20, read_ * Stride());
    Put(24, write_ * Stride());
  }

  int slots_;
  int size_;
  int user_;
  int read_ = 0;
  int write_ = 0;

 public:
  std::vector<std::uint8_t> bytes;
};

class RingModel : public RingFixture {
 protected:
  struct Attached {
    TShmQueue que;
    int cursor;  // this record's peek cursor, as the oracle computes it
  };

  int Below(int bound) { return static_cast<int>(random_() % static_cast<unsigned>(bound)); }

  void Attach(Attached &record) {
    TShmQueueOpt opt{measures_.user, 0, 0};
    ASSERT_EQ(Create(record.que, static_cast<std::uint32_t>(measures_.cells),
                     static_cast<std::uint16_t>(measures_.size), &opt),
              1);
    oracle_->PeekInit(record.cursor, 0);
  }

  std::vector<std::uint8_t> RandomData() {
    std::vector<std::uint8_t> data(static_cast<std::size_t>(Below(measures_.size + 4)));
    for (auto &byte : data) byte = static_cast<std::uint8_t>(random_());
    return data;
  }

  void Get(Attached &record) {
    std::vector<std::uint8_t> expected(static_cast<std::size_t>(measures_.size) + 4, '#');
    std::vector<std::uint8_t> buffer = expected;
    const int room = Below(measures_.size + 4);
    std::uint32_t expectedLength = 0;
    std::uint32_t length = 4711;
    const int result = oracle_->Get(expected, room, expectedLength);
    EXPECT_EQ(TShmQueue_Get(&record.que, buffer.data(), &length, static_cast<std::uint16_t>(room)), result);
    EXPECT_EQ(length, expectedLength);
    EXPECT_EQ(buffer, expected);
  }

  void Peek(Attached &record, bool forward) {
    const int expected = forward ? oracle_->PeekNext(record.cursor) : oracle_->PeekPrev(record.cursor);
    void *slot = nullptr;
    void *payload = forward ? TShmQueue_PeekNext(&record.que, &slot) : TShmQueue_PeekPrev(&record.que, &slot);
    auto *start = reinterpret_cast<std::uint8_t *>(record.que.header);
    EXPECT_EQ(slot, expected < 0 ? nullptr : start + expected);
    EXPECT_EQ(payload, expected < 0 ? nullptr : start + expected + 4);
  }

  void UseUserArea(Attached &record) {
    if (oracle_->UserBytes() == 0) return;
    const int place = Below(oracle_->UserBytes());
    const auto value = static_cast<std::uint8_t>(random_());
    record.que.pUserArea[place] = value;
    oracle_->bytes[static_cast<std::size_t>(256 + place)] = value;
  }

  void Step(Attached &record) {
    switch (Below(16)) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const auto data = RandomData();
        EXPECT_EQ(TShmQueue_Push(&record.que, data.data(), static_cast<std::uint16_t>(data.size())),
                  oracle_->Push(data));
        break;
      }
      case 4:
      case 5: {
        const auto data = RandomData();
        EXPECT_EQ(TShmQueue_PushOverwrite(&record.que, data.data(), static_cast<std::uint16_t>(data.size())),
                  oracle_->Overwrite(data));
        break;
      }
      case 6:
      case 7:
      case 8:
      case 9:
        Get(record);
        break;
      case 10:
        EXPECT_EQ(TShmQueue_GetCount(&record.que), oracle_->Count());
        break;
      case 11: {
        const int position = Below(2 * oracle_->Count() + 3) - oracle_->Count();
        EXPECT_EQ(TShmQueue_PeekInit(&record.que, position), oracle_->PeekInit(record.cursor, position));
        break;
      }
      case 12:
        Peek(record, true);
        break;
      case 13:
        Peek(record, false);
        break;
      case 14:
        UseUserArea(record);
        break;
      default:
        if (Below(4) != 0) break;
        if (Below(2) == 0) {
          EXPECT_EQ(TShmQueue_Clear(&record.que), 1);
          oracle_->Clear();
        } else {
          EXPECT_EQ(TShmQueue_Close(&record.que, 0), 1);
          Attach(record);
        }
    }
    EXPECT_EQ(record.que.nPeekIdx, record.cursor);
    EXPECT_EQ(Bytes(record.que), oracle_->bytes);
  }

  void RunScript(int steps) {
    measures_ = {Below(7), Below(13), Below(10)};
    oracle_ = std::make_unique<Oracle>(measures_);
    std::array<Attached, 3> records{};
    for (Attached &record : records) Attach(record);
    for (int step = 0; step < steps && !HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      Step(records[static_cast<std::size_t>(Below(3))]);
    }
    for (Attached &record : records) TShmQueue_Close(&record.que, 1);
    EXPECT_FALSE(SegmentExists());
    EXPECT_FALSE(SemExists());
  }

  std::mt19937_64 random_;
  Measures measures_{};
  std::unique_ptr<Oracle> oracle_;
};

TEST_F(RingModel, RandomScriptsOverThreeRecords_AgreeWithTheOracle) {
  const TestSeed seed;
  random_.seed(seed);
  for (int script = 0; script < 200 && !HasFailure(); ++script) {
    SCOPED_TRACE("script " + std::to_string(script));
    RunScript(400);
  }
}

}  // namespace
