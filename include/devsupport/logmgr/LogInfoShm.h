// SPDX-License-Identifier: MIT
/* The log channel: short, time-stamped records in two rings in shared memory, written by every process of the device
 * and read by one. Writers never wait for the reader and never fail for lack of room. */
#ifndef DEVSUPPORT_LOGMGR_LOGINFOSHM_H
#define DEVSUPPORT_LOGMGR_LOGINFOSHM_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// What holds for the four writing functions
///
/// Before     The channel must be open. Before that, and after it was closed, a message is dropped: no memory but the
///            text is touched, and no semaphore. The same is true for the one ring that could not be opened.
/// Room       A full ring loses its oldest record for each new one.
/// Length     A message is cut into records of 127 characters, the process's name in front counted, at most 32 of
///            them; the rest is lost. The length is taken modulo 65536: of 65536 characters nothing is written, of
///            65537 one.
/// Time       The writer's local time, one for all records of a message, taken before the lock. It follows a change
///            of the zone with the next minute, and a step of the clock at once.
/// Order      The records of one message are next to each other, with consecutive sequence numbers.
/// Death      A process that dies while it writes blocks no other. Its message ends after the last whole record.
/// Prints     nothing; what was lost is not reported.
/// Lock       the ring's semaphore, once for the whole message. A wait that a signal interrupts is taken up again.
/// Threads    safe, but for TLogInfoShm_Open and TLogInfoShm_Close.
/// Signals    no.
/// Cost       the clock, one lock and unlock, one copy; no allocation.

/// Opens both rings; the first process after a start of the system makes them. They are never removed.
/// nFilterLevel in    this process's filter, see TLogInfoShm_IsEnabled
/// dwFilterMask in    the same
/// pName        in    name that is put in front of each message, without a separator; 31 characters count.
///                    NULL or "": none
/// Returns    1 both rings are open; 0 one is not: the event ring is not tried when the log ring fails, and the log
///            ring stays open when the event ring fails. Filter and name are set in any case.
/// Prints     what TShmQueue_Create prints (ipc/MyShareMemory.h).
/// Again      opens the rings again, for example after they were removed, and leaves the old ones.
/// Threads    at start-up, before other threads write.
/// Signals    no.
int TLogInfoShm_Open(int nFilterLevel, uint32_t dwFilterMask, const char *pName);

/// Leaves both rings; they stay in the system with their records. Filter and name stay, too.
/// Returns    1, the result of leaving the second one; also when the channel was not open.
/// Prints     nothing.
/// Threads    when no other thread writes any more.
/// Signals    no.
int TLogInfoShm_Close(void);

/// Sets this process's filter, at any time. The writing functions do not look at it: callers do, see below.
/// nFilterLevel in    highest level that passes
/// dwFilterMask in    modules that pass, one bit each
/// Threads    safe, from one thread; others that ask meanwhile see one of the two values old and the other new at most.
void TLogInfoShm_ChangeFilter(int nFilterLevel, uint32_t dwFilterMask);

/// Returns whether a record passes the filter.
/// nLevel       in    the record's level; higher ones than the filter's do not pass
/// dwModuleMask in    the record's modules; at least one bit must be in the filter's mask
/// Returns    1 it passes, 0 it does not.
/// Threads    safe.
/// Signals    yes.
/// Cost       two loads and two comparisons.
int TLogInfoShm_IsEnabled(int nLevel, uint32_t dwModuleMask);

/// Writes a message to the log ring.
/// pText      in      NUL-terminated; "" writes nothing
/// nType      in      record type; its low 4 bits count
/// nExtra     in      not used
void TLogInfoShm_Write(const char *pText, int nType, int nExtra);

/// Writes a message of known length to the log ring.
/// pText      in      a buffer of that size. What follows a NUL in it is written like the rest, but for the
///                    first record of a process with a name: there the text ends at the NUL
/// nSize      in      size of the text in bytes, its NUL included; below 2 writes nothing
/// nType      in      record type; its low 4 bits count
void TLogInfoShm_WriteN(const char *pText, int nSize, int nType);

/// Writes a message to the event ring; otherwise as TLogInfoShm_Write.
void TLogInfoShm_Write_Evt(const char *pText, int nType);

/// Writes a message of known length to the event ring; otherwise as TLogInfoShm_WriteN.
void TLogInfoShm_WriteN_Evt(const char *pText, int nSize, int nType);

DEVSUPPORT_END_API

#endif
