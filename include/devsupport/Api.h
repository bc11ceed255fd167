// SPDX-License-Identifier: MIT
/* What every public header opens and closes its declarations with: C linkage and external visibility. */
#ifndef DEVSUPPORT_API_H
#define DEVSUPPORT_API_H

#ifdef __cplusplus
#define DEVSUPPORT_BEGIN_API \
  extern "C" {               \
  _Pragma("GCC visibility push(default)")
#define DEVSUPPORT_END_API      \
  _Pragma("GCC visibility pop") \
  }
#define DEVSUPPORT_NORETURN [[noreturn]]
#else
#define DEVSUPPORT_BEGIN_API _Pragma("GCC visibility push(default)")
#define DEVSUPPORT_END_API _Pragma("GCC visibility pop")
#define DEVSUPPORT_NORETURN __attribute__((noreturn))
#endif

/* Lets the compiler check the values after a printf-like format; positions count from 1. */
#define DEVSUPPORT_PRINTF(nFormat, nFirstValue) __attribute__((format(printf, nFormat, nFirstValue)))

#endif
