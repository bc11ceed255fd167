// SPDX-License-Identifier: MIT
/* Values as log messages show them, each as a text in the caller's buffer. */
#ifndef DEVSUPPORT_LOGMGR_LOGFORMAT_H
#define DEVSUPPORT_LOGMGR_LOGFORMAT_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/* What holds for all of them:
 *
 * pBuf       out     the text and its NUL; nothing bounds the writing: each function names the number of bytes that
 *                    may be needed
 * Returns    pBuf, so that the call can be used as a text.
 * Prints     nothing.
 * Threads    safe with separate buffers.
 * Signals    no.
 */

/// "%d": at most 12 bytes.
char *LogFmt_Int(char *pBuf, int nValue);

/// "%f" of the value as a double: at most 48 bytes. The locale decides about the decimal point.
char *LogFmt_Float(char *pBuf, float fValue);

/// "%f": at most 318 bytes. The locale decides about the decimal point.
char *LogFmt_Double(char *pBuf, double dValue);

/// The character: 2 bytes.
char *LogFmt_Char(char *pBuf, char cValue);

/// "%X": at most 9 bytes; a negative number as its two's complement.
char *LogFmt_Hex(char *pBuf, int nValue);

/// "%X": at most 9 bytes.
char *LogFmt_HexU(char *pBuf, unsigned int dwValue);

/// "CHN=%d, ": at most 18 bytes.
char *LogFmt_Chn(char *pBuf, int nChannel);

/// "SID=%x, " of the number as an int: at most 15 bytes. A negative one has eight digits, 0x8000 is "SID=ffff8000, ".
char *LogFmt_Sid(char *pBuf, int16_t nSid);

DEVSUPPORT_END_API

#endif
