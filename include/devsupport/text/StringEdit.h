// SPDX-License-Identifier: MIT
/* Bounded copy and in-place editing of NUL-terminated texts. */
#ifndef DEVSUPPORT_TEXT_STRINGEDIT_H
#define DEVSUPPORT_TEXT_STRINGEDIT_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/*
 * Positions and counts are in characters (bytes). None of these operations allocates, prints or keeps state; all may
 * be called by any thread and in signal handlers, on texts that no other thread changes meanwhile.
 */

/// Copies a text into a buffer and always terminates it.
/// pDest      out     the text, cut at nDestSize - 1 characters; the rest of the buffer is filled with NUL, except that
///                    an empty source writes one NUL only; not NULL, must not overlap pSrc
/// pSrc       in      text; at most nDestSize characters are read; not NULL
/// nDestSize  in      room in pDest, in bytes, at least 1; below 1 nothing is written
void StrNcpy(char *pDest, const char *pSrc, int32_t nDestSize);

/// Removes characters and moves the rest down.
/// pText      in,out  NUL-terminated; not NULL
/// nPos       in      first character to go; nothing happens when it is negative or not inside the text
/// nCount     in      how many go, cut at the text's end; below 1 nothing happens
void StrDelete(char *pText, int32_t nPos, int32_t nCount);

/// Drops the last characters.
/// pText      in,out  NUL-terminated; not NULL
/// nCount     in      how many go; more than there are empties the text; below 1 nothing happens
void StrCutTail(char *pText, int32_t nCount);

/// Inserts a text, whole or not at all.
/// pText      in,out  NUL-terminated; not NULL
/// nPos       in      where the insertion begins; beyond the end it is appended; negative: nothing happens
/// pInsert    in      NUL-terminated text to insert; not NULL, must not overlap pText
/// nBufSize   in      room in pText's buffer, in bytes; nothing happens unless both texts and the NUL fit
void StrInsert(char *pText, int32_t nPos, const char *pInsert, int32_t nBufSize);

/// Changes 'a'..'z' to 'A'..'Z'; all other bytes stay, in every locale.
/// pText      in,out  NUL-terminated; NULL is ignored
void StrToUpper(char *pText);

/// Changes 'A'..'Z' to 'a'..'z'; all other bytes stay, in every locale.
/// pText      in,out  NUL-terminated; NULL is ignored
void StrToLower(char *pText);

/// Returns whether a text is blank.
/// pText      in      NUL-terminated; not NULL
/// Returns    1 nothing but blanks and tabs, the empty text included; 0 anything else, line ends too.
int StrIsBlank(const char *pText);

DEVSUPPORT_END_API

#endif
