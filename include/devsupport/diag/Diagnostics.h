// SPDX-License-Identifier: MIT
/* Console diagnostics: the non-fatal error printer with its replaceable output, and the fatal report. */
#ifndef DEVSUPPORT_DIAG_DIAGNOSTICS_H
#define DEVSUPPORT_DIAG_DIAGNOSTICS_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Receives one finished error text.
/// pText      in      NUL-terminated, at most 255 characters; valid during the call only
/// Returns    any number; it becomes the result of MyErrPrintf.
typedef int (*TErrOutputFunc)(const char *pText);

/// Where MyErrPrintf sends its texts; MyErrOutputDefault from program start on.
/// Read and written without synchronisation: install a hook at start-up, before other threads run.
extern TErrOutputFunc g_pfnErrOutput;

/// Formats one error text and gives it to the current output, once.
/// pFormat    in      printf format, followed by the values it names
/// Returns    whatever the output returned; 0 without an output (NULL was installed).
/// Prints     through the output; a text of more than 255 characters is cut without notice.
/// Threads    safe as far as the output is.
/// Signals    no.
/// Cost       one formatting into the stack, no allocation.
int MyErrPrintf(const char *pFormat, ...) DEVSUPPORT_PRINTF(1, 2);

/// The output that programs start with: the text and a newline on standard error.
/// pText      in      NUL-terminated text
/// Returns    the number of characters written, newline included; negative when writing failed.
/// Threads    safe.
/// Signals    no.
int MyErrOutputDefault(const char *pText);

/// Installs the output of MyErrPrintf. Installing MyErrOutputDefault again is the only way back to it.
/// fn         in      the new output; NULL silences MyErrPrintf
/// Returns    fn, the output just installed (not the one before).
/// Threads    not synchronised.
/// Signals    no.
TErrOutputFunc MyErrSetOutput(TErrOutputFunc fn);

/// Reports a broken assumption and ends the process.
/// pFormat    in      printf format, followed by the values it names
/// Returns    never: the process aborts.
/// Prints     two newlines and the text, cut at 511 characters, on standard error; flushes standard output.
/// Threads    safe, from any thread.
/// Signals    no.
DEVSUPPORT_NORETURN void MyDebugBreak(const char *pFormat, ...) DEVSUPPORT_PRINTF(1, 2);

DEVSUPPORT_END_API

#endif
