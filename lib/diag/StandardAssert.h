// SPDX-License-Identifier: MIT
// The standard assertion with texts that are part of a contract: they name the source as it is known in the
// field, whatever the file that holds the check is called today, and hold in builds with NDEBUG as well.
#pragma once

#include <cassert>

// The type in which the C library takes the line.
#ifdef __GLIBC__
using TAssertLine = unsigned;
#else
using TAssertLine = int;
#endif

// With NDEBUG the C library's header keeps its report to itself.
#ifdef NDEBUG
#ifdef __UCLIBC__
extern "C" [[noreturn]] void __assert(const char *pExpression, const char *pFile, TAssertLine line,
                                      const char *pFunction) noexcept;
#else
extern "C" [[noreturn]] void __assert_fail(const char *pExpression, const char *pFile, TAssertLine line,
                                           const char *pFunction) noexcept;
#endif
#endif

namespace devsupport {

/// Ends the process with the C library's report of a failed assertion when the precondition does not hold.
inline void StandardAssert(bool bHolds, const char *pExpression, const char *pFile, unsigned dwLine,
                           const char *pFunction) {
  if (bHolds) [[likely]]
    return;
#ifdef __UCLIBC__
  __assert(pExpression, pFile, static_cast<TAssertLine>(dwLine), pFunction);
#else
  __assert_fail(pExpression, pFile, static_cast<TAssertLine>(dwLine), pFunction);
#endif
}

}  // namespace devsupport
