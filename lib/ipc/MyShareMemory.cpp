// SPDX-License-Identifier: MIT
// The shared ring's cells: storing, overwriting, taking, counting, under the ring's semaphore.
//
// Data and lock live apart: the segment holds header, user area and slots (docs/formats.md), one System V semaphore
// guards them. What is read from the segment is checked before it is used; see RingAccess.h for how.

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/ipc/Semaphore.h>
#include "lib/diag/StandardAssert.h"
#include "lib/ipc/RingAccess.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

using devsupport::BeginCell;
using devsupport::RingCell;
using devsupport::RingEnd;
using devsupport::RingLock;

namespace {

// Text and place of the assertions, as reports from the field name them.
constexpr char kAssertedText[] = "puMember != ((void *)0)";
constexpr char kAssertedFile[] = "MyShareMemory";
constexpr unsigned kPushLine = 224;
constexpr unsigned kPushOverwriteLine = 253;
constexpr unsigned kGetLine = 277;

constexpr std::uint32_t kLow16Bits = 0xFFFF;

void AssertRing(const TShmQueue *pQue, unsigned dwLine, const char *pFunction) {
  devsupport::StandardAssert(pQue != nullptr, kAssertedText, kAssertedFile, dwLine, pFunction);
}

void FillSlot(const TShmQueue &que, std::uint8_t *pSlot, const void *pData, std::uint16_t wBytes) {
  const std::uint16_t wStored = std::min(wBytes, que.wCellSize);
  std::memcpy(pSlot + devsupport::kSlotLengthBytes, pData, wStored);
  devsupport::StoreSlotLength(pSlot, wStored);
}

}  // namespace

int TShmQueue_Lock(TShmQueue *pQue) { return Semaphore_Lock(pQue->semid); }

int TShmQueue_Unlock(TShmQueue *pQue) { return Semaphore_Unlock(pQue->semid); }

int TShmQueue_Clear(TShmQueue *pQue) {
  RingLock lock(pQue->semid);
  devsupport::EmptyRing(*pQue);
  return lock.Release();
}

int TShmQueue_Push(TShmQueue *pQue, const void *pData, std::uint16_t wBytes) {
  AssertRing(pQue, kPushLine, "TShmQueue_Push");
  if (wBytes == 0) return 0;

  const RingLock lock(pQue->semid);
  const RingCell cell = BeginCell(*pQue);
  if (cell.bFull) return 0;
  FillSlot(*pQue, cell.pSlot, pData, wBytes);
  Publish(*pQue, cell);
  return 1;
}

int TShmQueue_PushOverwrite(TShmQueue *pQue, const void *pData, std::uint16_t wBytes) {
  AssertRing(pQue, kPushOverwriteLine, "TShmQueue_PushOverwrite");
  if (wBytes == 0) return 0;

  const RingLock lock(pQue->semid);
  const RingCell cell = BeginCell(*pQue);
  // Kept: the cell is published before its payload is there. Its length is 0 until then, so that who peeks without
  // the lock, or comes after a writer that died here, sees no bytes of an older cell.
  devsupport::StoreSlotLength(cell.pSlot, 0);
  const int nResult = PublishOverwriting(*pQue, cell);
  FillSlot(*pQue, cell.pSlot, pData, wBytes);
  return nResult;
}

int TShmQueue_Get(TShmQueue *pQue, void *pBuf, std::uint32_t *pdwBytes, std::uint16_t wBufBytes) {
  AssertRing(pQue, kGetLine, "TShmQueue_Get");

  const RingLock lock(pQue->semid);
  std::uint32_t dwReadIdx = 0;
  std::uint32_t dwWriteIdx = 0;
  if (!LoadIndex(*pQue, RingEnd::Read, &dwReadIdx) || !LoadIndex(*pQue, RingEnd::Write, &dwWriteIdx) ||
      dwReadIdx == dwWriteIdx) {
    if (pdwBytes != nullptr) *pdwBytes = 0;
    return 0;
  }

  const std::uint8_t *pSlot = devsupport::SlotAt(*pQue, dwReadIdx);
  const std::uint32_t dwStored = devsupport::LoadSlotLength(pSlot);
  if (pdwBytes != nullptr) *pdwBytes = dwStored;
  const std::uint32_t dwRoom = wBufBytes != 0 ? wBufBytes : dwStored & kLow16Bits;
  const std::uint32_t dwCopied = std::min({dwStored, dwRoom, std::uint32_t{pQue->wCellSize}});
  std::memcpy(pBuf, pSlot + devsupport::kSlotLengthBytes, dwCopied);
  StoreIndex(*pQue, RingEnd::Read, devsupport::NextIndex(*pQue, dwReadIdx));
  return 1;
}

std::int32_t TShmQueue_GetCount(TShmQueue *pQue) {
  const RingLock lock(pQue->semid);
  return _TShmQueue_CurrentCellCount(pQue);
}

std::int32_t _TShmQueue_CurrentCellCount(const TShmQueue *pQue) {
  std::uint32_t dwReadIdx = 0;
  std::uint32_t dwWriteIdx = 0;
  if (!LoadIndex(*pQue, RingEnd::Read, &dwReadIdx) || !LoadIndex(*pQue, RingEnd::Write, &dwWriteIdx)) return 0;
  return devsupport::CellsBetween(*pQue, dwReadIdx, dwWriteIdx);
}

void _TShmQueue_GetNextIdx(std::int32_t *pnIdx, std::uint32_t *pdwOffset, const TShmQueue *pQue) {
  // Signed: a negative index steps upwards.
  if (*pnIdx + 1 < pQue->nSlotCount) {
    *pnIdx += 1;
    *pdwOffset += pQue->dwStride;
    return;
  }
  *pnIdx = 0;
  *pdwOffset = 0;
}

void _TShmQueue_GetPrevIdx(std::int32_t *pnIdx, std::uint32_t *pdwOffset, const TShmQueue *pQue) {
  if (*pnIdx > 0) {
    *pnIdx -= 1;
    *pdwOffset -= pQue->dwStride;
    return;
  }
  // The segment's header holds the last slot's offset too, but anybody can write there.
  *pnIdx = pQue->nSlotCount - 1;
  *pdwOffset = static_cast<std::uint32_t>(*pnIdx) * pQue->dwStride;
}
