// SPDX-License-Identifier: MIT
// Counters and flags in memory that forked children share with their parent.
#pragma once

#include <sys/mman.h>

#include <new>
#include <stdexcept>

namespace devsupport::test {

/// One T, zero at first, in memory that is shared with children forked later.
template <typename T>
class SharedBlock {
 public:
  SharedBlock() : map_(::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (map_ == MAP_FAILED) throw std::runtime_error("cannot map shared memory");
    block_ = new (map_) T{};
  }
  ~SharedBlock() { ::munmap(map_, sizeof(T)); }
  SharedBlock(const SharedBlock &) = delete;
  SharedBlock &operator=(const SharedBlock &) = delete;

  T *operator->() const { return block_; }
  T &operator*() const { return *block_; }

 private:
  void *map_;
  T *block_;
};

}  // namespace devsupport::test
