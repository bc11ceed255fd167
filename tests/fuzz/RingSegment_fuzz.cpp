// SPDX-License-Identifier: MIT
// A ring's segment, and the log's, while a thread overwrites them: no operation touches memory outside of it
// and of the caller's buffer, each ends, and each answers with one of its results.

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/detail/logmgr/LogInfoShm.h>
#include <devsupport/ipc/MyShareMemory.h>

#include <cstring>
#include <memory>
#include <vector>

#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/Scribbler.h"

namespace {

using devsupport::test::FuzzInput;
using devsupport::test::Scribble;

constexpr std::size_t kHeadBytes = 256;
constexpr std::uint32_t kUserBytes = 36;
constexpr std::uint32_t kCells = 5;
constexpr std::uint16_t kCellBytes = 136;
constexpr std::uint32_t kStride = kCellBytes + 4;
constexpr std::size_t kSegmentBytes = kHeadBytes + kUserBytes + std::size_t{kCells + 1} * kStride;

/// A ring in a block of exactly its size, without a semaphore: the sanitizer sees each access outside.
struct Ring {
  Ring() {
    que.nSlotCount = kCells + 1;
    que.wCellSize = kCellBytes;
    que.dwStride = kStride;
    que.semid = -1;
    que.header = static_cast<_U_ShmQueue_SHM_VARI *>(static_cast<void *>(segment.get()));
    que.pUserArea = segment.get() + kHeadBytes;
    que.cells = que.pUserArea + kUserBytes;
  }
  std::unique_ptr<std::uint8_t[]> segment{new std::uint8_t[kSegmentBytes]()};
  TShmQueue que{};
};

void ExpectInside(const Ring &ring, const void *place) {
  if (place == nullptr) return;
  EXPECT_GE(place, ring.segment.get());
  EXPECT_LE(static_cast<const std::uint8_t *>(place) + kCellBytes, ring.segment.get() + kSegmentBytes);
}

void Operate(Ring &ring, FuzzInput &input) {
  TShmQueue *que = &ring.que;
  const std::size_t operation = input.Below(9);
  const std::size_t number = input.Below(256);
  const std::vector<char> text(number + 1, 'x');  // of exactly that size
  const auto isFlag = [](int result) { return result == 0 || result == 1; };
  void *slot = nullptr;
  switch (operation) {
    case 0:
      EXPECT_TRUE(isFlag(TShmQueue_Push(que, text.data(), static_cast<std::uint16_t>(number))));
      break;
    case 1:
      EXPECT_TRUE(isFlag(TShmQueue_PushOverwrite(que, text.data(), static_cast<std::uint16_t>(number))));
      break;
    case 2: {
      std::vector<char> room(number != 0 ? number : kCellBytes);
      EXPECT_TRUE(isFlag(TShmQueue_Get(que, room.data(), nullptr, static_cast<std::uint16_t>(number))));
      break;
    }
    case 3: {
      const std::int32_t count = TShmQueue_GetCount(que);
      EXPECT_TRUE(count >= 0 && count <= static_cast<std::int32_t>(kCells)) << count;
      break;
    }
    case 4:
      TShmQueue_PeekInit(que, static_cast<std::int32_t>(number) - 128);
      break;
    case 5:
      ExpectInside(ring, TShmQueue_PeekNext(que, &slot));
      break;
    case 6:
      ExpectInside(ring, TShmQueue_PeekPrev(que, &slot));
      break;
    case 7:
      TShmQueue_Clear(que);
      break;
    default:
      _TLogInfoShm_WriteData(que, text.data(), static_cast<std::uint16_t>(number), static_cast<int>(number));
      break;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzInput input(data, size);
  Ring ring;
  const std::string_view head = input.Take(input.Below(64));
  std::memcpy(ring.segment.get(), head.data(), head.size());
  const auto seed = static_cast<std::uint32_t>(input.Below(256));
  const Scribble scribble(ring.segment.get(), kSegmentBytes, seed);
  while (!input.IsUsedUp()) Operate(ring, input);
  return 0;
}
