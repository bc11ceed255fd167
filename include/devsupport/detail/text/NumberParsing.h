// SPDX-License-Identifier: MIT
/* Internal operations of number parsing: callable, not promised. */
#ifndef DEVSUPPORT_DETAIL_TEXT_NUMBERPARSING_H
#define DEVSUPPORT_DETAIL_TEXT_NUMBERPARSING_H

#include <devsupport/text/NumberParsing.h>

DEVSUPPORT_BEGIN_API

/// Does the work of Str2Double and Str2Float; arguments and results as of Str2Double.
int _Str2Double(const char *pText, double *pdResult);

DEVSUPPORT_END_API

#endif
