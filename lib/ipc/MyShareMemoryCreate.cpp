// SPDX-License-Identifier: MIT
// Making, attaching and leaving the shared ring, also after creators that died half way.
//
// The order is semaphore, lock, segment: the process that makes the segment initialises it under the lock, and no
// process that attaches meanwhile sees it before that.

#include <devsupport/detail/ipc/MyShareMemory.h>
#include <devsupport/diag/Diagnostics.h>
#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/ipc/Semaphore.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include "lib/Layout.h"
#include "lib/ipc/RingAccess.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

// The records' layout, in bytes.
DEVSUPPORT_RECORD_BYTES(_U_ShmQueue_SHM_VARI, 32);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwCellCount, 0);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, wCellSize, 4);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, wReserved, 6);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwUserBytes, 8);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwReadIdx, 12);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwWriteIdx, 16);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwReadOffset, 20);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwWriteOffset, 24);
DEVSUPPORT_FIELD_AT(_U_ShmQueue_SHM_VARI, dwLastSlotOffset, 28);

DEVSUPPORT_DEVICE_RECORD_BYTES(TShmQueue, 44);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, nSlotCount, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, wCellSize, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, dwStride, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, shm, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, semid, 20);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, header, 24);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, nPeekIdx, 28);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, dwPeekOffset, 32);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, cells, 36);
DEVSUPPORT_DEVICE_FIELD_AT(TShmQueue, pUserArea, 40);
DEVSUPPORT_RECORD_BYTES(TShmQueueOpt, 12);
DEVSUPPORT_FIELD_AT(TShmQueueOpt, dwUserBytes, 0);
DEVSUPPORT_FIELD_AT(TShmQueueOpt, bLockIfNew, 4);
DEVSUPPORT_FIELD_AT(TShmQueueOpt, bNewCreated, 8);

using devsupport::RingLock;

namespace {

// Text and place of the header check, as reports from the field name them.
constexpr char kHeaderCheckText[] = "sizeof(_U_ShmQueue_SHM_VARI) <= dwHeadBytes";
constexpr char kHeaderCheckFile[] = "MyShareMemory";
constexpr int kHeaderCheckLine = 128;

constexpr std::uint32_t kUserAlignment = 4;
constexpr int kOpenAttempts = 8;
constexpr long kStillbornAfterMs = 100;
constexpr long kLookAgainMs = 5;
constexpr long kNsPerMs = 1'000'000;

// What a ring measures in bytes, as the caller wants it.
struct Geometry {
  std::uint32_t dwCellCount;
  std::uint16_t wCellSize;
  std::uint32_t dwUserBytes;  // rounded
  std::uint32_t dwTotalBytes;
};

void CheckHeader(std::size_t dwHeadBytes) {
  if (sizeof(_U_ShmQueue_SHM_VARI) <= dwHeadBytes) return;
  MyDebugBreak("%s\nfile=%s\nline=%d\n", kHeaderCheckText, kHeaderCheckFile, kHeaderCheckLine);
}

// False when the segment's size does not fit in 32 bits. When it does, slot numbers fit in 30: a slot has 4 bytes.
bool Measure(std::int32_t nUserBytes, std::uint32_t dwCellCount, std::uint16_t wCellSize, Geometry *pGeometry) {
  if (nUserBytes < 0) return false;
  const std::uint64_t qwUserBytes =
      (static_cast<std::uint64_t>(nUserBytes) + kUserAlignment - 1) / kUserAlignment * kUserAlignment;
  const std::uint64_t qwStride = std::uint64_t{wCellSize} + devsupport::kSlotLengthBytes;
  const std::uint64_t qwTotal =
      devsupport::kRingHeadBytes + qwUserBytes + qwStride * (std::uint64_t{dwCellCount} + 1);
  if (qwTotal > UINT32_MAX) return false;
  *pGeometry = {dwCellCount, wCellSize, static_cast<std::uint32_t>(qwUserBytes), static_cast<std::uint32_t>(qwTotal)};
  return true;
}

TShmQueue UnattachedRing() {
  TShmQueue que{};
  que.shm.shmid = -1;
  que.shm.address =
      reinterpret_cast<void *>(std::intptr_t{-1});  // NOLINT(performance-no-int-to-ptr): as shmat has it
  que.semid = -1;
  return que;
}

void FillGeometry(TShmQueue *pQue, const Geometry &geometry) {
  pQue->nSlotCount = static_cast<std::int32_t>(geometry.dwCellCount + 1);
  pQue->wCellSize = geometry.wCellSize;
  pQue->dwStride = geometry.wCellSize + devsupport::kSlotLengthBytes;
}

void FillPlaces(TShmQueue *pQue, void *pSegment, const Geometry &geometry) {
  auto *pBytes = static_cast<std::uint8_t *>(pSegment);
  pQue->header = static_cast<_U_ShmQueue_SHM_VARI *>(pSegment);
  pQue->pUserArea = pBytes + devsupport::kRingHeadBytes;
  pQue->cells = pQue->pUserArea + geometry.dwUserBytes;
}

// The cell count comes last: while it is 0, whatever its creator has written before it died does not count.
void InitialiseHeader(const TShmQueue &que, const Geometry &geometry) {
  devsupport::EmptyRing(que);
  que.header->dwLastSlotOffset = geometry.dwCellCount * que.dwStride;
  que.header->wCellSize = geometry.wCellSize;
  que.header->dwUserBytes = geometry.dwUserBytes;
  devsupport::StoreInOrder(que.header->dwCellCount, geometry.dwCellCount);
}

bool Matches(const _U_ShmQueue_SHM_VARI &header, const Geometry &geometry) {
  return header.dwCellCount == geometry.dwCellCount && header.wCellSize == geometry.wCellSize &&
         header.dwUserBytes == geometry.dwUserBytes;
}

// A segment of exactly this size without a cell count: its creator died between making and initialising it.
bool IsUnfinished(const TShmQueue &que, const Geometry &geometry) {
  if (geometry.dwCellCount == 0 || devsupport::LoadOnce(que.header->dwCellCount) != 0) return false;
  shmid_ds status{};
  return ::shmctl(que.shm.shmid, IPC_STAT, &status) == 0 && status.shm_segsz == geometry.dwTotalBytes;
}

union SemctlArgument {
  int val;
  struct semid_ds *buf;
  unsigned short *array;
};

// True for a semaphore that has been given no value and was never taken.
bool IsUntouched(std::int32_t nSemId) {
  if (::semctl(nSemId, 0, GETVAL) != 0 || ::semctl(nSemId, 0, GETPID) != 0) return false;
  semid_ds status{};
  SemctlArgument argument{};
  argument.buf = &status;
  return ::semctl(nSemId, 0, IPC_STAT, argument) == 0 && status.sem_otime == 0;
}

long MsSince(const timespec &start) {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / kNsPerMs;
}

// A creator makes the semaphore and gives it its value in two calls. One that dies between them leaves a lock that
// no process holds and none can take. Only time tells it from one that is just being made.
bool IsStillborn(std::int32_t nSemId) {
  if (!IsUntouched(nSemId)) return false;
  timespec start{};
  ::clock_gettime(CLOCK_MONOTONIC, &start);
  do {
    const timespec pause{0, kLookAgainMs * kNsPerMs};
    ::nanosleep(&pause, nullptr);
    if (!IsUntouched(nSemId)) return false;
  } while (MsSince(start) < kStillbornAfterMs);
  return true;
}

// Finds or makes the semaphore and takes it; false when it cannot be had, and the ring runs unlocked. A set that is
// removed while we come is made again: by the last user who leaves, or because it was stillborn. Removing a stillborn
// set by its identifier is safe however many find it: the next one has another identifier.
bool OpenAndLock(std::int32_t nSemKey, std::int32_t *pnSemId) {
  for (int nAttempt = 0; nAttempt < kOpenAttempts; ++nAttempt) {
    *pnSemId = Semaphore_Create(nSemKey);
    if (*pnSemId != -1) {
      if (IsStillborn(*pnSemId)) {
        Semaphore_Close(*pnSemId);
        continue;
      }
      if (devsupport::TakeSemaphore(*pnSemId)) return true;
    }
    if (errno != EIDRM && errno != EINVAL) return false;
  }
  return false;
}

int CreateFailed(std::int32_t nShareKey, std::int32_t nSemKey) {
  std::fprintf(stderr, "\n*** TShmQueue created fail : ShareKey=%d, SemaphoreKey=%d ***\n", nShareKey, nSemKey);
  return 0;
}

int MatchFailed(std::int32_t nShareKey, std::int32_t nSemKey) {
  std::fprintf(stderr,
               "\n*** TShmQueue created fail : CellCount or CellSize or UserSize not match, ShareKey=%d, "
               "SemaphoreKey=%d ***\n",
               nShareKey, nSemKey);
  return 0;
}

}  // namespace

int TShmQueue_Create(std::int32_t nShareKey, std::int32_t nSemKey, std::uint32_t dwCellCount, std::uint16_t wCellSize,
                     TShmQueueOpt *pOpt, TShmQueue *pQue) {
  TShmQueueOpt defaults{};
  TShmQueueOpt &opt = pOpt != nullptr ? *pOpt : defaults;
  opt.bNewCreated = 0;
  *pQue = UnattachedRing();
  CheckHeader(devsupport::kRingHeadBytes);
  Geometry geometry{};
  if (!Measure(opt.dwUserBytes, dwCellCount, wCellSize, &geometry)) return CreateFailed(nShareKey, nSemKey);
  FillGeometry(pQue, geometry);

  const bool bHeld = OpenAndLock(nSemKey, &pQue->semid);
  RingLock lock(pQue->semid, bHeld);
  void *pSegment = ShareMem_Create(nShareKey, geometry.dwTotalBytes, &pQue->shm, &opt.bNewCreated);
  if (pSegment == nullptr) return CreateFailed(nShareKey, nSemKey);
  FillPlaces(pQue, pSegment, geometry);

  // Only the holder of the lock knows that an uninitialised segment has no living creator.
  if (opt.bNewCreated == 0 && lock.Held() && IsUnfinished(*pQue, geometry)) opt.bNewCreated = 1;
  if (opt.bNewCreated != 0) {
    InitialiseHeader(*pQue, geometry);
  } else if (!Matches(*pQue->header, geometry)) {
    // Kept: the segment stays attached; the caller does not use the ring.
    return MatchFailed(nShareKey, nSemKey);
  }
  TShmQueue_PeekInit(pQue, 0);
  if (opt.bNewCreated != 0 && opt.bLockIfNew != 0) lock.Keep();
  return 1;
}

int TShmQueue_Close(TShmQueue *pQue, int bRemoveIfLast) {
  int bWasLast = 0;
  ShareMem_Close(&pQue->shm, bRemoveIfLast, &bWasLast);
  // Kept: the last one takes the semaphore along even when the segment stays; the next creator makes a new one.
  if (bWasLast != 0) Semaphore_Close(pQue->semid);
  return 1;
}
