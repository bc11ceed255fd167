// SPDX-License-Identifier: MIT
/* What a daemon does when it starts: leaves its process number, takes its priority, decides about its signals. */
#ifndef DEVSUPPORT_LOGMGR_PROCESSSTART_H
#define DEVSUPPORT_LOGMGR_PROCESSSTART_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/* All of them are for one thread at start-up, print nothing, and leave what went wrong in errno. */

/// Writes the process number into a file: decimal, without a newline. The file is made or emptied first.
/// pPath      in      the file
/// Returns    0 written, or the file could not be opened; EOF writing failed.
int WritePidFile(const char *pPath);

/// Makes the process a real-time one that shares the processor by turns (SCHED_RR); its other threads stay as they are.
/// nPriority  in      1 (low) to 99 (high)
/// Returns    0 done, -1 not: no right to do so, or no such priority.
int SetRealtimePriority(int nPriority);

/// What runs when a signal comes.
/// nSignal    in      its number
typedef void (*TSignalFunc)(int nSignal);

/// Decides about every signal at once: handled are 1, 2, 3, 6, 9, 14, 15, 23 and 50, whatever these numbers mean on
/// the machine; all others are ignored, faults and ended children among them. (What the system does not let us change
/// does not change: SIGKILL, SIGSTOP, signals of the C library.) A previous handler is removed, that of timers too:
/// create timer arrays later.
/// pfnHandler in      the handler, for this call and for Signal_AddHandler. It runs with no signal blocked but its own,
///                    and interrupts system calls.
/// Returns    0 the last signal, number 50, has its handler; -1 not.
int Signal_InitHandlers(TSignalFunc pfnHandler);

/// Gives one more signal the handler of the last Signal_InitHandlers; before the first one, the system's default.
/// nSignal    in      its number
/// Returns    0 done, -1 not.
int Signal_AddHandler(int nSignal);

DEVSUPPORT_END_API

#endif
