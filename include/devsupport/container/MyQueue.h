// SPDX-License-Identifier: MIT
/* Ring queue inside one process: bounded, first in first out, messages of varying length copied in and out. */
#ifndef DEVSUPPORT_CONTAINER_MYQUEUE_H
#define DEVSUPPORT_CONTAINER_MYQUEUE_H

#include <devsupport/Api.h>
#include <pthread.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// The ring. A cell is a 16-bit length in the machine's byte order and nUserSize bytes of payload; cells follow each
/// other without a gap, so most of them are not aligned. One cell always stays empty: nGetIdx = nPutIdx says that the
/// ring is empty, and it is full when nPutIdx would step onto nGetIdx.
///
///   get v       put v
///   [ a ][ b ][ c ][ - ]   nCellCount = 4, capacity 3
///
/// The caller places the record; the cells belong to it. Every operation but TMyQueue_Create wants a created queue.
/// A queue whose creation failed, or that was destroyed, is safe for every operation: its capacity is 0.
typedef struct TMyQueue {
  int32_t nCellCount; /* capacity + 1 */
  int32_t nUserSize;  /* payload bytes of a cell */
  int32_t nCellSize;  /* bytes of a cell */
  int32_t nGetIdx;    /* oldest cell */
  int32_t nPutIdx;    /* next cell to write */
  unsigned char *pBuf;
  unsigned char *pLastCell;
  unsigned char *pPut;    /* cell nPutIdx */
  unsigned char *pGet;    /* cell nGetIdx */
  int32_t bUseMutex;      /* not 0: every public operation takes uMutex, once a call */
  pthread_mutex_t uMutex; /* ThreadMutex */
} TMyQueue;

/* Threads: safe on a queue that was created with a mutex, except that creating and destroying it is for one thread
   alone; without a mutex the owner locks. None is for signal handlers. After creation nothing is allocated. Nothing
   is printed but the assertions. */

/// Makes an empty queue, from a record of any content.
/// nCapacity  in      messages that the queue holds, not negative
/// nUserSize  in      payload bytes of a message, not negative; longer messages are cut
/// puQue      out     the queue
/// bUseMutex  in      not 0: protect the queue with a mutex
/// Returns    1 made, 0 a size that is negative or beyond 32 bits, no memory or no mutex: nothing is left allocated.
int TMyQueue_Create(int nCapacity, int nUserSize, TMyQueue *puQue, int bUseMutex);

/// Releases cells and mutex. The record can be destroyed or created again.
/// puQue      in,out  created, also in vain; no thread may be using it
void TMyQueue_Destroy(TMyQueue *puQue);

/// Drops all messages.
/// puQue      in,out  created
void TMyQueue_Clear(TMyQueue *puQue);

/// Adds a message at the end.
/// puQue      in,out  created; unchanged when nothing was stored; NULL stops the program (standard assertion)
/// pMsg       in      wMsgBytes bytes; what exceeds nUserSize is cut without notice
/// wMsgBytes  in      length in bytes
/// Returns    1 stored, 0 the length is 0 or the queue is full.
/// Cost       constant plus the copy.
int TMyQueue_Push(TMyQueue *puQue, const void *pMsg, uint16_t wMsgBytes);

/// Adds a message at the end; in a full queue it drops the oldest one first.
/// puQue      in,out  created; NULL stops the program (standard assertion)
/// pMsg       in      wMsgBytes bytes; what exceeds nUserSize is cut without notice
/// wMsgBytes  in      length in bytes
/// Returns    1 stored without loss; 0 nothing stored because the length is 0, or stored and the oldest message lost.
/// Cost       constant plus the copy.
int TMyQueue_PushOverwrite(TMyQueue *puQue, const void *pMsg, uint16_t wMsgBytes);

/// Takes the oldest message.
/// puQue      in,out  created; NULL stops the program (standard assertion)
/// pBuf       out     at most wMaxBytes bytes; the rest of a longer message is lost; untouched when the queue is empty
/// pdwBytes   out     stored length in bytes, even when pBuf got less; 0 when the queue is empty; may be NULL
/// wMaxBytes  in      room in pBuf, in bytes; 0 = the whole message (pBuf has room for nUserSize bytes)
/// Returns    1 a message was taken, 0 the queue is empty.
/// Cost       constant plus the copy.
int TMyQueue_Get(TMyQueue *puQue, void *pBuf, uint32_t *pdwBytes, uint16_t wMaxBytes);

/// puQue      in      created
/// Returns    the number of messages held.
int TMyQueue_GetCellCount(TMyQueue *puQue);

/// puQue      in      created
/// Returns    the capacity in messages.
int TMyQueue_GetMaxCellCount(TMyQueue *puQue);

DEVSUPPORT_END_API

#endif
