// SPDX-License-Identifier: MIT
// What the processes of one test tell each other: counters and flags in memory that forked children share.
#pragma once

#include <sys/mman.h>

#include <new>
#include <stdexcept>

namespace devsupport::test {

/// One T of lock-free atomics, zero at first, in memory that children forked later share with their parent.
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
