// SPDX-License-Identifier: MIT
// Standard input, output and error, which a caller may have closed.

#include "tools/common/StandardDescriptors.h"

#include <fcntl.h>

namespace tools {

bool OccupyStandardDescriptors() {
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_RDONLY};
  for (int fd = 0; fd < 3; ++fd) {
    if (::fcntl(fd, F_GETFD) < 0 && ::open("/dev/null", kModes[fd] | O_CLOEXEC) != fd) return false;
  }
  return true;
}

}  // namespace tools
