// SPDX-License-Identifier: MIT
/* Message queues: System V queues found by an agreed key, with the library's permissions, result codes and reports.
 *
 * A message is the system's own: a long type, positive when it is sent, followed by the data. Sizes are bytes of
 * the data, without the type. The family keeps no state; every operation leaves errno as its system call set it,
 * also when it printed a report. */
#ifndef DEVSUPPORT_IPC_MESSAGEQUEUE_H
#define DEVSUPPORT_IPC_MESSAGEQUEUE_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/* Results of KMsgQue_Get. */
#define KMSGQUE_NO_MESSAGE 0  /* none of the wanted type is waiting */
#define KMSGQUE_RECEIVED 1    /* a message was received */
#define KMSGQUE_TOO_LONG 3    /* the message does not fit and stays in the queue */
#define KMSGQUE_INTERRUPTED 4 /* a signal ended the wait */
#define KMSGQUE_FAILED 5      /* anything else */

/// Joins the queue of a key, making it first when there is none (mode 0666).
/// nKey       in      agreed key
/// bFlush     in      not 0: the messages that wait in the queue are thrown away, see KMsgQue_Flush
/// Returns    the queue's identifier; -1 on failure.
/// Prints     on failure "KMsgQue_Open: msgget(Key:<key>)(2) failed(<error>)" on standard error.
/// Threads    safe.
/// Signals    no.
int KMsgQue_Open(int32_t nKey, int bFlush);

/// Removes the queue of a key, with all that waits in it; who is blocked in it fails.
/// nKey       in      agreed key; without a queue one is made and removed at once
/// Returns    nothing.
/// Prints     on failure "KMsgQue_Close: msgget(Key:<key>) failed(<error>)" or
///            "KMsgQue_Close: msgctl(IPC_RMID) failed(<error>)" on standard error.
/// Threads    safe.
/// Signals    no.
void KMsgQue_Close(int32_t nKey);

/// Sends one message.
/// nMsgQueId  in      identifier from KMsgQue_Open
/// pMsg       in      the type, a positive long, followed by nBytes bytes of data
/// nBytes     in      bytes of data
/// bWait      in      not 0: waits while the queue is full; 0: a full queue is a failure
/// Returns    1 sent, 0 on failure (an interrupted wait included; nothing is retried).
/// Prints     on failure "KMsgQue_Send: msgsnd(MsgQ ID:<id>, Flag:<0|2048>) failed(<error>)" on standard error.
/// Threads    safe.
/// Signals    no.
int KMsgQue_Send(int nMsgQueId, const void *pMsg, int32_t nBytes, int bWait);

/// Receives one message.
/// nMsgQueId  in      identifier from KMsgQue_Open
/// pBuf       out     the type and at most nBytes bytes of data; untouched unless 1 is returned
/// nBytes     in      room for data after the type, in bytes
/// nType      in      0 the oldest message; above 0 the oldest of this type; below 0 the one with the lowest type
///                    not above -nType
/// pnReceived out     bytes of data received; untouched unless 1 is returned; may be NULL
/// nFlags     in      for msgrcv, unchanged: IPC_NOWAIT does not wait, MSG_NOERROR cuts a message that is too long
/// Returns    KMSGQUE_RECEIVED, or why nothing was received: KMSGQUE_NO_MESSAGE, KMSGQUE_TOO_LONG,
///            KMSGQUE_INTERRUPTED, KMSGQUE_FAILED.
/// Prints     with KMSGQUE_FAILED "KMsgQue_Get: msgrcv(MsgQ ID: <id>, Flag:<flags>) failed(<error>)" on standard
///            error; otherwise nothing.
/// Threads    safe.
/// Signals    no.
int KMsgQue_Get(int nMsgQueId, void *pBuf, int32_t nBytes, int32_t nType, int32_t *pnReceived, int nFlags);

/// Throws away what waits in a queue, of every type and length. Does not end while senders are faster.
/// nMsgQueId  in      identifier from KMsgQue_Open
/// Returns    nothing; a removed queue counts as empty.
/// Prints     nothing.
/// Threads    safe.
/// Signals    no.
void KMsgQue_Flush(int nMsgQueId);

DEVSUPPORT_END_API

#endif
