// SPDX-License-Identifier: MIT
/* Internal operations of the log files: callable, not promised. */
#ifndef DEVSUPPORT_DETAIL_DIAG_LOGFILE_H
#define DEVSUPPORT_DETAIL_DIAG_LOGFILE_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Appends one two-line record: "<text> \n    at   File: <file>  Line: <line>\n". The place of the time stamp, after
/// "at ", stays empty.
/// pPath      in      file to append to; made when it is not there, opened and closed by this call
/// pText      in      NUL-terminated message
/// pFile      in      NUL-terminated name of the source file
/// nLine      in      line in it
/// Returns    the fclose result: 0, or EOF when the record did not reach the file; also 0 when the file could not be
///            opened.
/// Prints     nothing.
/// Threads    safe; records of several writers do not mix up to the size of a stdio buffer.
/// Signals    no.
int _WriteLogAt(const char *pPath, const char *pText, const char *pFile, int nLine);

/// Appends one line: a blank (in front of it the empty place of the time stamp), the text, a newline.
/// pPath      in      file to append to; made when it is not there, opened and closed by this call
/// pText      in      NUL-terminated text
/// Prints     nothing; a file that cannot be opened is passed over in silence.
/// Threads    safe; lines of several writers do not mix up to the size of a stdio buffer.
/// Signals    no.
void _WriteLog(const char *pPath, const char *pText);

DEVSUPPORT_END_API

#endif
