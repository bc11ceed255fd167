// SPDX-License-Identifier: MIT
// Peeking into the shared ring: a walk over the cells with a cursor of this process's own, without a lock.
//
// The peek cursor is private and always a valid slot of the own geometry; only the ends of the walk are read from the
// segment. So a step is safe whatever the segment holds, and every walk ends after at most one round.

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/ipc/MyShareMemory.h>
#include "lib/ipc/RingAccess.h"

#include <cstdint>

using devsupport::RingEnd;

namespace {

void SetPeekCursor(TShmQueue *pQue, std::int32_t nIdx) {
  pQue->nPeekIdx = nIdx;
  pQue->dwPeekOffset = static_cast<std::uint32_t>(nIdx) * pQue->dwStride;
}

void *ShowSlot(const TShmQueue *pQue, void **ppSlot) {
  std::uint8_t *pSlot = pQue->cells + pQue->dwPeekOffset;
  *ppSlot = pSlot;
  return pSlot + devsupport::kSlotLengthBytes;
}

}  // namespace

int TShmQueue_PeekInit(TShmQueue *pQue, std::int32_t nPosition) {
  std::uint32_t dwReadIdx = 0;
  std::uint32_t dwWriteIdx = 0;
  if (!LoadIndex(*pQue, RingEnd::Read, &dwReadIdx) || !LoadIndex(*pQue, RingEnd::Write, &dwWriteIdx)) {
    SetPeekCursor(pQue, 0);
    return 0;
  }

  const std::int32_t nOldest = static_cast<std::int32_t>(dwReadIdx);
  const std::int32_t nCells = devsupport::CellsBetween(*pQue, dwReadIdx, dwWriteIdx);
  if (nPosition < 0) nPosition += nCells;
  // Kept: a position below minus the cell count is not refused, it names slots before the oldest cell. They are
  // slots of the ring as long as it goes back no further than once round.
  if (nPosition >= nCells || nPosition < -pQue->nSlotCount) {
    SetPeekCursor(pQue, nOldest);
    return 0;
  }
  std::int32_t nIdx = nOldest + nPosition;
  if (nIdx >= pQue->nSlotCount) nIdx -= pQue->nSlotCount;
  if (nIdx < 0) nIdx += pQue->nSlotCount;
  SetPeekCursor(pQue, nIdx);
  return 1;
}

void *TShmQueue_PeekNext(TShmQueue *pQue, void **ppSlot) {
  std::uint32_t dwWriteIdx = 0;
  if (!LoadIndex(*pQue, RingEnd::Write, &dwWriteIdx)) return nullptr;
  if (static_cast<std::uint32_t>(pQue->nPeekIdx) == dwWriteIdx) return nullptr;

  void *pPayload = ShowSlot(pQue, ppSlot);
  _TShmQueue_GetNextIdx(&pQue->nPeekIdx, &pQue->dwPeekOffset, pQue);
  return pPayload;
}

// Kept: the walk ends by comparing the slot after the cursor with the oldest cell. A cursor after the newest cell
// of a ring that is not full is not at that end, so the first step shows the free slot.
void *TShmQueue_PeekPrev(TShmQueue *pQue, void **ppSlot) {
  std::int32_t nAfterIdx = pQue->nPeekIdx;
  std::uint32_t dwAfterOffset = pQue->dwPeekOffset;
  _TShmQueue_GetNextIdx(&nAfterIdx, &dwAfterOffset, pQue);
  std::uint32_t dwReadIdx = 0;
  if (!LoadIndex(*pQue, RingEnd::Read, &dwReadIdx)) return nullptr;
  if (static_cast<std::uint32_t>(nAfterIdx) == dwReadIdx) return nullptr;

  void *pPayload = ShowSlot(pQue, ppSlot);
  _TShmQueue_GetPrevIdx(&pQue->nPeekIdx, &pQue->dwPeekOffset, pQue);
  return pPayload;
}
