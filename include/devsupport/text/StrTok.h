// SPDX-License-Identifier: MIT
/* Tokenizer: a cursor over a caller-owned text; cuts it into tokens without copying or changing it. */
#ifndef DEVSUPPORT_TEXT_STRTOK_H
#define DEVSUPPORT_TEXT_STRTOK_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/*
 *     source   n a m e = a b ; c d
 *              ^pSrc     ^   ^ ^   ^pSrcEnd
 *                     pTok   | pCur
 *                      pTokEnd
 *
 * A scanning operation starts at the cursor, makes a token of what it passes and puts the cursor after what it
 * consumed. Set the source, advance in a loop until an advance answers 0, and copy or convert each token.
 *
 * All operations
 *   puTok    in,out  a record that TStrTok_SetSource has filled; not NULL
 *   Returns  1 for success and 0 for failure, unless said otherwise.
 *   Prints   nothing.
 *   Threads  safe on different records, the source may be shared.
 *   Signals  yes.
 *   Cost     one pass forward over what is consumed, no allocation.
 *
 * Lengths are in characters (bytes). A string is given as
 *   pStr     in      what to look for; an operation that gets NULL or an empty one answers 0 and changes nothing
 *   nLen     in      its length; below 1 the string is NUL-terminated and strlen counts; at least nLen bytes can be
 *                    read at pStr
 * and the flag bEmptyOnFail says what a failure leaves: 0 everything as it was; otherwise the token becomes empty and
 * the tokenizer is exhausted. An exhausted tokenizer answers 0 to every scan and gives empty copies until the next
 * TStrTok_SetSource; a scan of it applies no flag.
 */

/// One cursor over one text. The text must stay until the record is no longer used. The fields are for reading.
typedef struct TStrTok {
  uint32_t bTrim;         ///< copies of tokens lose leading and trailing blanks and tabs when not 0
  const char *pSrc;       ///< first character of the source
  const char *pSrcEnd;    ///< after its last character; NULL for a NULL source
  const char *pTok;       ///< first character of the token
  const char *pTokEnd;    ///< after its last character
  const char *pCur;       ///< where the next operation starts; NULL = exhausted
  int32_t nPrevDelimLen;  ///< nDelimLen as it was before the last successful find or match
  int32_t nDelimLen;      ///< length of the delimiter after the token, or of the text that was matched
} TStrTok;

/* ---- Source -------------------------------------------------------------------------------------------------- */

/// Puts the tokenizer at the beginning of a text.
/// puTok      out     filled completely
/// bTrim      in      whether copies of tokens are trimmed
/// pSource    in      the text; need not be NUL-terminated when nLen is positive; NULL: exhausted from the start
/// nLen       in      its length; below 1 strlen counts
void TStrTok_SetSource(TStrTok *puTok, uint32_t bTrim, const char *pSource, int32_t nLen);

/// Changes whether copies of tokens are trimmed.
/// Returns    bTrim.
uint32_t TStrTok_SetTrim(TStrTok *puTok, uint32_t bTrim);

/* ---- Search and match ---------------------------------------------------------------------------------------- */

/// Searches a string: the token is the text before it, the cursor moves after it.
/// nLen       in      also says where the last attempt is made: nLen characters before the end. The comparison covers
///                    the whole NUL-terminated string whatever nLen is; with nLen shorter than the string it may look
///                    after the source, so the source must then end with NUL
int32_t TStrTok_Find(TStrTok *puTok, const char *pStr, int32_t nLen, uint32_t bEmptyOnFail);

/// Searches the n-th occurrence: the token is everything before it, the cursor moves after it.
/// nCount     in      n; below 1 the last occurrence is meant
/// Returns    the number of occurrences found. Fewer than n is a failure, although not 0: token and cursor are as
///            before (or bEmptyOnFail applies), while the two delimiter lengths are those of the last one found.
int32_t TStrTok_FindNth(TStrTok *puTok, int32_t nCount, const char *pStr, int32_t nLen, uint32_t bEmptyOnFail);

/// Expects a string at the cursor and makes it the token.
int32_t TStrTok_MatchStr(TStrTok *puTok, const char *pStr, int32_t nLen, uint32_t bEmptyOnFail);

/// As TStrTok_MatchStr; ASCII letters match in either case.
int32_t TStrTok_MatchStrNoCase(TStrTok *puTok, const char *pStr, int32_t nLen, uint32_t bEmptyOnFail);

/// Makes the next characters the token. The delimiter lengths stay.
/// nLen       in      how many; below 1: all the rest, which must have at least one
/// Returns    1; 0 when there are fewer: the rest is the token nevertheless. 0 at the end of the source: the tokenizer
///            is exhausted then.
int32_t TStrTok_MatchLen(TStrTok *puTok, int32_t nLen);

/// Makes all that is left the token: TStrTok_MatchLen with 0.
int32_t TStrTok_Match2End(TStrTok *puTok);

/// Returns whether nothing is left.
/// Returns    1 exhausted, or the cursor is at the end of the source; 0 otherwise.
int32_t TStrTok_IsTokenEnd(const TStrTok *puTok);

/// Advances to the next field of a list: the token is the field, the cursor moves after the delimiter.
/// pDelimiter in      the string that ends a field; when NULL or empty, the rest is one field
/// bCanEmpty  in      not 0: each delimiter ends a field, which may be empty, also the one after the last delimiter;
///                    0: empty fields are skipped
/// nLen       in      length of the delimiter, as for TStrTok_Find
/// Returns    1 there was a field, 0 there was none: the tokenizer is exhausted.
int32_t TStrTok_GoDelimit_Str(TStrTok *puTok, const char *pDelimiter, uint32_t bCanEmpty, int32_t nLen);

/* ---- The token ----------------------------------------------------------------------------------------------- */

/// Copies the token, trimmed when the record says so.
/// pBuf       out     the copy, cut at nBufSize - 1 characters, NUL-terminated; empty when exhausted
/// nBufSize   in      room in pBuf, in bytes, at least 1; below 1 nothing is written
/// pnLen      out     length of the copy, 0 when exhausted; may be NULL
/// Returns    1, also for an empty token; 0 exhausted.
int32_t TStrTok_GetToken(const TStrTok *puTok, char *pBuf, int32_t nBufSize, int32_t *pnLen);

/// Copies the token with what stood around it; for the rest as TStrTok_GetToken.
/// bWithLeadingDelim in   not 0: begin nPrevDelimLen characters before the token, but not before the source
/// bUpToCursor       in   not 0: end at the cursor instead of the token's end
int32_t TStrTok_GetTokenEx(const TStrTok *puTok, char *pBuf, int32_t nBufSize, uint32_t bWithLeadingDelim,
                           uint32_t bUpToCursor, int32_t *pnLen);

/// Opens a second tokenizer over the token, with the same trimming.
/// puSub      out     the second record; exhausted when the first is. An empty token opens, as a length of 0 does
///                    everywhere, the text from there to the next NUL, though not beyond the end of the source
int32_t TStrTok_Token2Tok(const TStrTok *puTok, TStrTok *puSub);

/// Opens a second tokenizer over what TStrTok_GetTokenEx would copy, untrimmed; for the rest as TStrTok_Token2Tok.
int32_t TStrTok_Token2TokEx(const TStrTok *puTok, TStrTok *puSub, uint32_t bWithLeadingDelim, uint32_t bUpToCursor);

/// Copies the whole source, never trimmed.
/// pBuf       out     the copy, cut at nBufSize - 1 characters, NUL-terminated; empty for a NULL source
/// nBufSize   in      room in pBuf, in bytes, at least 1; below 1 nothing is written
/// Returns    the position of the terminating NUL in pBuf.
char *TStrTok_GetSource(const TStrTok *puTok, char *pBuf, int32_t nBufSize);

/// Compares the token with the beginning of a string, as many characters as the token has: the token "ab" is "abc",
/// and an empty token is any string.
/// pStr       in      NUL-terminated; not NULL
/// Returns    1 they are the same, 0 not.
int32_t TStrTok_TokenIs(const TStrTok *puTok, const char *pStr);

/// As TStrTok_TokenIs; ASCII letters are the same in either case.
int32_t TStrTok_TokenIsNoCase(const TStrTok *puTok, const char *pStr);

/// Searches a string inside the token. No position changes.
/// nLen       in      as for TStrTok_Find
/// Returns    the first occurrence; NULL when there is none, or the string is NULL or empty.
const char *TStrTok_FindInToken(const TStrTok *puTok, const char *pStr, int32_t nLen);

/* ---- Positions: the fields, and their distances from the source's beginning in characters -------------------- */

const char *TStrTok_GetSourcePtr(const TStrTok *puTok);
const char *TStrTok_GetSourceEnd(const TStrTok *puTok);
int32_t TStrTok_GetSourceLen(const TStrTok *puTok); /* 0 for a NULL source */
const char *TStrTok_GetTokenPtr(const TStrTok *puTok);
const char *TStrTok_GetTokenEndPtr(const TStrTok *puTok);
const char *TStrTok_GetCurPtr(const TStrTok *puTok);
int32_t TStrTok_GetTokenPos(const TStrTok *puTok);
int32_t TStrTok_GetTokenEndPos(const TStrTok *puTok);
int32_t TStrTok_GetCurPos(const TStrTok *puTok); /* meaningless once exhausted */
int32_t TStrTok_GetTokenLen(const TStrTok *puTok);

DEVSUPPORT_END_API

#endif
