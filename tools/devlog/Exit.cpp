// SPDX-License-Identifier: MIT
// Messages of devlog to its user.

#include "tools/devlog/Exit.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace devlog {

// The line is written in one piece, so that it does not mix with those of other programs.
void Say(const char *format, ...) {
  std::fflush(stdout);  // so that earlier output comes first
  constexpr char kName[] = "devlog: ";
  constexpr std::size_t kNameBytes = sizeof kName - 1;
  char line[1024];
  std::copy(kName, kName + kNameBytes, line);
  const std::size_t room = sizeof line - kNameBytes - 1;  // one byte for the newline
  va_list values;
  va_start(values, format);
  const int size = std::vsnprintf(line + kNameBytes, room, format, values);
  va_end(values);
  const std::size_t used =
      kNameBytes + std::min<std::size_t>(size < 0 ? 0 : static_cast<std::size_t>(size), room - 1);
  line[used] = '\n';
  std::fwrite(line, 1, used + 1, stderr);
}

}  // namespace devlog
