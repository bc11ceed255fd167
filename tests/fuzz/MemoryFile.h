// SPDX-License-Identifier: MIT
// A file in memory, and the path by which it can be opened.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace devsupport::test {

/// One file for the whole process: the next object gives it another text.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view text) {
    if (::ftruncate(Descriptor(), 0) != 0 || ::pwrite(Descriptor(), text.data(), text.size(), 0) < 0)
      throw std::runtime_error("cannot write into memory");
  }
  static const std::string &Path() {
    static const std::string path = "/proc/self/fd/" + std::to_string(Descriptor());
    return path;
  }

 private:
  static int Descriptor() {
    static const int fd = ::memfd_create("text", 0);
    return fd;
  }
};

}  // namespace devsupport::test
