// SPDX-License-Identifier: MIT
/* The shared ring's segment header and its internal operations: callable, not promised. */
#ifndef DEVSUPPORT_DETAIL_IPC_MYSHAREMEMORY_H
#define DEVSUPPORT_DETAIL_IPC_MYSHAREMEMORY_H

#include <devsupport/ipc/MyShareMemory.h>

DEVSUPPORT_BEGIN_API

/// The first 32 bytes of the segment, shared by every process that uses the ring, in the machine's byte order.
/// The byte map of the whole segment is in docs/formats.md.
typedef struct _U_ShmQueue_SHM_VARI {
  uint32_t dwCellCount;      /* cells asked for; there is one slot more. Written last: not 0 means initialised */
  uint16_t wCellSize;        /* largest payload of a cell, in bytes */
  uint16_t wReserved;        /* not written */
  uint32_t dwUserBytes;      /* user area in bytes, after rounding */
  uint32_t dwReadIdx;        /* slot of the oldest cell */
  uint32_t dwWriteIdx;       /* slot that the next push fills */
  uint32_t dwReadOffset;     /* byte offset of the oldest cell from the first slot */
  uint32_t dwWriteOffset;    /* byte offset of the slot that the next push fills */
  uint32_t dwLastSlotOffset; /* byte offset of the last slot */
} _U_ShmQueue_SHM_VARI;

/// Counts the stored cells without a lock.
/// pQue       in      the ring
/// Returns    the number of cells; 0 when an index in the segment is no slot number.
/// Prints     nothing.
int32_t _TShmQueue_CurrentCellCount(const TShmQueue *pQue);

/// Steps a slot number and its byte offset to the next slot; after the last one comes slot 0.
/// pnIdx      in,out  slot number
/// pdwOffset  in,out  its byte offset from the first slot
/// pQue       in      the ring that they belong to
void _TShmQueue_GetNextIdx(int32_t *pnIdx, uint32_t *pdwOffset, const TShmQueue *pQue);

/// Steps a slot number and its byte offset to the slot before; before slot 0 comes the last one.
/// pnIdx      in,out  slot number
/// pdwOffset  in,out  its byte offset from the first slot
/// pQue       in      the ring that they belong to
void _TShmQueue_GetPrevIdx(int32_t *pnIdx, uint32_t *pdwOffset, const TShmQueue *pQue);

DEVSUPPORT_END_API

#endif
