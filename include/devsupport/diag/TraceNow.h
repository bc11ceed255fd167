// SPDX-License-Identifier: MIT
/* A trace line with the local time. */
#ifndef DEVSUPPORT_DIAG_TRACENOW_H
#define DEVSUPPORT_DIAG_TRACENOW_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Prints a label and the local time, to see what takes its time.
/// pLabel     in      NUL-terminated text; NULL means the empty text
/// Prints     "<label> now=[HH:MM:SS.mmm]" and a newline on standard error.
/// Threads    safe.
/// Signals    no.
void TraceNow(const char *pLabel);

DEVSUPPORT_END_API

#endif
