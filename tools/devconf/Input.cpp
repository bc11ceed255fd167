// SPDX-License-Identifier: MIT
// Reads a file whole.

#include "tools/devconf/Input.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/devconf/Print.h"

namespace devconf {

namespace {

constexpr std::size_t kReadBytes = 65536;

bool IsStandardInput(const char *path) { return std::strcmp(path, "-") == 0; }

}  // namespace

const char *InputName(const char *path) { return IsStandardInput(path) ? "standard input" : path; }

bool ReadInput(const char *path, Bytes &text) {
  const int fd = IsStandardInput(path) ? STDIN_FILENO : ::open(path, O_RDONLY | O_CLOEXEC);
  ssize_t got = fd < 0 ? -1 : 1;
  while (got > 0) {
    const std::size_t size = text.Size();
    text.Resize(size + kReadBytes);
    do {
      got = ::read(fd, text.Data() + size, kReadBytes);
    } while (got < 0 && errno == EINTR);
    text.Resize(size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  }
  if (got < 0) Complain(std::strerror(errno), InputName(path));
  if (fd > STDERR_FILENO) ::close(fd);
  return got == 0;
}

}  // namespace devconf
