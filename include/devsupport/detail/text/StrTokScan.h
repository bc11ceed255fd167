// SPDX-License-Identifier: MIT
/* Internal operations of the tokenizer's scans by sets. Callable, not promised. */
#ifndef DEVSUPPORT_DETAIL_TEXT_STRTOKSCAN_H
#define DEVSUPPORT_DETAIL_TEXT_STRTOKSCAN_H

#include <devsupport/text/StrTokScan.h>

DEVSUPPORT_BEGIN_API

/// Does the work of the two Find operations; arguments as theirs, in another order.
/// bWant      in      1 runs of members, 0 runs of non-members
int32_t _FindAnyChar(TStrTok *puTok, uint32_t bWant, uint32_t dwClasses, const char *pExtra, int32_t nMin,
                     int32_t nMax, uint32_t bEmptyOnFail);

/// Does the work of the two Match operations; arguments as theirs, in another order.
/// bWant      in      1 a run of members, 0 a run of non-members
int32_t _MatchAnyChar(TStrTok *puTok, uint32_t bWant, uint32_t dwClasses, const char *pExtra, int32_t nMin,
                      int32_t nMax, uint32_t bEmptyOnFail);

DEVSUPPORT_END_API

#endif
