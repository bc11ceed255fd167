// SPDX-License-Identifier: MIT
// Small files, read and written whole.

#include "tools/common/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

namespace tools {

namespace {

constexpr mode_t kMode = 0644;

/// read() and write() through signals.
template <typename Call>
ssize_t Retry(Call call) {
  ssize_t result = 0;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = Retry([&] { return ::write(fd, text.data(), text.size()); });
    if (written < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

bool ReadFile(const char *path, std::span<char> room, std::size_t &size) {
  size = 0;
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char beyond = 0;
  ssize_t got = 1;
  while (got > 0) {
    const bool isFull = size == room.size();
    got = Retry([&] { return ::read(fd, isFull ? &beyond : room.data() + size, isFull ? 1 : room.size() - size); });
    if (isFull && got > 0) {
      errno = EFBIG;
      got = -1;
    }
    if (got > 0) size += static_cast<std::size_t>(got);
  }
  const int error = errno;
  ::close(fd);
  errno = error;
  return got == 0;
}

bool ReplaceFile(const char *path, std::string_view text) {
  char beside[PATH_MAX];
  const int length = std::snprintf(beside, sizeof beside, "%s.new", path);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof beside) {
    errno = ENAMETOOLONG;
    return false;
  }
  const int fd = ::open(beside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kMode);
  if (fd < 0) return false;
  bool isDone = WriteAll(fd, text);
  isDone = ::close(fd) == 0 && isDone;
  if (isDone && ::rename(beside, path) == 0) return true;
  const int error = errno;
  ::unlink(beside);
  errno = error;
  return false;
}

}  // namespace tools
