// SPDX-License-Identifier: MIT
// Console diagnostics: the error printer of all non-fatal messages, and the fatal report.

#include <devsupport/diag/Diagnostics.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kErrTextBytes = 256;
constexpr std::size_t kBreakTextBytes = 512;

}  // namespace

TErrOutputFunc g_pfnErrOutput = MyErrOutputDefault;

int MyErrPrintf(const char *pFormat, ...) {
  char szText[kErrTextBytes] = "";
  va_list args;
  va_start(args, pFormat);
  std::vsnprintf(szText, sizeof szText, pFormat, args);
  va_end(args);
  return g_pfnErrOutput != nullptr ? g_pfnErrOutput(szText) : 0;
}

int MyErrOutputDefault(const char *pText) { return std::fprintf(stderr, "%s\n", pText); }

TErrOutputFunc MyErrSetOutput(TErrOutputFunc fn) {
  g_pfnErrOutput = fn;
  return fn;  // Kept: the output just installed, not the one before it.
}

void MyDebugBreak(const char *pFormat, ...) {
  char szText[kBreakTextBytes] = "";
  va_list args;
  va_start(args, pFormat);
  std::vsnprintf(szText, sizeof szText, pFormat, args);
  va_end(args);
  std::fprintf(stderr, "\n\n%s", szText);
  // Kept: standard output is flushed, not standard error. The program's output before the failure is still in
  // stdout's buffer and would be lost in abort(); stderr has none.
  std::fflush(stdout);
  std::abort();
}
