// SPDX-License-Identifier: MIT
/* Log files: the formatting front end that appends one line to a named file. */
#ifndef DEVSUPPORT_DIAG_LOGFILE_H
#define DEVSUPPORT_DIAG_LOGFILE_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Appends one line to a log file: a blank, the formatted text, a newline.
/// The values after the format are not formatted one by one. The format has one value to print: the address of the
/// memory that holds them. "%s" prints their raw bytes up to the first zero byte, "%d" that address; what further
/// conversions print is not defined ("%n" and floating-point conversions are not allowed). The compiler therefore
/// gets no promise about the format, and none should be added.
/// pPath      in      file to append to; made when it is not there, opened and closed by this call
/// pFormat    in      printf format with at most one conversion, followed by any values
/// Prints     nothing; a file that cannot be opened is passed over in silence. Text beyond 255 characters is cut.
/// Threads    safe; lines of several writers do not mix.
/// Signals    no.
/// Cost       opens, writes and closes the file.
void WriteLogFmt(const char *pPath, const char *pFormat, ...);

DEVSUPPORT_END_API

#endif
