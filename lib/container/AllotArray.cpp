// SPDX-License-Identifier: MIT
// Slot allocator: a first-in first-out ring of free slots, a dense list of those in use, and the way back from a slot
// to its position in that list.

#include <devsupport/container/AllotArray.h>
#include <devsupport/diag/Diagnostics.h>
#include "lib/Layout.h"
#include "lib/container/HeapBlock.h"
#include "lib/container/Slots.h"

#include <cstdint>

// The records' layout, in bytes.
DEVSUPPORT_DEVICE_RECORD_BYTES(TAllotArray, 52);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, pnFreeRoom, 0);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, pnInuseRoom, 4);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, pnInuseIdx, 8);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, nFreePut, 12);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, nFreeGet, 16);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, MaxArrayCount, 20);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, nInuseCnt, 24);
DEVSUPPORT_DEVICE_FIELD_AT(TAllotArray, DebugName, 28);

using namespace devsupport;

namespace {

constexpr int kDebugNameBytes = ALLOTARY_DEBUG_NAME_BYTES;

void ReleaseArrays(TAllotArray &uAry) {
  ReleaseBlock(uAry.pnFreeRoom);
  ReleaseBlock(uAry.pnInuseRoom);
  ReleaseBlock(uAry.pnInuseIdx);
  uAry.MaxArrayCount = 0;
  uAry.nInuseCnt = 0;
  uAry.nFreePut = 0;
  uAry.nFreeGet = 0;
}

}  // namespace

// Kept: the name is accepted and not stored. Owners that want one in the messages fill DebugName themselves.
int AllotAry_Construct(TAllotArray *puAry, const char * /*pDebugName*/, int nMaxCount) {
  puAry->pnFreeRoom = nullptr;
  puAry->pnInuseRoom = nullptr;
  puAry->pnInuseIdx = nullptr;
  return AllotAry_ReConstruct(puAry, nMaxCount);
}

int AllotAry_ReConstruct(TAllotArray *puAry, int nMaxCount) {
  ReleaseArrays(*puAry);
  puAry->pnFreeRoom = AllocateBlock<std::int32_t>(nMaxCount);
  puAry->pnInuseRoom = AllocateBlock<std::int32_t>(nMaxCount);
  puAry->pnInuseIdx = AllocateBlock<std::int32_t>(nMaxCount);
  if (puAry->pnFreeRoom == nullptr || puAry->pnInuseRoom == nullptr || puAry->pnInuseIdx == nullptr) {
    ReleaseArrays(*puAry);
    return 0;
  }
  puAry->MaxArrayCount = nMaxCount;
  AllotAry_Clear(puAry);
  return 1;
}

void AllotAry_Destroy(TAllotArray *puAry) { ReleaseArrays(*puAry); }

void AllotAry_Clear(TAllotArray *puAry) {
  for (std::int32_t nRoom = 0; nRoom < puAry->MaxArrayCount; ++nRoom) {
    puAry->pnFreeRoom[nRoom] = nRoom;
    puAry->pnInuseIdx[nRoom] = kNoSlot;
  }
  puAry->nInuseCnt = 0;
  puAry->nFreePut = 0;
  puAry->nFreeGet = 0;
}

int AllotAry_GetAvaiRoom(TAllotArray *puAry) { return AllSlotsInUse(*puAry) ? kNoSlot : TakeSlot(*puAry); }

void AllotAry_FreeRoom(TAllotArray *puAry, int nRoom) {
  if (!IsSlot(*puAry, nRoom)) [[unlikely]] {
    // Kept: this message alone has neither name nor capacity.
    MyErrPrintf("\n\n>>>error : TAllotArray::FreeRoom(%d) out range !! \n", nRoom);
    return;
  }
  if (puAry->pnInuseIdx[nRoom] == kNoSlot) [[unlikely]] {
    MyErrPrintf("\n\n>>>error : TAllotArray::FreeRoom(%d) is not in use !! \nDebugName=%.*s MaxArrayCount=%d \n\n",
                nRoom, kDebugNameBytes, puAry->DebugName, puAry->MaxArrayCount);
    return;
  }
  GiveSlotBack(*puAry, nRoom);
}

int AllotAry_IsInUse(const TAllotArray *puAry, int nRoom) {
  if (!IsSlot(*puAry, nRoom)) [[unlikely]] {
    MyErrPrintf("\n\n>>>error : TAllotArray::IsInUse(%d) out range !! \nDebugName=%.*s MaxArrayCount=%d \n\n", nRoom,
                kDebugNameBytes, puAry->DebugName, puAry->MaxArrayCount);
    return 0;
  }
  return puAry->pnInuseIdx[nRoom] != kNoSlot ? 1 : 0;
}

int AllotAry_TraverseInuseRoom(const TAllotArray *puAry, int nPos) { return puAry->pnInuseRoom[nPos]; }

int AllotAry_GetInuseIdx(const TAllotArray *puAry, int nRoom) { return puAry->pnInuseIdx[nRoom]; }

int AllotAry_GetUnUseCnt(const TAllotArray *puAry) { return puAry->MaxArrayCount - puAry->nInuseCnt; }

int AllotAry_GetInUseCnt(const TAllotArray *puAry) { return puAry->nInuseCnt; }

int AllotAry_GetMaxRoomCnt(const TAllotArray *puAry) { return puAry->MaxArrayCount; }
