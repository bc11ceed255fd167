// SPDX-License-Identifier: MIT
/* Decimal text to numbers: a success flag as the result, the value through a pointer, no allocation, no errno. */
#ifndef DEVSUPPORT_TEXT_NUMBERPARSING_H
#define DEVSUPPORT_TEXT_NUMBERPARSING_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/*
 * All parsers read the same integers: leading white space (blank, \t \n \v \f \r) and one sign are optional, decimal
 * digits must follow, and nothing may follow them. There is no hexadecimal and no octal form: "0x10" is no number
 * and "010" is ten. What lies beyond 32 bits is clamped to -2147483648 or 2147483647, without notice.
 *
 * They print nothing, keep no state and may be called by any thread and in signal handlers.
 */

/// Parses a whole text as a signed integer.
/// pText      in      NUL-terminated; not NULL
/// pnResult   out     always written: the value of the longest valid beginning, 0 when there is none;
///                    not NULL
/// Returns    1 the whole text is a number, also a clamped one; 0 not ("12abc" stores 12).
/// Cost       one pass over the digits.
int Str2Int(const char *pText, int32_t *pnResult);

/// Parses a whole text as an integer of 0 to 65535.
/// pText      in      NUL-terminated; not NULL
/// pwResult   out     the value; 0 on failure; not NULL
/// Returns    1 the whole text is a number in range, 0 not.
/// Cost       one pass over the digits.
int Str2Word(const char *pText, uint16_t *pwResult);

/// Parses a whole text as an integer of 0 to 255.
/// pText      in      NUL-terminated; not NULL
/// pbyResult  out     the value; 0 on failure; not NULL
/// Returns    1 the whole text is a number in range, 0 not.
/// Cost       one pass over the digits.
int Str2Byte(const char *pText, uint8_t *pbyResult);

/// Parses an integer, or two with one dot between them: "3.25", ".5" and "5." are numbers, "1e5" is none.
/// The integer after the dot is divided by ten for each of its characters and added. The sign of the integer
/// part does not reach it: "-1.5" is -0.5, "-0.5" is +0.5. Each side is clamped to 32 bits, so a fraction keeps
/// nine digits; of the side before the dot the first 64 characters count.
/// pText      in      NUL-terminated; NULL counts as empty
/// pdResult   out     always written: 0.0 for an empty text and for one with several dots, otherwise the sum of what
///                    Str2Int makes of both sides, also on failure ("1.5 " stores 1.05); not NULL
/// Returns    1 both sides are numbers or one of them is empty, 0 not.
/// Cost       one pass over the text, one division for each character after the dot.
int Str2Double(const char *pText, double *pdResult);

/// Str2Double, narrowed to single precision.
/// pText      in      NUL-terminated; NULL counts as empty
/// pfResult   out     always written, as by Str2Double; not NULL
/// Returns    as Str2Double.
int Str2Float(const char *pText, float *pfResult);

DEVSUPPORT_END_API

#endif
