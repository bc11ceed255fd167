// SPDX-License-Identifier: MIT
/* Builders of log messages: printf-like, and out of pieces with the place in the source after them. */
#ifndef DEVSUPPORT_LOGMGR_LOGRECORD_H
#define DEVSUPPORT_LOGMGR_LOGRECORD_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/* What holds for all builders:
 *
 * A message has at most 511 characters; what is beyond them is cut off without notice.
 * None of them looks at the filter: ask TLogInfoShm_IsEnabled (logmgr/LogInfoShm.h) before you build.
 * Prints    nothing, and returns nothing.
 * Threads   safe.
 * Signals   no.
 * Cost      the message on the stack and what writing it costs; no allocation.
 */

/// Formats a message and writes it to the log ring.
/// nType      in      record type; its low 4 bits count
/// pFormat    in      printf format, followed by the values it names
void LogInfo_Printf(int nType, const char *pFormat, ...) DEVSUPPORT_PRINTF(2, 3);

/// Formats a message and writes it to the event ring; otherwise as LogInfo_Printf.
void LogInfo_PrintfEvt(int nType, const char *pFormat, ...) DEVSUPPORT_PRINTF(2, 3);

/// Sets the location format of the process, " \\%s %d" from program start on. The builders below do not use it: they
/// have that same format of their own.
/// pFormat    in      kept, not copied
/// Returns    pFormat.
/// Threads    not synchronised: set it at start-up.
/// Signals    no.
const char *LogInfo_SetLocFmt(const char *pFormat);

/// Write 1 to 12 pieces and the location to the log ring: the pieces one after the other, a blank, a backslash, the
/// file, a blank, the line. From blank to line the location has at most 63 characters, what is beyond is cut off.
/// pFile      in      name of the source file; NULL = ""
/// nLine      in      line in it
/// nType      in      record type; its low 4 bits count
/// nExtra     in      not used
/// p1 ...     in      the pieces, NUL-terminated; NULL = ""
void LogInfo_Cat1(const char *pFile, int nLine, int nType, int nExtra, const char *p1);
void LogInfo_Cat2(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2);
void LogInfo_Cat3(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2,
                  const char *p3);
void LogInfo_Cat4(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2, const char *p3,
                  const char *p4);
void LogInfo_Cat5(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2, const char *p3,
                  const char *p4, const char *p5);
void LogInfo_Cat6(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2, const char *p3,
                  const char *p4, const char *p5, const char *p6);
void LogInfo_Cat7(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2, const char *p3,
                  const char *p4, const char *p5, const char *p6, const char *p7);
void LogInfo_Cat8(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2, const char *p3,
                  const char *p4, const char *p5, const char *p6, const char *p7, const char *p8);
void LogInfo_Cat9(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2, const char *p3,
                  const char *p4, const char *p5, const char *p6, const char *p7, const char *p8, const char *p9);
void LogInfo_Cat10(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2,
                   const char *p3, const char *p4, const char *p5, const char *p6, const char *p7, const char *p8,
                   const char *p9, const char *p10);
void LogInfo_Cat11(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2,
                   const char *p3, const char *p4, const char *p5, const char *p6, const char *p7, const char *p8,
                   const char *p9, const char *p10, const char *p11);
void LogInfo_Cat12(const char *pFile, int nLine, int nType, int nExtra, const char *p1, const char *p2,
                   const char *p3, const char *p4, const char *p5, const char *p6, const char *p7, const char *p8,
                   const char *p9, const char *p10, const char *p11, const char *p12);

DEVSUPPORT_END_API

#endif
