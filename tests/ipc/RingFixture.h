// SPDX-License-Identifier: MIT
// Fixture of the tests of the shared ring: rings with private keys, and the bytes of the segment.
#pragma once

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/ipc/MyShareMemory.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/IpcKey.h"

namespace devsupport::test {

inline constexpr int kNever = -4711;  // a value that no operation returns or writes

inline std::string CreateMessage(int shareKey, int semKey) {
  char text[256];
  std::snprintf(text, sizeof text, "\n*** TShmQueue created fail : ShareKey=%d, SemaphoreKey=%d ***\n", shareKey,
                semKey);
  return text;
}

inline std::string MatchMessage(int shareKey, int semKey) {
  char text[256];
  std::snprintf(text, sizeof text,
                "\n*** TShmQueue created fail : CellCount or CellSize or UserSize not match, ShareKey=%d, "
                "SemaphoreKey=%d ***\n",
                shareKey, semKey);
  return text;
}

/// Returns once a process waits in the semaphore.
inline void AwaitWaiter(int semId) {
  while (::semctl(semId, 0, GETNCNT) < 1) ::sched_yield();
}

/// Two keys and their ring. The fixture removes the objects.
class RingFixture : public ::testing::Test {
 protected:
  int Create(TShmQueue &que, std::uint32_t cells, std::uint16_t size, TShmQueueOpt *opt = nullptr) const {
    return TShmQueue_Create(shareKey, semKey, cells, size, opt, &que);
  }
  void TearDown() override {
    if (ring.header != nullptr) ::shmdt(ring.header);
  }

  int SemValue() const { return ::semctl(::semget(semKey, 0, 0), 0, GETVAL); }
  bool SemExists() const { return ::semget(semKey, 0, 0) != -1; }
  bool SegmentExists() const { return ::shmget(shareKey, 0, 0) != -1; }
  unsigned long Attachments() const {
    shmid_ds status{};
    return ::shmctl(::shmget(shareKey, 0, 0), IPC_STAT, &status) == 0 ? status.shm_nattch : 4711;
  }

  static std::vector<std::uint8_t> Bytes(const TShmQueue &que) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(que.header);
    const std::uint8_t *end = que.cells + static_cast<std::uint32_t>(que.nSlotCount) * que.dwStride;
    return {first, end};
  }

  static int PushText(TShmQueue &que, const std::string &text) {
    return TShmQueue_Push(&que, text.data(), static_cast<std::uint16_t>(text.size()));
  }
  static int OverwriteText(TShmQueue &que, const std::string &text) {
    return TShmQueue_PushOverwrite(&que, text.data(), static_cast<std::uint16_t>(text.size()));
  }
  /// The oldest cell's payload, "<empty>" when there is none.
  static std::string GetText(TShmQueue &que) {
    std::string text(que.wCellSize, '#');
    std::uint32_t stored = 4711;
    if (TShmQueue_Get(&que, text.data(), &stored, 0) == 0) return stored == 0 ? "<empty>" : "<wrong length>";
    return text.substr(0, stored);
  }
  /// The payload that a peek step found, "<end>" for NULL. Slot and payload must belong together.
  static std::string Peeked(void *payload, void *slot) {
    if (payload == nullptr) return "<end>";
    if (static_cast<std::uint8_t *>(slot) + 4 != payload) return "<payload is not after the slot>";
    std::uint32_t length = 0;
    std::memcpy(&length, slot, sizeof length);
    return {static_cast<char *>(payload), length};
  }
  static std::string PeekNextText(TShmQueue &que) {
    void *slot = nullptr;
    void *payload = TShmQueue_PeekNext(&que, &slot);
    return Peeked(payload, slot);
  }
  static std::string PeekPrevText(TShmQueue &que) {
    void *slot = nullptr;
    void *payload = TShmQueue_PeekPrev(&que, &slot);
    return Peeked(payload, slot);
  }

  IpcKey shareKey;
  IpcKey semKey;
  TShmQueue ring{};
};

}  // namespace devsupport::test
