// SPDX-License-Identifier: MIT
// The constant-time steps of the slot allocator, unchecked and inline: the allocator itself and the hash table use
// them.
#pragma once

#include <devsupport/container/AllotArray.h>

#include <cstdint>

namespace devsupport {

constexpr std::int32_t kNoSlot = -1;

inline bool IsSlot(const TAllotArray &uAry, int nRoom) {
  return static_cast<std::uint32_t>(nRoom) < static_cast<std::uint32_t>(uAry.MaxArrayCount);
}

inline std::int32_t RingNext(const TAllotArray &uAry, std::int32_t nIdx) {
  return nIdx + 1 < uAry.MaxArrayCount ? nIdx + 1 : 0;
}

inline bool AllSlotsInUse(const TAllotArray &uAry) { return uAry.nInuseCnt >= uAry.MaxArrayCount; }

/// The slot that TakeSlot would take. Not all slots may be in use.
inline std::int32_t NextFreeSlot(const TAllotArray &uAry) { return uAry.pnFreeRoom[uAry.nFreeGet]; }

/// Takes the slot that has been free for the longest time. Not all slots may be in use.
inline std::int32_t TakeSlot(TAllotArray &uAry) {
  const std::int32_t nRoom = NextFreeSlot(uAry);
  const std::int32_t nPos = uAry.nInuseCnt;
  // The counters come first here and below: after a store into an array the compiler would load them again.
  uAry.nFreeGet = RingNext(uAry, uAry.nFreeGet);
  uAry.nInuseCnt = nPos + 1;
  uAry.pnInuseRoom[nPos] = nRoom;
  uAry.pnInuseIdx[nRoom] = nPos;
  return nRoom;
}

/// Gives back a slot that is in use. The last of the in-use list fills its place, which keeps the list dense:
///
///   a b c d e   free b ->   a e c d
inline void GiveSlotBack(TAllotArray &uAry, std::int32_t nRoom) {
  const std::int32_t nPos = uAry.pnInuseIdx[nRoom];
  const std::int32_t nLastPos = uAry.nInuseCnt - 1;
  const std::int32_t nPut = uAry.nFreePut;
  uAry.nInuseCnt = nLastPos;
  uAry.nFreePut = RingNext(uAry, nPut);
  if (nPos < nLastPos) {
    const std::int32_t nLast = uAry.pnInuseRoom[nLastPos];
    uAry.pnInuseRoom[nPos] = nLast;
    uAry.pnInuseIdx[nLast] = nPos;
  }
  uAry.pnInuseIdx[nRoom] = kNoSlot;
  // Kept: to the end of the ring, though the slot just freed would still be in the cache. A number rests as long as
  // possible before it means something else.
  uAry.pnFreeRoom[nPut] = nRoom;
}

}  // namespace devsupport
