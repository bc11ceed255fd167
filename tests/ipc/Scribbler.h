// SPDX-License-Identifier: MIT
// Processes that overwrite a ring's segment, for the tests of the ring and of the log channel.
#pragma once

#include <devsupport/ipc/MyShareMemory.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>

#include "tests/support/Child.h"

namespace devsupport::test {

/// The measures of a ring, and the record of a process that attached it while it was whole. It runs unlocked, for speed.
struct RingMeasures {
  std::uint32_t cells;
  std::uint16_t cellSize;
  std::uint32_t userBytes;

  std::uint32_t Stride() const { return cellSize + 4U; }
  std::size_t Size() const { return 256 + userBytes + (cells + 1) * Stride(); }
  TShmQueue RingIn(std::uint8_t *segment) const {
    TShmQueue que{};
    que.nSlotCount = static_cast<std::int32_t>(cells + 1);
    que.wCellSize = cellSize;
    que.dwStride = Stride();
    que.semid = -1;
    que.header = static_cast<_U_ShmQueue_SHM_VARI *>(static_cast<void *>(segment));
    que.cells = segment + 256 + userBytes;
    que.pUserArea = segment + 256;
    return que;
  }
};

class Scribbler {
 public:
  Scribbler(const RingMeasures &measures, std::uint64_t seed) : measures_(measures), random_(seed) {}

  std::uint32_t Below(std::size_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

  /// Values at the edges of what an index, an offset and a length may be, and anything else.
  std::uint32_t Word() {
    const std::uint32_t cells = measures_.cells;
    const std::uint32_t cellSize = measures_.cellSize;
    const std::uint32_t stride = measures_.Stride();
    const std::uint32_t own[] = {cells,  cells + 1,      cellSize,           cellSize + 1,
                                 stride, cells * stride, cells * stride + 1, (cells + 1) * stride};
    constexpr std::uint32_t kEdges[] = {0, 1, 0xFFFF, 0x10000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
    switch (Below(5)) {
      case 0:
        return Below(cells + 3);
      case 1:
        return Below((cells + 1) * stride);
      case 2:
        return static_cast<std::uint32_t>(random_());
      case 3:
        return own[Below(std::size(own))];
      default:
        return kEdges[Below(std::size(kEdges))];
    }
  }
  /// Overwrites a word, mostly of the header, sometimes anywhere.
  void Scribble(std::uint8_t *segment) {
    const std::uint32_t word = Word();
    const std::size_t place = Below(4) != 0 ? 4 * Below(8) : Below(measures_.Size() - 3);
    std::memcpy(segment + place, &word, sizeof word);
  }

 private:
  RingMeasures measures_;
  std::mt19937_64 random_;
};

/// A process that scribbles as long as the object exists. It has begun when this returns.
inline Child StartScribbling(Scribbler scribbler, std::uint8_t *segment) {
  Event scribbling;
  Child process([&]() -> int {
    scribbling.Announce();
    for (;;) scribbler.Scribble(segment);
  });
  scribbling.Wait();
  return process;
}

}  // namespace devsupport::test
