// SPDX-License-Identifier: MIT
// Ring queue: one block of equal cells, stepped through by pointer, with a wrap after the last cell.

#include <devsupport/container/MyQueue.h>
#include <devsupport/detail/container/MyQueue.h>
#include <devsupport/ipc/ThreadMutex.h>
#include "lib/Layout.h"
#include "lib/Unaligned.h"
#include "lib/container/CopyBytes.h"
#include "lib/container/HeapBlock.h"
#include "lib/diag/StandardAssert.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// The records' layout, in bytes.
DEVSUPPORT_DEVICE_RECORD_BYTES(TMyQueue, 40 + sizeof(pthread_mutex_t));
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, nCellCount, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, nUserSize, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, nCellSize, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, nGetIdx, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, nPutIdx, 16);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, pBuf, 20);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, pLastCell, 24);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, pPut, 28);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, pGet, 32);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, bUseMutex, 36);
DEVSUPPORT_DEVICE_FIELD_AT(TMyQueue, uMutex, 40);

using namespace devsupport;

namespace {

using CellLength = std::uint16_t;
constexpr int kCellHeadBytes = sizeof(CellLength);

// Holds the mutex of a queue that has one, for a scope. ThreadMutex_Lock and ThreadMutex_UnLock are these two calls
// under another name; going through them would cost a tenth of a locked push or get.
class QueueLock {
 public:
  [[gnu::always_inline]] explicit QueueLock(TMyQueue &uQue) : uQue_(uQue) {
    if (uQue_.bUseMutex != 0) pthread_mutex_lock(&uQue_.uMutex);
  }
  [[gnu::always_inline]] ~QueueLock() {
    if (uQue_.bUseMutex != 0) pthread_mutex_unlock(&uQue_.uMutex);
  }
  QueueLock(const QueueLock &) = delete;
  QueueLock &operator=(const QueueLock &) = delete;

 private:
  TMyQueue &uQue_;
};

[[gnu::always_inline]] inline void AssertQueue(const TMyQueue *puQue, unsigned dwLine, const char *pFunction) {
  StandardAssert(puQue != nullptr, "puQue != ((void *)0)", "MyQueue", dwLine, pFunction);
}

int NextIdx(const TMyQueue &uQue, int nIdx) { return nIdx + 1 < uQue.nCellCount ? nIdx + 1 : 0; }

// Compared as distances: the address after the last cell need not exist.
unsigned char *NextPtr(const TMyQueue &uQue, unsigned char *pCell) {
  return uQue.pLastCell - pCell >= uQue.nCellSize ? pCell + uQue.nCellSize : uQue.pBuf;
}

bool IsEmpty(const TMyQueue &uQue) { return uQue.nPutIdx == uQue.nGetIdx; }

bool IsFull(const TMyQueue &uQue) { return NextIdx(uQue, uQue.nPutIdx) == uQue.nGetIdx; }

int CellCount(const TMyQueue &uQue) {
  const int nDistance = uQue.nPutIdx - uQue.nGetIdx;
  // put in front of get: the held cells wrap round the end of the block
  return nDistance >= 0 ? nDistance : nDistance + uQue.nCellCount;
}

// What a push and a get consist of is forced into them: for the device's processor a call is a tenth of either.

// Steps over the cell at the put end. Returns it.
[[gnu::always_inline]] inline unsigned char *AdvancePut(TMyQueue &uQue) {
  unsigned char *pCell = uQue.pPut;
  uQue.nPutIdx = NextIdx(uQue, uQue.nPutIdx);
  uQue.pPut = NextPtr(uQue, pCell);
  return pCell;
}

// Steps over the cell at the get end. Returns it.
[[gnu::always_inline]] inline unsigned char *AdvanceGet(TMyQueue &uQue) {
  unsigned char *pCell = uQue.pGet;
  uQue.nGetIdx = NextIdx(uQue, uQue.nGetIdx);
  uQue.pGet = NextPtr(uQue, pCell);
  return pCell;
}

[[gnu::always_inline]] inline void Store(TMyQueue &uQue, const void *pMsg, CellLength wMsgBytes) {
  // Kept: what does not fit the cell is cut without notice.
  const auto dwBytes = std::min<std::uint32_t>(wMsgBytes, static_cast<std::uint32_t>(uQue.nUserSize));
  unsigned char *pCell = AdvancePut(uQue);
  StoreUnaligned(pCell, static_cast<CellLength>(dwBytes));
  CopyBytes(pCell + kCellHeadBytes, pMsg, dwBytes);
}

void Rewind(TMyQueue &uQue) {
  uQue.nGetIdx = 0;
  uQue.nPutIdx = 0;
  uQue.pPut = uQue.pBuf;
  uQue.pGet = uQue.pBuf;
}

// The record of a queue without cells: always empty, always full.
void MakeVoid(TMyQueue &uQue) {
  uQue.nCellCount = 1;
  uQue.nUserSize = 0;
  uQue.nCellSize = kCellHeadBytes;
  uQue.pBuf = nullptr;
  uQue.pLastCell = nullptr;
  uQue.bUseMutex = 0;
  Rewind(uQue);
}

// Gives a void queue its cells.
bool SetUpCells(TMyQueue &uQue, int nCapacity, int nUserSize) {
  const QueueLock lock(uQue);
  const int nCellCount = nCapacity + 1;
  const int nCellSize = nUserSize + kCellHeadBytes;
  auto *pBuf = AllocateBlock<unsigned char>(nCellCount, nCellSize);
  if (pBuf == nullptr) return false;
  uQue.nCellCount = nCellCount;
  uQue.nUserSize = nUserSize;
  uQue.nCellSize = nCellSize;
  uQue.pBuf = pBuf;
  uQue.pLastCell = pBuf + static_cast<std::size_t>(nCapacity) * static_cast<std::size_t>(nCellSize);
  Rewind(uQue);
  return true;
}

}  // namespace

int TMyQueue_Create(int nCapacity, int nUserSize, TMyQueue *puQue, int bUseMutex) {
  MakeVoid(*puQue);
  if (nCapacity < 0 || nCapacity == INT32_MAX || nUserSize < 0 || nUserSize > INT32_MAX - kCellHeadBytes) return 0;
  if (bUseMutex != 0 && ThreadMutex_Create(&puQue->uMutex) != 0) return 0;
  puQue->bUseMutex = bUseMutex;
  if (!SetUpCells(*puQue, nCapacity, nUserSize)) {
    TMyQueue_Destroy(puQue);
    return 0;
  }
  return 1;
}

void TMyQueue_Destroy(TMyQueue *puQue) {
  ReleaseBlock(puQue->pBuf);
  if (puQue->bUseMutex != 0) ThreadMutex_Close(&puQue->uMutex);
  MakeVoid(*puQue);
}

void TMyQueue_Clear(TMyQueue *puQue) {
  const QueueLock lock(*puQue);
  Rewind(*puQue);
}

int TMyQueue_Push(TMyQueue *puQue, const void *pMsg, std::uint16_t wMsgBytes) {
  AssertQueue(puQue, __LINE__, "TMyQueue_Push");
  if (wMsgBytes == 0) return 0;
  const QueueLock lock(*puQue);
  if (IsFull(*puQue)) return 0;
  Store(*puQue, pMsg, wMsgBytes);
  return 1;
}

// Kept: 0 means that the oldest message was lost, not that this one was refused.
int TMyQueue_PushOverwrite(TMyQueue *puQue, const void *pMsg, std::uint16_t wMsgBytes) {
  AssertQueue(puQue, __LINE__, "TMyQueue_PushOverwrite");
  if (wMsgBytes == 0) return 0;
  const QueueLock lock(*puQue);
  const bool bLoss = IsFull(*puQue);
  if (bLoss) {
    if (puQue->nCellCount <= 1) return 0;  // at capacity 0 the new message is itself the one that is lost
    AdvanceGet(*puQue);
  }
  Store(*puQue, pMsg, wMsgBytes);
  return bLoss ? 0 : 1;
}

int TMyQueue_Get(TMyQueue *puQue, void *pBuf, std::uint32_t *pdwBytes, std::uint16_t wMaxBytes) {
  AssertQueue(puQue, __LINE__, "TMyQueue_Get");
  const QueueLock lock(*puQue);
  if (IsEmpty(*puQue)) {
    if (pdwBytes != nullptr) *pdwBytes = 0;
    return 0;
  }
  const unsigned char *pCell = AdvanceGet(*puQue);
  const std::uint32_t dwBytes = LoadUnaligned<CellLength>(pCell);
  // Kept: the reported length is the stored one, also when less is copied, and a maximum of 0 means no limit.
  if (pdwBytes != nullptr) *pdwBytes = dwBytes;
  CopyBytes(pBuf, pCell + kCellHeadBytes, wMaxBytes != 0 ? std::min<std::uint32_t>(dwBytes, wMaxBytes) : dwBytes);
  return 1;
}

int TMyQueue_GetCellCount(TMyQueue *puQue) {
  const QueueLock lock(*puQue);
  return CellCount(*puQue);
}

int TMyQueue_GetMaxCellCount(TMyQueue *puQue) {
  const QueueLock lock(*puQue);
  return puQue->nCellCount - 1;
}

int _TMyQueue_GetNextIdx(int nIdx, const TMyQueue *puQue) { return NextIdx(*puQue, nIdx); }

unsigned char *_TMyQueue_GetNextPtr(unsigned char *pCell, const TMyQueue *puQue) { return NextPtr(*puQue, pCell); }

int _TMyQueue_GetCurCellCount(const TMyQueue *puQue) { return CellCount(*puQue); }
