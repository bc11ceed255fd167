// SPDX-License-Identifier: MIT
/* The moment of a build as a text of fixed width, made from what the compiler calls __DATE__ and __TIME__. */
#ifndef DEVSUPPORT_TEXT_BUILDSTAMP_H
#define DEVSUPPORT_TEXT_BUILDSTAMP_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Writes year, month and day, a separator, hours, minutes and seconds: "20070205.093230".
/// pBuf       out     15 characters and a NUL; not NULL
/// cSeparator in      the character between day and hours
/// pDate      in      "Feb  5 2007": month, blank, day in two characters, blank, year; a month that no compiler
///                    writes gives 00; not NULL, not shorter
/// pTime      in      "09:32:30"; not NULL, not shorter
/// Prints     nothing.
/// Threads    safe.
/// Signals    yes.
/// Cost       constant, no allocation.
void GetBuildTimeStr(char *pBuf, char cSeparator, const char *pDate, const char *pTime);

DEVSUPPORT_END_API

#endif
