// SPDX-License-Identifier: MIT
// Keeps Berkeley DB from printing what is expected, or what is said in one sentence afterwards.
#pragma once

#include <db.h>

namespace devsupport::store {

inline void StaySilent(const DB_ENV * /*pEnv*/, const char * /*pPrefix*/, const char * /*pMessage*/) {}

}  // namespace devsupport::store
