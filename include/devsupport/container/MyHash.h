// SPDX-License-Identifier: MIT
/* Hash table: a fixed number of fixed-size entries, copied in by value, found through the owner's callbacks. */
#ifndef DEVSUPPORT_CONTAINER_MYHASH_H
#define DEVSUPPORT_CONTAINER_MYHASH_H

#include <devsupport/Api.h>
#include <devsupport/container/AllotArray.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// Compares an entry with a lookup argument.
/// pData      in      address of the entry
/// pArg       in      the lookup argument, as the caller passed it
/// Returns    not 0 when the entry matches.
typedef int (*TMyHashMatchFunc)(const void *pData, const void *pArg);

/// Gives the key bytes of an entry, or of a lookup argument.
/// pFrom      in      address of the entry, or the lookup argument
/// pnKeyLen   out     length of the key in bytes; below 0 counts as 0
/// Returns    address of the key bytes; NULL when there is no key.
typedef const void *(*TMyHashKeyFunc)(const void *pFrom, int *pnKeyLen);

/// Chooses the bucket of a key in place of the built-in hash.
/// nBucketCnt in      number of buckets
/// pKey       in      key bytes
/// nKeyLen    in      their number, as the key callback wrote it
/// Returns    0 to nBucketCnt-1. A key with any other index has no chain: it is never found, added or deleted.
typedef uint32_t (*TMyHashBucketFunc)(uint32_t nBucketCnt, const void *pKey, int nKeyLen);

/// The table. The slot numbers of uAllot are the entry numbers; fill uAllot.DebugName to have a name in its messages.
/// Entries of a bucket form a chain from pnBucket along pnNext, oldest first; -1 ends it in both directions.
///
/// The caller places the record; the heap blocks belong to it. NULL for a table is never allowed, and every operation
/// but TMyHash_Create wants a created table. A table whose creation failed, or that was freed, is safe for every
/// operation: it holds nothing and takes nothing.
typedef struct TMyHash {
  TAllotArray uAllot;
  int32_t *pnBucket; /* per bucket: its chain's first slot */
  int32_t *pnNext;   /* per slot */
  int32_t *pnPrev;   /* per slot */
  uint32_t nBucketCnt;
  int32_t nDataSize;    /* bytes of one entry */
  unsigned char *pData; /* entry of slot s at pData + s * nDataSize */
  TMyHashMatchFunc fnIsMatch;
  TMyHashKeyFunc fnDataKey;
  TMyHashKeyFunc fnArgKey;
  TMyHashBucketFunc fnHash; /* NULL: the built-in hash */
} TMyHash;

/* No operation locks: owners that share a table between threads lock around every call. None is for signal handlers.
   After creation nothing is allocated. Where nothing else is said, nothing is printed. */

/// Makes an empty table, from a record of any content.
/// puHash      out     everything but uAllot.DebugName, which keeps what the caller put there
/// pDebugName  in      not used, may be NULL
/// nBucketCnt  in      wanted number of buckets; raised to nMaxCount when it is smaller
/// nMaxCount   in      capacity in entries, not negative
/// nDataSize   in      bytes of one entry, not negative
/// fnIsMatch   in      compares an entry with a lookup argument
/// fnDataKey   in      key of an entry
/// fnArgKey    in      key of a lookup argument: the same bytes as the key of an entry that matches it
/// Returns     1 made, 0 no buckets, a size that is negative or beyond 32 bits, or no memory: nothing is allocated.
int TMyHash_Create(TMyHash *puHash, const char *pDebugName, int nBucketCnt, int nMaxCount, int nDataSize,
                   TMyHashMatchFunc fnIsMatch, TMyHashKeyFunc fnDataKey, TMyHashKeyFunc fnArgKey);

/// Installs a bucket function. To be done while the table is empty: entries stay in the chains that they are in.
/// puHash      in,out  created
/// fnHash      in      the bucket function; NULL restores the built-in hash
/// Returns     fnHash, the function just installed (not the one before).
TMyHashBucketFunc TMyHash_SetHashFunc(TMyHash *puHash, TMyHashBucketFunc fnHash);

/// The bucket of a key.
/// puHash      in      created
/// pKey        in      key bytes, not NULL
/// nKeyLen     in      their number; below 0 counts as 0 for the built-in hash
/// Returns     what the bucket function returns, unchanged; else lookup3 (initial value 1) modulo the bucket count.
/// Cost        linear in the key.
uint32_t TMyHash_KeyToIdx(const TMyHash *puHash, const void *pKey, int nKeyLen);

/// Finds the entry that matches an argument; of several in its bucket the oldest.
/// puHash      in      created
/// pArg        in      lookup argument, for fnArgKey and fnIsMatch only
/// pnSlot      out     the entry's slot, -1 when there is none; may be NULL
/// Returns     the entry's address, valid until it is deleted; NULL when none matches or the argument has no key.
/// Cost        one hash and one fnIsMatch per chain member.
void *TMyHash_Find(const TMyHash *puHash, const void *pArg, int *pnSlot);

/// Adds an entry at its chain's end; does not ask whether there is a matching one already.
/// puHash      in,out  created; unchanged when nothing was added
/// pData       in      nDataSize bytes to copy
/// pnSlot      out     the entry's slot, -1 when it was not added; may be NULL
/// Returns     1 added, 0 not added: no key, no bucket or table full.
/// Cost        one hash, the walk to the chain's end and the copy.
int TMyHash_Add(TMyHash *puHash, const void *pData, int *pnSlot);

/// Adds an entry at its chain's end unless an entry matches the argument.
/// puHash      in,out  created; unchanged when nothing was added
/// pArg        in      lookup argument; its key chooses the bucket
/// pData       in      nDataSize bytes to copy
/// pnSlot      out     slot of the new or of the matching entry; -1 with result 2; may be NULL
/// Returns     1 added, 0 there is a matching entry, 2 not added: no key, no bucket or table full.
/// Cost        one hash, one fnIsMatch per chain member and the copy.
int TMyHash_AddUnique(TMyHash *puHash, const void *pArg, const void *pData, int *pnSlot);

/// Removes the entry of a slot; its bytes stay in the storage. The entry's key must be the one it was added with.
/// puHash      in,out  created; unchanged when nothing was removed
/// nSlot       in      any number
/// Returns     1 removed, 0 not removed: slot free or out of range, no key, or no chain for the key.
/// Prints      the allocator's message when the slot is out of range.
/// Cost        one hash of the entry's key.
int TMyHash_Delete(TMyHash *puHash, int nSlot);

/// Removes all entries; their bytes stay in the storage.
/// puHash      in,out  created
/// Cost        linear in buckets and capacity.
void TMyHash_Clear(TMyHash *puHash);

/// Releases the table's memory. The record can be freed or created again.
/// puHash      in,out  created; also after a failed creation
void TMyHash_Free(TMyHash *puHash);

/// The entry of a slot.
/// puHash      in      created
/// nSlot       in      any number
/// Returns     the entry's address; NULL when the slot is free or out of range.
/// Prints      the allocator's message when the slot is out of range.
void *TMyHash_GetDataPtr(const TMyHash *puHash, int nSlot);

/// The entry at a position of the in-use list, see AllotAry_TraverseInuseRoom.
/// puHash      in      created
/// nPos        in      0 to TMyHash_GetInUseCnt-1; not checked
/// Returns     the entry's address.
void *TMyHash_TraverseData(const TMyHash *puHash, int nPos);

/// puHash      in      created
/// Returns     the entry storage, the entry of slot s at s * nDataSize bytes; NULL without a table.
void *TMyHash_GetDataBase(const TMyHash *puHash);

/// puHash      in      created
/// nSlot       in      any number
/// Returns     1 the slot holds an entry, 0 it is free or out of range.
/// Prints      the allocator's message when the slot is out of range.
int TMyHash_IsInUse(const TMyHash *puHash, int nSlot);

/// puHash      in      created
/// Returns     the number of entries that can still be added.
int TMyHash_GetUnUseCnt(const TMyHash *puHash);

/// puHash      in      created
/// Returns     the number of entries.
int TMyHash_GetInUseCnt(const TMyHash *puHash);

DEVSUPPORT_END_API

#endif
