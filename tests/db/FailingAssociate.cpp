// SPDX-License-Identifier: MIT
// Creates handles whose tables refuse to bind an index, or to be emptied.
#include "tests/db/FailingAssociate.h"

#include <db.h>

#include <cerrno>

bool devsupport::test::g_associateFails = false;
bool devsupport::test::g_truncateFails = false;

extern "C" int __real_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags);
extern "C" int __wrap_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags);
extern "C" int __wrap_db_create(DB **ppDb, DB_ENV *pEnv, u_int32_t flags) {
  const int result = __real_db_create(ppDb, pEnv, flags);
  if (result == 0 && devsupport::test::g_associateFails) {
    (*ppDb)->associate = [](DB *, DB_TXN *, DB *, int (*)(DB *, const DBT *, const DBT *, DBT *), u_int32_t) {
      return ENOMEM;
    };
  }
  if (result == 0 && devsupport::test::g_truncateFails)
    (*ppDb)->truncate = [](DB *, DB_TXN *, u_int32_t *, u_int32_t) { return EIO; };
  return result;
}
