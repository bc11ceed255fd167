// SPDX-License-Identifier: MIT
/* Tokenizer, scanning by sets of characters: runs of members or non-members, and lists with several delimiters. */
#ifndef DEVSUPPORT_TEXT_STRTOKSCAN_H
#define DEVSUPPORT_TEXT_STRTOKSCAN_H

#include <devsupport/Api.h>
#include <devsupport/text/StrTok.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/*
 * The rules of StrTok.h hold. The set of a scan is the union of classes and extra characters:
 *   dwClasses    in    0 to 7: 1 digits + 2 upper-case letters + 4 lower-case letters, ASCII only
 *   pExtra       in    NUL-terminated text of further members; NULL or empty: none
 * Bytes of 0x80 and above are characters that belong to no set; in pExtra they are ignored. A scan without a class
 * and without extra characters fails.
 *
 * The length of a run is bounded:
 *   nMin         in    fewest characters
 *   bEmptyOnFail in    what a failure leaves, see StrTok.h; mind its place between the two numbers
 *   nMax         in    most characters: a longer run is cut there. Below nMin there is no limit; 0 acts as 1
 */

/// Searches a run of members: the token is the text before it, the cursor moves after it, and nDelimLen is its length.
/// A run shorter than nMin is passed over, but its characters count: the runs after it need only make up the rest, and
/// nDelimLen is the sum. The cursor then moves that far after the beginning of the last run, if necessary beyond the
/// end of the source; nothing is read there. With nMin of 1 or less this cannot happen.
int32_t TStrTok_FindAnyChar(TStrTok *puTok, uint32_t dwClasses, const char *pExtra, int32_t nMin,
                            uint32_t bEmptyOnFail, int32_t nMax);

/// As TStrTok_FindAnyChar, for a run of characters that are not in the set.
int32_t TStrTok_FindNotAnyChar(TStrTok *puTok, uint32_t dwClasses, const char *pExtra, int32_t nMin,
                               uint32_t bEmptyOnFail, int32_t nMax);

/// Expects a run of members at the cursor and makes it the token; nDelimLen is its length. With nMin of 0 or less an
/// empty run will do: it sets nDelimLen to 0 and, unlike any other success, leaves nPrevDelimLen alone.
int32_t TStrTok_MatchAnyChar(TStrTok *puTok, uint32_t dwClasses, const char *pExtra, int32_t nMin,
                             uint32_t bEmptyOnFail, int32_t nMax);

/// As TStrTok_MatchAnyChar, for a run of characters that are not in the set.
int32_t TStrTok_MatchNotAnyChar(TStrTok *puTok, uint32_t dwClasses, const char *pExtra, int32_t nMin,
                                uint32_t bEmptyOnFail, int32_t nMax);

/// Advances to the next field of a list: the token is the field, the cursor moves after the delimiter.
/// pDelimiters in     each of these characters ends a field; when NULL or empty, the rest is one field
/// bCanEmpty   in     not 0: each delimiter ends a field, which may be empty, also the one after the last delimiter;
///                    0: neighbouring delimiters count as one, and empty fields are skipped
/// Returns    1 there was a field, 0 there was none: the tokenizer is exhausted.
int32_t TStrTok_GoDelimit_AnyChar(TStrTok *puTok, const char *pDelimiters, uint32_t bCanEmpty);

DEVSUPPORT_END_API

#endif
