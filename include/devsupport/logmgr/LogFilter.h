// SPDX-License-Identifier: MIT
/* A process's log filter out of the configuration store: settings that hold lists of the form sipd=3,cfgd=5. */
#ifndef DEVSUPPORT_LOGMGR_LOGFILTER_H
#define DEVSUPPORT_LOGMGR_LOGFILTER_H

#include <devsupport/Api.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// Reads one process's entry out of a list: name=number, entries parted by ',' or ';'.
/// pName      in      the process's name. The first place in the list where the name and '=' stand counts, be it the
///                    end of a longer name: d finds its number in sipd=2. 126 characters count at most
/// pKey       in      name of the setting, in "tb_parameter" (db/DbParam.h); of its text 255 characters at most: a
///                    longer one is as none
/// nDefault   in      the answer without an entry, without the setting, and while the store is closed
/// Returns    the entry's number; 0 when it has something else than a number, or nothing.
/// Prints     what GetDbParamToStr prints.
/// Threads    as GetDbParamToStr.
/// Signals    no.
int GetDbLogParam(const char *pName, const char *pKey, int nDefault);

/// Sets this process's filter (TLogInfoShm_ChangeFilter) to its entries in the settings "dbl" (level, 4 without one) and
/// "dbm" (module mask, 7 without one).
/// pName      in      the process's name, as in GetDbLogParam
/// pnLevel    out     the level now in force; may be NULL
/// pdwMask    out     the mask now in force; may be NULL
/// Prints     as GetDbLogParam.
/// Threads    one thread, with the store open.
/// Signals    no.
void LogInfo_LoadFilter(const char *pName, int *pnLevel, uint32_t *pdwMask);

DEVSUPPORT_END_API

#endif
