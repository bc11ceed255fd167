// SPDX-License-Identifier: MIT
// Hash table: chains through per-slot links over the slots of an embedded allocator, so that nothing is allocated
// after creation and an entry's address stays the same while it is in the table.

#include <devsupport/container/MyHash.h>
#include "lib/Layout.h"
#include "lib/container/CopyBytes.h"
#include "lib/container/HeapBlock.h"
#include "lib/container/Lookup3.h"
#include "lib/container/Slots.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

// The records' layout, in bytes.
DEVSUPPORT_DEVICE_RECORD_BYTES(TMyHash, 92);
DEVSUPPORT_FIELD_AT(TMyHash, uAllot, 0); /* an owner may take the one for the other */
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, pnBucket, 52);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, pnNext, 56);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, pnPrev, 60);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, nBucketCnt, 64);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, nDataSize, 68);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, pData, 72);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, fnIsMatch, 76);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, fnDataKey, 80);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, fnArgKey, 84);
DEVSUPPORT_DEVICE_FIELD_AT(TMyHash, fnHash, 88);

using namespace devsupport;

namespace {

constexpr std::uint32_t kInitialHash = 1;
constexpr std::uint32_t kNoBucket = UINT32_MAX;

struct Key {
  const void *pBytes;
  int nLength;
};

// This one and the next three are hot, short and used several times: too often for the compiler to inline them by
// itself.
[[gnu::always_inline]] inline Key KeyOf(TMyHashKeyFunc fnKey, const void *pFrom) {
  int nLength = 0;
  const void *pBytes = fnKey(pFrom, &nLength);
  return {pBytes, nLength};
}

[[gnu::always_inline]] inline std::uint32_t BucketOf(const TMyHash &uHash, Key uKey) {
  if (uHash.fnHash != nullptr) {
    // Kept: the owner's answer is used as it is, not reduced to the number of buckets.
    return uHash.fnHash(uHash.nBucketCnt, uKey.pBytes, uKey.nLength);
  }
  const std::size_t nLength = uKey.nLength > 0 ? static_cast<std::size_t>(uKey.nLength) : 0;
  const std::uint32_t dwHash = hashlittle(uKey.pBytes, nLength, kInitialHash);
  return uHash.nBucketCnt != 0 ? dwHash % uHash.nBucketCnt : 0;
}

// The bucket of a key, or kNoBucket when there is no key or the owner's function names no bucket of this table.
[[gnu::always_inline]] inline std::uint32_t ChainOf(const TMyHash &uHash, Key uKey) {
  if (uKey.pBytes == nullptr) return kNoBucket;
  const std::uint32_t nBucket = BucketOf(uHash, uKey);
  return nBucket < uHash.nBucketCnt ? nBucket : kNoBucket;
}

unsigned char *EntryOf(const TMyHash &uHash, std::int32_t nSlot) {
  return uHash.pData + static_cast<std::size_t>(nSlot) * static_cast<std::size_t>(uHash.nDataSize);
}

void TellSlot(int *pnSlot, std::int32_t nSlot) {
  if (pnSlot != nullptr) *pnSlot = nSlot;
}

struct ChainSearch {
  std::int32_t nFound;  // kNoSlot when no member matches
  std::int32_t nLast;   // then the chain's last member, kNoSlot when the chain is empty
};

[[gnu::always_inline]] inline ChainSearch SearchChain(const TMyHash &uHash, std::uint32_t nBucket, const void *pArg) {
  std::int32_t nLast = kNoSlot;
  for (std::int32_t nSlot = uHash.pnBucket[nBucket]; nSlot != kNoSlot; nSlot = uHash.pnNext[nSlot]) {
    // The way on is fetched while the owner compares.
    __builtin_prefetch(&uHash.pnNext[nSlot]);
    if (uHash.fnIsMatch(EntryOf(uHash, nSlot), pArg) != 0) return {nSlot, nLast};
    nLast = nSlot;
  }
  return {kNoSlot, nLast};
}

std::int32_t LastOfChain(const TMyHash &uHash, std::uint32_t nBucket) {
  std::int32_t nLast = kNoSlot;
  for (std::int32_t nSlot = uHash.pnBucket[nBucket]; nSlot != kNoSlot; nSlot = uHash.pnNext[nSlot]) nLast = nSlot;
  return nLast;
}

// Has the memory of the slot that the next addition takes fetched, while its key is hashed.
void PrefetchFreeSlot(const TMyHash &uHash) {
  if (AllSlotsInUse(uHash.uAllot)) return;
  const std::int32_t nSlot = NextFreeSlot(uHash.uAllot);
  constexpr int kForWriting = 1;
  __builtin_prefetch(EntryOf(uHash, nSlot), kForWriting);
  __builtin_prefetch(&uHash.pnNext[nSlot], kForWriting);
  __builtin_prefetch(&uHash.pnPrev[nSlot], kForWriting);
  __builtin_prefetch(&uHash.uAllot.pnInuseIdx[nSlot], kForWriting);
}

// Takes a slot, links it after nLast, the last member of its chain (kNoSlot: the chain is empty), and fills it.
// The end mark is written last: it holds even when nLast is this very slot, free but still named by its bucket, as an
// entry that was deleted after its key had been changed leaves it.
std::int32_t Append(TMyHash &uHash, std::uint32_t nBucket, std::int32_t nLast, const void *pData) {
  const std::int32_t nSlot = TakeSlot(uHash.uAllot);
  uHash.pnPrev[nSlot] = nLast;
  if (nLast == kNoSlot) {
    uHash.pnBucket[nBucket] = nSlot;
  } else {
    uHash.pnNext[nLast] = nSlot;
  }
  uHash.pnNext[nSlot] = kNoSlot;
  CopyBytes(EntryOf(uHash, nSlot), pData, static_cast<std::size_t>(uHash.nDataSize));
  return nSlot;
}

void Unlink(TMyHash &uHash, std::uint32_t nBucket, std::int32_t nSlot) {
  const std::int32_t nNext = uHash.pnNext[nSlot];
  const std::int32_t nPrev = uHash.pnPrev[nSlot];
  if (nPrev != kNoSlot) {
    uHash.pnNext[nPrev] = nNext;
  } else {
    uHash.pnBucket[nBucket] = nNext;
  }
  uHash.pnPrev[nSlot] = kNoSlot;
  uHash.pnNext[nSlot] = kNoSlot;
  if (nNext != kNoSlot) uHash.pnPrev[nNext] = nPrev;
}

bool AllocateBlocks(TMyHash &uHash, int nMaxCount) {
  return (uHash.pnBucket = AllocateBlock<std::int32_t>(uHash.nBucketCnt)) != nullptr &&
         (uHash.pnNext = AllocateBlock<std::int32_t>(nMaxCount)) != nullptr &&
         (uHash.pnPrev = AllocateBlock<std::int32_t>(nMaxCount)) != nullptr &&
         (uHash.pData = AllocateBlock<unsigned char>(nMaxCount, uHash.nDataSize)) != nullptr;
}

}  // namespace

int TMyHash_Create(TMyHash *puHash, const char *pDebugName, int nBucketCnt, int nMaxCount, int nDataSize,
                   TMyHashMatchFunc fnIsMatch, TMyHashKeyFunc fnDataKey, TMyHashKeyFunc fnArgKey) {
  puHash->pnBucket = nullptr;
  puHash->pnNext = nullptr;
  puHash->pnPrev = nullptr;
  // Kept: never fewer buckets than entries, whatever was asked for.
  puHash->nBucketCnt = static_cast<std::uint32_t>(std::max({nBucketCnt, nMaxCount, 0}));
  puHash->nDataSize = nDataSize;
  puHash->pData = nullptr;
  puHash->fnIsMatch = fnIsMatch;
  puHash->fnDataKey = fnDataKey;
  puHash->fnArgKey = fnArgKey;
  puHash->fnHash = nullptr;
  const bool bSlots = AllotAry_Construct(&puHash->uAllot, pDebugName, nMaxCount) != 0;
  if (!bSlots || puHash->nBucketCnt == 0 || !AllocateBlocks(*puHash, nMaxCount)) {
    TMyHash_Free(puHash);
    return 0;
  }
  TMyHash_Clear(puHash);
  return 1;
}

TMyHashBucketFunc TMyHash_SetHashFunc(TMyHash *puHash, TMyHashBucketFunc fnHash) {
  puHash->fnHash = fnHash;
  return fnHash;  // Kept: the function just installed, not the one before it.
}

std::uint32_t TMyHash_KeyToIdx(const TMyHash *puHash, const void *pKey, int nKeyLen) {
  return BucketOf(*puHash, {pKey, nKeyLen});
}

void *TMyHash_Find(const TMyHash *puHash, const void *pArg, int *pnSlot) {
  TellSlot(pnSlot, kNoSlot);
  const std::uint32_t nBucket = ChainOf(*puHash, KeyOf(puHash->fnArgKey, pArg));
  if (nBucket == kNoBucket) return nullptr;
  const std::int32_t nFound = SearchChain(*puHash, nBucket, pArg).nFound;
  if (nFound == kNoSlot) return nullptr;
  TellSlot(pnSlot, nFound);
  return EntryOf(*puHash, nFound);
}

// Kept: no comparison, the same entry can be there twice.
int TMyHash_Add(TMyHash *puHash, const void *pData, int *pnSlot) {
  TellSlot(pnSlot, kNoSlot);
  PrefetchFreeSlot(*puHash);
  const std::uint32_t nBucket = ChainOf(*puHash, KeyOf(puHash->fnDataKey, pData));
  if (nBucket == kNoBucket || AllSlotsInUse(puHash->uAllot)) return 0;
  TellSlot(pnSlot, Append(*puHash, nBucket, LastOfChain(*puHash, nBucket), pData));
  return 1;
}

int TMyHash_AddUnique(TMyHash *puHash, const void *pArg, const void *pData, int *pnSlot) {
  // Kept: 0 means that there is such an entry already; a full table and a missing key, elsewhere 0, are 2 here.
  constexpr int kExists = 0;
  constexpr int kAdded = 1;
  constexpr int kNotAdded = 2;
  TellSlot(pnSlot, kNoSlot);
  const std::uint32_t nBucket = ChainOf(*puHash, KeyOf(puHash->fnArgKey, pArg));
  if (nBucket == kNoBucket) return kNotAdded;
  const ChainSearch uSearch = SearchChain(*puHash, nBucket, pArg);
  if (uSearch.nFound != kNoSlot) {
    TellSlot(pnSlot, uSearch.nFound);
    return kExists;
  }
  if (AllSlotsInUse(puHash->uAllot)) return kNotAdded;
  TellSlot(pnSlot, Append(*puHash, nBucket, uSearch.nLast, pData));
  return kAdded;
}

int TMyHash_Delete(TMyHash *puHash, int nSlot) {
  if (AllotAry_IsInUse(&puHash->uAllot, nSlot) == 0) return 0;
  __builtin_prefetch(&puHash->pnNext[nSlot]);
  __builtin_prefetch(&puHash->pnPrev[nSlot]);
  const std::uint32_t nBucket = ChainOf(*puHash, KeyOf(puHash->fnDataKey, EntryOf(*puHash, nSlot)));
  if (nBucket == kNoBucket || puHash->pnBucket[nBucket] == kNoSlot) return 0;
  // Kept: the slot's links are believed. Whether it is a member of this chain is not looked up, which keeps removal
  // constant in time.
  GiveSlotBack(puHash->uAllot, nSlot);
  Unlink(*puHash, nBucket, nSlot);
  return 1;
}

void TMyHash_Clear(TMyHash *puHash) {
  std::fill_n(puHash->pnBucket, puHash->nBucketCnt, kNoSlot);
  std::fill_n(puHash->pnNext, puHash->uAllot.MaxArrayCount, kNoSlot);
  std::fill_n(puHash->pnPrev, puHash->uAllot.MaxArrayCount, kNoSlot);
  AllotAry_Clear(&puHash->uAllot);
}

void TMyHash_Free(TMyHash *puHash) {
  ReleaseBlock(puHash->pnBucket);
  ReleaseBlock(puHash->pnNext);
  ReleaseBlock(puHash->pnPrev);
  ReleaseBlock(puHash->pData);
  puHash->nBucketCnt = 0;
  puHash->fnHash = nullptr;  // an owner's function may divide by the number of buckets
  AllotAry_Destroy(&puHash->uAllot);
}

void *TMyHash_GetDataPtr(const TMyHash *puHash, int nSlot) {
  return AllotAry_IsInUse(&puHash->uAllot, nSlot) != 0 ? EntryOf(*puHash, nSlot) : nullptr;
}

void *TMyHash_TraverseData(const TMyHash *puHash, int nPos) {
  return EntryOf(*puHash, AllotAry_TraverseInuseRoom(&puHash->uAllot, nPos));
}

void *TMyHash_GetDataBase(const TMyHash *puHash) { return puHash->pData; }

int TMyHash_IsInUse(const TMyHash *puHash, int nSlot) { return AllotAry_IsInUse(&puHash->uAllot, nSlot); }

int TMyHash_GetUnUseCnt(const TMyHash *puHash) { return AllotAry_GetUnUseCnt(&puHash->uAllot); }

int TMyHash_GetInUseCnt(const TMyHash *puHash) { return AllotAry_GetInUseCnt(&puHash->uAllot); }
