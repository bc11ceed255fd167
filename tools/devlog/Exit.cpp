// What devlog says besides its data.

#include "tools/devlog/Exit.h"

#include <cstdarg>
#include <cstdio>

namespace devlog {

void Say(const char *format, ...) {
  std::fflush(stdout);  // what was shown before stands before it
  std::fputs("devlog: ", stderr);
  va_list values;
  va_start(values, format);
  std::vfprintf(stderr, format, values);
  va_end(values);
  std::fputc('\n', stderr);
}

}  // namespace devlog
