// SPDX-License-Identifier: MIT
// Distinguishes the store's System V objects from those of other programs.

#include "db/for_project/StoreKeys.h"

#include <unistd.h>

#include "db/for_project/OpenReport.h"

namespace devsupport::store {

bool IsOurs(const ipc_perm &object, const struct stat &home) {
  const auto isTrusted = [&](uid_t user) { return user == 0 || user == home.st_uid || user == geteuid(); };
  return (object.mode & S_IRWXO) == 0 && isTrusted(object.cuid) && isTrusted(object.uid);
}

void ReportForeign(const char *pKind, const ipc_perm &object) {
  ReportSentence("the %s at key 0x%x is not the store's (creator %u, mode %03o); remove it with ipcrm", pKind,
                 static_cast<unsigned>(kGateKey), static_cast<unsigned>(object.cuid),
                 static_cast<unsigned>(object.mode & 0777));
}

}  // namespace devsupport::store
