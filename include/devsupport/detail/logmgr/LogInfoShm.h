// SPDX-License-Identifier: MIT
/* The log channel's process-wide record and its writer: callable, not promised. */
#ifndef DEVSUPPORT_DETAIL_LOGMGR_LOGINFOSHM_H
#define DEVSUPPORT_DETAIL_LOGMGR_LOGINFOSHM_H

#include <devsupport/detail/logmgr/LogCell.h>
#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/logmgr/LogInfoShm.h>

DEVSUPPORT_BEGIN_API

/// The channel as this process sees it.
typedef struct TLogInfoShmData {
  int32_t nFilterLevel;  /* records of a higher level are suppressed */
  uint32_t dwFilterMask; /* records whose module bits meet none of these are suppressed */
  TShmQueue uLogQue;     /* the log ring; zero while it is not open */
  TShmQueue uEvtQue;     /* the event ring; zero while it is not open */
  char szName[32];       /* the process's name, NUL-terminated */
  int32_t nNameLen;      /* its length; 0 without one */
} TLogInfoShmData;

/// The one record of the process. Changed by TLogInfoShm_Open, _Close and _ChangeFilter only.
extern TLogInfoShmData _g_uLogInfoShmData;

/// Writes one message, in as many records as it needs, to a ring of records.
/// pQue       in,out  the ring, with cells of LOGCELL_BYTES and a user area of LOGRING_USER_BYTES; NULL stops the
///                    program (standard assertion); one that is not attached (header NULL) takes nothing
/// pText      in      the message, wLength characters; not read beyond them
/// wLength    in      0 writes nothing and takes no lock
/// nType      in      record type; its low 4 bits count
/// Prints     nothing.
/// Lock       the ring's semaphore, once for all records of the message. The time is taken before.
void _TLogInfoShm_WriteData(TShmQueue *pQue, const char *pText, uint16_t wLength, int nType);

DEVSUPPORT_END_API

#endif
