// SPDX-License-Identifier: MIT
/* Slot allocator: hands out and takes back slot numbers in constant time and lists those in use. */
#ifndef DEVSUPPORT_CONTAINER_ALLOTARRAY_H
#define DEVSUPPORT_CONTAINER_ALLOTARRAY_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

#define ALLOTARY_DEBUG_NAME_BYTES 24

/// The slots 0..MaxArrayCount-1. The owner keeps its own arrays, indexed by slot.
///
///   pnFreeRoom    ring of the free slots, read at nFreeGet, written at nFreePut
///   pnInuseRoom   dense list: entries 0..nInuseCnt-1 are the slots in use
///   pnInuseIdx    per slot its position in pnInuseRoom, -1 when it is free
///
/// The caller places the record; the three arrays belong to it. NULL for a record is never allowed, and every
/// operation but AllotAry_Construct wants a constructed record.
typedef struct TAllotArray {
  int32_t *pnFreeRoom;
  int32_t *pnInuseRoom;
  int32_t *pnInuseIdx;
  int32_t nFreePut;
  int32_t nFreeGet;
  int32_t MaxArrayCount;
  int32_t nInuseCnt;
  char DebugName[ALLOTARY_DEBUG_NAME_BYTES]; /* shown in the messages; the owner's to fill */
} TAllotArray;

/* No operation locks: owners that share a record between threads lock around every call. None is for signal
   handlers. All but the first four are constant in time and allocate nothing. Where nothing is said, nothing is
   printed. */

/// Makes an allocator with all slots free, from a record of any content.
/// puAry       out     everything but DebugName, which keeps what the caller put there
/// pDebugName  in      not used, may be NULL
/// nMaxCount   in      capacity in slots, 0 to 1073741823
/// Returns     1 made, 0 the capacity is out of range or memory ran out: the record then has capacity 0 and is safe
///             for every operation.
/// Prints      nothing.
int AllotAry_Construct(TAllotArray *puAry, const char *pDebugName, int nMaxCount);

/// Gives a constructed allocator another capacity; all slots are free afterwards.
/// puAry       in,out  constructed; its old arrays are freed first
/// nMaxCount   in      capacity in slots, 0 to 1073741823
/// Returns     1 made, 0 as AllotAry_Construct.
/// Prints      nothing.
int AllotAry_ReConstruct(TAllotArray *puAry, int nMaxCount);

/// Frees the arrays. The record then has capacity 0 and can be destroyed or reconstructed again.
/// puAry       in,out  constructed
/// Prints      nothing.
void AllotAry_Destroy(TAllotArray *puAry);

/// Makes every slot free; they are handed out as 0, 1, 2, ... again.
/// puAry       in,out  constructed
/// Prints      nothing.
void AllotAry_Clear(TAllotArray *puAry);

/// Takes the slot that has been free for the longest time.
/// puAry       in,out  constructed
/// Returns     the slot, now last of the in-use list; -1 when all are in use.
/// Prints      nothing.
int AllotAry_GetAvaiRoom(TAllotArray *puAry);

/// Gives a slot back. It is added at the end of the free ring, and the last slot of the in-use list takes its position
/// there.
/// puAry       in,out  constructed; unchanged after a message
/// nRoom       in      a slot in use
/// Prints      through MyErrPrintf: a message when the slot is out of range, another when it is not in use.
void AllotAry_FreeRoom(TAllotArray *puAry, int nRoom);

/// Returns whether a slot is in use.
/// puAry       in      constructed
/// nRoom       in      any number
/// Returns     1 in use, 0 free or out of range.
/// Prints      through MyErrPrintf: a message when the slot is out of range.
int AllotAry_IsInUse(const TAllotArray *puAry, int nRoom);

/// The slot at a position of the in-use list. Positions go in the order of taking, as disturbed by every free: freeing
/// the slot at position i moves the last one there, so a walk that frees stays at i.
/// puAry       in      constructed
/// nPos        in      0 to AllotAry_GetInUseCnt-1; not checked
/// Returns     the slot.
/// Prints      nothing.
int AllotAry_TraverseInuseRoom(const TAllotArray *puAry, int nPos);

/// The position of a slot in the in-use list.
/// puAry       in      constructed
/// nRoom       in      0 to AllotAry_GetMaxRoomCnt-1; not checked
/// Returns     the position, -1 when the slot is free.
/// Prints      nothing.
int AllotAry_GetInuseIdx(const TAllotArray *puAry, int nRoom);

/// puAry       in      constructed
/// Returns     the number of free slots.
int AllotAry_GetUnUseCnt(const TAllotArray *puAry);

/// puAry       in      constructed
/// Returns     the number of slots in use.
int AllotAry_GetInUseCnt(const TAllotArray *puAry);

/// puAry       in      constructed
/// Returns     the capacity in slots.
int AllotAry_GetMaxRoomCnt(const TAllotArray *puAry);

DEVSUPPORT_END_API

#endif
