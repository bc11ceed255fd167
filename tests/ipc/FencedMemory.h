// SPDX-License-Identifier: MIT
// Memory between inaccessible pages. An access outside it stops the test.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace devsupport::test {

/// Shared memory of any size between two inaccessible pages, next to the first or to the second.
class FencedMemory {
 public:
  enum class Against { Front, Back };

  FencedMemory(std::size_t size, Against side) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t inner = (size + page - 1) / page * page;
    total_ = inner + 2 * page;
    map_ = ::mmap(nullptr, total_, PROT_NONE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto *first = static_cast<std::uint8_t *>(map_) + page;
    ::mprotect(first, inner, PROT_READ | PROT_WRITE);
    start_ = side == Against::Front ? first : first + inner - size;
  }
  ~FencedMemory() { ::munmap(map_, total_); }
  FencedMemory(const FencedMemory &) = delete;
  FencedMemory &operator=(const FencedMemory &) = delete;

  std::uint8_t *Start() const { return start_; }

 private:
  void *map_;
  std::size_t total_;
  std::uint8_t *start_;
};

}  // namespace devsupport::test
