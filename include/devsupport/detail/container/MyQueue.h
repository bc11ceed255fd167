// SPDX-License-Identifier: MIT
/* Internal operations of the ring queue: callable, not promised. They never lock. */
#ifndef DEVSUPPORT_DETAIL_CONTAINER_MYQUEUE_H
#define DEVSUPPORT_DETAIL_CONTAINER_MYQUEUE_H

#include <devsupport/container/MyQueue.h>

DEVSUPPORT_BEGIN_API

/// nIdx       in      index of a cell
/// puQue      in      created
/// Returns    the index after it; 0 after the last one.
int _TMyQueue_GetNextIdx(int nIdx, const TMyQueue *puQue);

/// pCell      in      address of a cell
/// puQue      in      created
/// Returns    the address of the cell after it; pBuf after the last one.
unsigned char *_TMyQueue_GetNextPtr(unsigned char *pCell, const TMyQueue *puQue);

/// puQue      in      created, its mutex held by the caller when it has one
/// Returns    the number of messages held.
int _TMyQueue_GetCurCellCount(const TMyQueue *puQue);

DEVSUPPORT_END_API

#endif
