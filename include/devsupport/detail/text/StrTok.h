// SPDX-License-Identifier: MIT
/* Internal operations of the tokenizer: the position rules that every scan uses. Callable, not promised. */
#ifndef DEVSUPPORT_DETAIL_TEXT_STRTOK_H
#define DEVSUPPORT_DETAIL_TEXT_STRTOK_H

#include <devsupport/text/StrTok.h>

DEVSUPPORT_BEGIN_API

/// The token is the text between cursor and pFound; the cursor moves to nLen characters after pFound.
void _SetPosFound(TStrTok *puTok, const char *pFound, int32_t nLen);

/// The token is the next nLen characters; the cursor moves after them.
void _SetPosLen(TStrTok *puTok, int32_t nLen);

/// The token is the rest; the cursor moves to the end of the source.
void _SetPosToEnd(TStrTok *puTok);

/// The token becomes empty where it began; the tokenizer is exhausted.
void _SetPosEmpty(TStrTok *puTok);

/// The last field of a list whose fields can be empty: all that is left, which is nothing after a delimiter that ends
/// the source.
/// Returns    1; 0 when the token before already reached the end of the source: the tokenizer is exhausted then, and
///            when it was before.
int32_t _Match2End_CanEmpty(TStrTok *puTok);

DEVSUPPORT_END_API

#endif
