// SPDX-License-Identifier: MIT
/* Tokenizer, typed values: the token as a number, and shorthands that advance and copy or convert in one call. */
#ifndef DEVSUPPORT_TEXT_STRTOKCONVERT_H
#define DEVSUPPORT_TEXT_STRTOKCONVERT_H

#include <devsupport/Api.h>
#include <devsupport/text/StrTok.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/* ---- The token as a number --------------------------------------------------------------------------------------
 *
 * The first 15 characters of the token go to the parser of the same name in NumberParsing.h, never trimmed; a longer
 * token is cut there without notice. The rules of StrTok.h hold.
 *   Returns  what the parser returns; 0 when exhausted.
 * The result holds what the parser leaves in it, also on failure; it is untouched when exhausted.
 */

int32_t TStrTok_Token2Int(const TStrTok *puTok, int32_t *pnResult);
int32_t TStrTok_Token2Word(const TStrTok *puTok, uint16_t *pwResult);
int32_t TStrTok_Token2Byte(const TStrTok *puTok, uint8_t *pbyResult);
int32_t TStrTok_Token2Float(const TStrTok *puTok, float *pfResult);
int32_t TStrTok_Token2Double(const TStrTok *puTok, double *pdResult);

/// As TStrTok_Token2Int.
/// Returns    the value; 0 when the token is no number, or exhausted.
int32_t TStrTok_Token2Int_Ret(const TStrTok *puTok);

/* ---- Advance, then copy or convert ------------------------------------------------------------------------------
 *
 * The second step is done even when the first one failed; the result is 1 when both succeeded. Arguments are those of
 * the two operations named.
 */

/// TStrTok_Find with bEmptyOnFail, then TStrTok_GetToken: a delimiter that is missing gives an empty copy.
int32_t TStrTok_FindGetToken(TStrTok *puTok, char *pBuf, int32_t nBufSize, const char *pDelimiter, int32_t nLen);

/// TStrTok_Find with bEmptyOnFail, then TStrTok_Token2Int: a delimiter that is missing leaves the result untouched.
int32_t TStrTok_FindToken2Int(TStrTok *puTok, int32_t *pnResult, const char *pDelimiter, int32_t nLen);

/// TStrTok_MatchLen, then TStrTok_GetToken: where too few characters are left, they are copied and the result is 0.
int32_t TStrTok_MatchLenGetToken(TStrTok *puTok, char *pBuf, int32_t nBufSize, int32_t nLen);

/// TStrTok_MatchLen, then TStrTok_Token2Int: where too few characters are left, they are converted and the result is 0.
int32_t TStrTok_MatchLen2Int(TStrTok *puTok, int32_t *pnResult, int32_t nLen);

/// TStrTok_Match2End, then TStrTok_GetToken.
int32_t TStrTok_Match2EndGetToken(TStrTok *puTok, char *pBuf, int32_t nBufSize);

/// TStrTok_Match2End, then TStrTok_Token2Int.
int32_t TStrTok_Match2End2Int(TStrTok *puTok, int32_t *pnResult);

DEVSUPPORT_END_API

#endif
