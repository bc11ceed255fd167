// SPDX-License-Identifier: MIT
/* System V shared-memory segments: create or attach by key, detach, remove when no process is left, count the users.
 */
#ifndef DEVSUPPORT_IPC_SHAREMEM_H
#define DEVSUPPORT_IPC_SHAREMEM_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// One attached segment of this process. The caller owns the record; two records may hold the same segment.
typedef struct TShareMem {
  int32_t shmid; /* segment identifier; -1 when the last lookup failed */
  void *address; /* where it is attached in this process; (void *)-1 when attaching failed */
} TShareMem;

/// Attaches the segment of a key, read and write; makes it first when there is none: mode 0666, zero-filled.
/// nKey       in      System V key
/// dwBytes    in      size in bytes; an existing segment may be larger, not smaller, and is never resized
/// pShm       out     the attached segment; on failure -1 in the field that failed
/// pbCreated  out     1 this call made the segment and its contents need initialising, else 0
/// Returns    the attached address; NULL on failure.
/// Prints     on standard error, with the key in hexadecimal and the system's error text twice:
///            "\n *** share memory create fail(a), key=0x%X (%s) ***\n:%s\n"  neither made nor found
///            "\n *** share memory create fail(b), key=0x%X (%s) ***\n:%s\n"  not attached; the segment is then
///            removed if no process uses it, even if this call did not make it
/// Order      exactly one of several starters sees *pbCreated 1; the others can see the segment before that one has
///            initialised it. Take a lock before this call to close the gap (TShmQueue_Create does).
/// Threads    safe with separate records.
/// Signals    no.
void *ShareMem_Create(int32_t nKey, uint32_t dwBytes, TShareMem *pShm, int *pbCreated);

/// Detaches the segment; the last user can have it removed.
/// pShm           in      record from ShareMem_Create; its fields stay as they are
/// bRemoveIfLast  in      not 0: remove the segment when no process is attached any more
/// pbWasLast      out     1 no process is attached any more, removal asked for or not, else 0
/// Returns    1 done; 0 when detaching, looking up the users or removing failed (a failed detach does not stop
///            the rest).
/// Prints     nothing.
/// Threads    safe with separate records.
/// Signals    no.
int ShareMem_Close(TShareMem *pShm, int bRemoveIfLast, int *pbWasLast);

/// Counts the attachments of the segment with a key, without attaching it.
/// nKey       in      System V key
/// Returns    attachments of all processes together; 0 also when no segment has the key or the system's table
///            cannot be read.
/// Prints     nothing.
/// Cost       one system call for each place in use in the system's table of segments.
/// Threads    safe.
/// Signals    no.
int ShareMem_FindKeyAttchCount(int32_t nKey);

DEVSUPPORT_END_API

#endif
