// SPDX-License-Identifier: MIT
// An index that cannot be bound to its table, or not emptied. Needs WRAP db_create and FailingAssociate.cpp in the
// test's program.
#pragma once

namespace devsupport::test {

/// While it is set, new handles refuse to bind an index.
extern bool g_associateFails;

/// While it is set, new handles refuse to empty their table.
extern bool g_truncateFails;

}  // namespace devsupport::test
