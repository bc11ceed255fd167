// SPDX-License-Identifier: MIT
// A trace line with the local time.

#include <devsupport/diag/TraceNow.h>
#include "lib/diag/LocalTime.h"

#include <cstdio>

void TraceNow(const char *pLabel) {
  const devsupport::LocalTime now = devsupport::LocalTimeNow();
  std::fprintf(stderr, "%s now=[%02u:%02u:%02u.%03u]\n", pLabel != nullptr ? pLabel : "", now.dwHour, now.dwMinute,
               now.dwSecond, now.dwMs);
}
