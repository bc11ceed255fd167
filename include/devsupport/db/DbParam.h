// SPDX-License-Identifier: MIT
/* Named settings: the parameter table of the configuration store, read with defaults. */
#ifndef DEVSUPPORT_DB_DBPARAM_H
#define DEVSUPPORT_DB_DBPARAM_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// Reads a setting as a number.
/// pName      in      name in "tb_parameter"
/// nDefault   in      the answer when there is no such setting, when it has more than 31 characters and a terminator,
///                    when it is no number (Str2Int, text/NumberParsing.h), and when the store is closed
/// Returns    the number or the default.
/// Prints     nothing, unless the store itself fails (BerkDb_Read).
/// Threads    safe between open and close.
/// Signals    no.
int32_t GetDbParamToInt(const char *pName, int32_t nDefault);

/// Reads a setting as a text.
/// pName      in      name in "tb_parameter"
/// pBuf       out     the text, with its terminator if it was stored with one or if there is room for one. When it
///                    cannot be read, the default: cut to nBufBytes, and then without a terminator; otherwise filled
///                    up with NUL
/// nBufBytes  in      room in pBuf, in bytes; below 1 nothing is written
/// pDefault   in      NUL-terminated; NULL = ""
/// Prints     nothing, unless the store itself fails (BerkDb_Read).
/// Threads    safe between open and close.
/// Signals    no.
void GetDbParamToStr(const char *pName, char *pBuf, int32_t nBufBytes, const char *pDefault);

DEVSUPPORT_END_API

#endif
