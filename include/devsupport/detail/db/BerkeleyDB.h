// SPDX-License-Identifier: MIT
/* Internal operations of the configuration store's opening. */
#ifndef DEVSUPPORT_DETAIL_DB_BERKELEYDB_H
#define DEVSUPPORT_DETAIL_DB_BERKELEYDB_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// Creates and opens the shared environment, without any table. BerkDb_Close closes it, also after a failure.
/// pHome      in      folder of the environment; not NULL
/// Returns    1 open, 0 not.
/// Prints     "FAIL to create environment: (%d) %s\n" on standard error, with the library's number and text, when there
///            is no handle; "FAIL to open environment %s" through BerkDb_ErrCall otherwise.
/// Death      It recovers, and creates the regions, when no process is attached to the segment of key 0x12345678.
/// Lock       as BerkDb_Open.
/// Threads    one thread, once per process.
/// Signals    no.
int _BerkDb_CreateEnvir(const char *pHome);

DEVSUPPORT_END_API

#endif
