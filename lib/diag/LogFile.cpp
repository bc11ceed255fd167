// SPDX-License-Identifier: MIT
// Log files: every record opens its file afresh, appends and closes it again; no handle is kept.

#include <devsupport/detail/diag/LogFile.h>
#include <devsupport/diag/LogFile.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

namespace {

constexpr char kAppendMode[] = "a+t";
constexpr std::size_t kLineTextBytes = 256;
// As many words as the register-passing hosts keep for the values after two named arguments: reading that many
// touches the caller's registers only, however few values there are.
constexpr std::size_t kCopiedWords = 4;

// Kept: the records have a place for a time stamp, and it stays empty. Readers of the files count on its blanks.
constexpr char kTimeStamp[] = "";

// The memory that holds the variable arguments. On the device the list is its address. Elsewhere the values are in
// registers, so the first of them are copied, with a zero word after them to end a text.
template <typename TList>
const void *ArgumentArea(TList &list, std::uintptr_t (&adwCopy)[kCopiedWords + 1]) {
  if constexpr (std::is_pointer_v<TList>) {
    return list;
  } else {
    for (std::size_t i = 0; i < kCopiedWords; ++i) {
      // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started it
      adwCopy[i] = va_arg(list, std::uintptr_t);
    }
    return adwCopy;
  }
}

}  // namespace

int _WriteLogAt(const char *pPath, const char *pText, const char *pFile, int nLine) {
  std::FILE *pLog = std::fopen(pPath, kAppendMode);
  if (pLog == nullptr) return 0;  // Kept: the same answer as after a record that was written.
  std::fprintf(pLog, "%s \n    at %s  File: %s  Line: %d\n", pText, kTimeStamp, pFile, nLine);
  return std::fclose(pLog);
}

void _WriteLog(const char *pPath, const char *pText) {
  std::FILE *pLog = std::fopen(pPath, kAppendMode);
  if (pLog == nullptr) return;
  std::fprintf(pLog, "%s %s\n", kTimeStamp, pText);
  std::fclose(pLog);
}

void WriteLogFmt(const char *pPath, const char *pFormat, ...) {
  char szText[kLineTextBytes] = "";
  std::uintptr_t adwCopy[kCopiedWords + 1] = {};
  va_list args;
  va_start(args, pFormat);
  const void *pArea = ArgumentArea(args, adwCopy);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  // Kept: the format's one value is the address of the arguments, not the arguments. The null pointers are for
  // conversions that have no value at all.
  std::snprintf(szText, sizeof szText, pFormat, pArea, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
#pragma GCC diagnostic pop
  va_end(args);
  _WriteLog(pPath, szText);
}
