// SPDX-License-Identifier: MIT
/* The location format of the record builders: readable, not promised. */
#ifndef DEVSUPPORT_DETAIL_LOGMGR_LOGRECORD_H
#define DEVSUPPORT_DETAIL_LOGMGR_LOGRECORD_H

#include <devsupport/logmgr/LogRecord.h>

DEVSUPPORT_BEGIN_API

/// What LogInfo_SetLocFmt stored last; " \\%s %d" before.
extern const char *_g_pLogInfoLocFmt;

DEVSUPPORT_END_API

#endif
