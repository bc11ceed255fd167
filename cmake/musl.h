// SPDX-License-Identifier: MIT
/* Comes before every source of the preset musl: what the C++ library's headers of a compiler made for glibc take for
 * granted. The library of a compiler made for musl is configured without them. */
#pragma once
#define __GLIBC_PREREQ(major, minor) 0
#ifdef __cplusplus
#define __locale_t locale_t
#include <bits/c++config.h>
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
#endif
