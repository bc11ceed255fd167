// SPDX-License-Identifier: MIT
// Suppresses messages of Berkeley DB that are expected, or that one sentence summarises afterwards.
#pragma once

#include <db.h>

namespace devsupport::store {

inline void StaySilent(const DB_ENV * /*pEnv*/, const char * /*pPrefix*/, const char * /*pMessage*/) {}

}  // namespace devsupport::store
