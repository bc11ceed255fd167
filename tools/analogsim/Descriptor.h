// SPDX-License-Identifier: MIT
// An open file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace analogsim {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }

 private:
  int fd_;
};

/// Writes all of it, however many calls that takes; false, with errno set, when it cannot.
inline bool WriteAll(int fd, const char *text, std::size_t length) {
  while (length > 0) {
    const ssize_t written = ::write(fd, text, length);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace analogsim
