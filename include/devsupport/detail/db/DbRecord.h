// SPDX-License-Identifier: MIT
/* Internal operations of the configuration store's records. */
#ifndef DEVSUPPORT_DETAIL_DB_DBRECORD_H
#define DEVSUPPORT_DETAIL_DB_DBRECORD_H

#include <devsupport/Api.h>

DEVSUPPORT_BEGIN_API

/// The telephone key that carries a character.
/// c          in      any character
/// Returns    '2' to '9' for a letter, the digit itself for a digit, '0' for a blank, 0 (no key) for anything else.
/// Prints     nothing.
/// Threads    safe.
/// Signals    yes.
char _Letter2Num(char c);

DEVSUPPORT_END_API

#endif
