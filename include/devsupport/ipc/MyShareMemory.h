// SPDX-License-Identifier: MIT
/* The shared ring: a bounded queue of fixed-size cells in a shared-memory segment, one semaphore, many processes. */
#ifndef DEVSUPPORT_IPC_MYSHAREMEMORY_H
#define DEVSUPPORT_IPC_MYSHAREMEMORY_H

#include <devsupport/Api.h>
#include <devsupport/ipc/ShareMem.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// What holds for the whole family
///
/// Lock       Operations that read or move the ring's cursors take its semaphore for one cell copy. Who finds it held
///            tries again a few times and lets others run in between (a real-time process does not), then sleeps until
///            it is given back. A signal does not end the wait. What could not be taken is not given back. When the semaphore
///            cannot be had at all (semid is -1, or the set was removed), the operation runs unlocked and says
///            nothing.
/// Death      A process that dies inside an operation blocks no other: the kernel frees the semaphore. Its operation is
///            done or not done; a PushOverwrite may also have dropped the oldest cell and come no further, or have
///            left the newest with length 0. A ring that was half made is finished by the next creator.
/// Trust      Every process may write the segment, so all of it is checked before use. The geometry is the record's own. A read
///            or write index that is no slot number makes the ring count as empty; the next push starts it afresh.
///            The offsets beside the indexes are written and never read. No operation touches memory outside the
///            segment and the caller's buffer, whatever the segment holds.
/// Threads    The semaphore keeps threads apart as it keeps processes apart; the peek cursor in the record is the one
///            thing that it does not protect: peek in one thread for each record.
/// Signals    no: what was interrupted may hold the semaphore.

/// Start of the segment; its fields are in detail/ipc/MyShareMemory.h and docs/formats.md.
struct _U_ShmQueue_SHM_VARI;

/// One ring as this process sees it. The caller owns the record and places it; a process may hold several.
/// Filled by TShmQueue_Create, read-only for the caller.
typedef struct TShmQueue {
  int32_t nSlotCount;                  /* slots: cells asked for + 1, because one always stays free */
  uint16_t wCellSize;                  /* largest payload of a cell, in bytes */
  uint32_t dwStride;                   /* bytes from slot to slot: length word + cell size */
  TShareMem shm;                       /* the attached segment */
  int32_t semid;                       /* the ring's semaphore; -1: the ring runs unlocked */
  struct _U_ShmQueue_SHM_VARI *header; /* start of the segment */
  int32_t nPeekIdx;                    /* this record's own read cursor for peeking: slot number ... */
  uint32_t dwPeekOffset;               /* ... and its byte offset from the first slot */
  uint8_t *cells;                      /* the first slot */
  uint8_t *pUserArea;                  /* the user area; its contents belong to the ring's user */
} TShmQueue;

/// Options and a result of TShmQueue_Create.
typedef struct TShmQueueOpt {
  int32_t dwUserBytes; /* in: user area in bytes, rounded up to a multiple of 4; not negative */
  int32_t bLockIfNew;  /* in: not 0: come back with the semaphore held when this call made the ring */
  int32_t bNewCreated; /* out: 1 this call made the ring, else 0 */
} TShmQueueOpt;

/// Attaches the ring of two keys, or makes it first; the first process to ask makes it, the others wait until it is
/// initialised. A ring that a creator left half made when it died is finished by the next one, as its creator.
/// nShareKey   in      System V key of the segment
/// nSemKey     in      System V key of the semaphore
/// dwCellCount in      cells that the ring holds
/// wCellSize   in      largest payload in bytes; a multiple of 4 keeps the slots aligned
/// pOpt        in,out  options and result; NULL: no user area, come back unlocked
/// pQue        out     the ring; half filled on failure
/// Returns    1 made or attached, with the peek cursor at the oldest cell; 0 failed.
/// Prints     on standard error, besides the messages of ShareMem_Create:
///            "\n*** TShmQueue created fail : ShareKey=%d, SemaphoreKey=%d ***\n"
///              no segment, or a size that does not fit in 32 bits (nothing is made then)
///            "\n*** TShmQueue created fail : CellCount or CellSize or UserSize not match, ShareKey=%d,
///            SemaphoreKey=%d ***\n" (one line)
///              the ring exists with other measures; it stays attached, for TShmQueue_Close to detach
/// Lock       the semaphore, before the segment is looked for. With bLockIfNew the creator keeps it: it initialises
///            the user area and calls TShmQueue_Unlock, and no other process sees the area before that.
/// Waits      as long as another process holds the ring; 100 ms more for a semaphore whose creator died too early.
int TShmQueue_Create(int32_t nShareKey, int32_t nSemKey, uint32_t dwCellCount, uint16_t wCellSize, TShmQueueOpt *pOpt,
                     TShmQueue *pQue);

/// Detaches the ring. The last process to leave removes the semaphore, and the segment when it is told to; a segment
/// that stays keeps its cells for the next TShmQueue_Create, which makes a new semaphore.
/// pQue           in      the ring; not to be used any more
/// bRemoveIfLast  in      not 0: remove the segment when no process is attached any more
/// Returns    1, always.
/// Prints     nothing.
/// Lock       none: do not let the last process leave while another one arrives.
int TShmQueue_Close(TShmQueue *pQue, int bRemoveIfLast);

/// Takes the ring's semaphore, to peek or to use the user area. Do not call other operations that lock meanwhile.
/// pQue       in      the ring
/// Returns    the result of Semaphore_Lock: one attempt, 0 when a signal interrupted it.
/// Prints     nothing.
int TShmQueue_Lock(TShmQueue *pQue);

/// Gives the ring's semaphore back.
/// pQue       in      the ring, locked by TShmQueue_Lock or TShmQueue_Create
/// Returns    the result of Semaphore_Unlock.
/// Prints     nothing.
int TShmQueue_Unlock(TShmQueue *pQue);

/// Empties the ring: both cursors go to slot 0. The cells' bytes stay.
/// pQue       in,out  the ring
/// Returns    the result of giving the semaphore back: 1, or 0 when the ring runs unlocked.
/// Prints     nothing.
/// Lock       the semaphore.
int TShmQueue_Clear(TShmQueue *pQue);

/// Stores one cell after the newest, if there is room.
/// pQue       in,out  the ring; NULL stops the program (standard assertion)
/// pData      in      the payload
/// wBytes     in      its length in bytes; what is beyond the cell size is cut off without notice
/// Returns    1 stored; 0 the ring is full (nothing stored), or wBytes is 0.
/// Prints     nothing.
/// Lock       the semaphore, for one copy; not taken for a length of 0.
/// Cost       constant plus the copy, no allocation.
int TShmQueue_Push(TShmQueue *pQue, const void *pData, uint16_t wBytes);

/// Stores one cell after the newest; a full ring loses its oldest cell for it.
/// pQue       in,out  the ring; NULL stops the program (standard assertion)
/// pData      in      the payload
/// wBytes     in      its length in bytes; what is beyond the cell size is cut off without notice
/// Returns    1 stored and nothing lost; 0 stored and older cells lost (the oldest one, or all when the ring was
///            unusable), or nothing stored because wBytes is 0.
/// Prints     nothing.
/// Lock       the semaphore, for one copy; not taken for a length of 0. Who peeks without it can see the new cell
///            before its payload is there: its length is 0 until then.
/// Cost       constant plus the copy, no allocation.
int TShmQueue_PushOverwrite(TShmQueue *pQue, const void *pData, uint16_t wBytes);

/// Takes the oldest cell out of the ring.
/// pQue       in,out  the ring; NULL stops the program (standard assertion)
/// pBuf       out     at most wBufBytes bytes of payload, never more than the cell size; untouched when empty
/// pdwBytes   out     the stored length in bytes as the slot has it, even when less was copied; 0 when empty; may be
///                    NULL. An overwritten slot can name more than the cell size.
/// wBufBytes  in      room in pBuf in bytes; 0: no limit, the buffer holds a whole cell
/// Returns    1 a cell was taken, 0 the ring was empty.
/// Prints     nothing.
/// Lock       the semaphore, for one copy.
/// Cost       constant plus the copy, no allocation.
int TShmQueue_Get(TShmQueue *pQue, void *pBuf, uint32_t *pdwBytes, uint16_t wBufBytes);

/// Counts the stored cells.
/// pQue       in      the ring
/// Returns    0 to the cell count asked for at creation.
/// Prints     nothing.
/// Lock       the semaphore.
int32_t TShmQueue_GetCount(TShmQueue *pQue);

/* Peeking leaves the cells where they are. It takes no lock: bracket the whole walk with TShmQueue_Lock and
 * TShmQueue_Unlock unless no other process writes. */

/// Puts this record's peek cursor on a cell.
/// pQue       in,out  the ring
/// nPosition  in      0 the oldest cell, 1 the next one ...; -1 the newest, -2 the one before ...; not below minus
///                    the number of cells
/// Returns    1 there is such a cell; 0 there is none and the cursor is at the oldest.
/// Prints     nothing.
int TShmQueue_PeekInit(TShmQueue *pQue, int32_t nPosition);

/// Steps from older to newer cells.
/// pQue       in,out  the ring
/// ppSlot     out     the slot under the cursor: a 32-bit length, then the payload; untouched at the end. Neither
///                    needs to be aligned, and the length is the word in shared memory: do not trust it beyond
///                    the cell size.
/// Returns    the slot's payload; NULL when the cursor is after the newest cell.
/// Prints     nothing.
void *TShmQueue_PeekNext(TShmQueue *pQue, void **ppSlot);

/// Steps from newer to older cells.
/// pQue       in,out  the ring
/// ppSlot     out     as for TShmQueue_PeekNext
/// Returns    the slot's payload; NULL when the cursor is before the oldest cell. With the cursor after the
///            newest cell of a ring that is not full, the first step shows the free slot there.
/// Prints     nothing.
void *TShmQueue_PeekPrev(TShmQueue *pQue, void **ppSlot);

DEVSUPPORT_END_API

#endif
