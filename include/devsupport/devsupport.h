// SPDX-License-Identifier: MIT
/* The whole public face of libdevsupport. Programs may include single unit headers instead. */
#ifndef DEVSUPPORT_DEVSUPPORT_H
#define DEVSUPPORT_DEVSUPPORT_H

/* L0: diagnostics, number parsing and text editing, IPC primitives */
#include <devsupport/diag/Diagnostics.h>
#include <devsupport/diag/LogFile.h>
#include <devsupport/diag/TraceNow.h>
#include <devsupport/ipc/MessageQueue.h>
#include <devsupport/ipc/Semaphore.h>
#include <devsupport/ipc/ShareMem.h>
#include <devsupport/ipc/ThreadMutex.h>
#include <devsupport/ipc/Timer.h>
#include <devsupport/text/BuildStamp.h>
#include <devsupport/text/NumberParsing.h>
#include <devsupport/text/StringEdit.h>
#include <devsupport/text/Version.h>

/* L1: tokenizer, containers, shared ring, local addresses */
#include <devsupport/container/AllotArray.h>
#include <devsupport/container/MyHash.h>
#include <devsupport/container/MyQueue.h>
#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/net/LocalAddress.h>
#include <devsupport/text/StrTok.h>
#include <devsupport/text/StrTokConvert.h>
#include <devsupport/text/StrTokScan.h>

/* L2: log channel and builders, link status */
#include <devsupport/logmgr/LogFormat.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogRecord.h>
#include <devsupport/logmgr/ProcessStart.h>
#include <devsupport/net/LinkStatus.h>

/* L3: configuration store */
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbParam.h>
#include <devsupport/db/DbRecord.h>

/* L4: log filter, WAN choice */
#include <devsupport/logmgr/LogFilter.h>
#include <devsupport/net/WanInterface.h>

#endif
