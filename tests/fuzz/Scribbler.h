// SPDX-License-Identifier: MIT
// A thread that writes into memory while others read it, as any process may write into shared memory: a value
// can change between its check and its use.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace devsupport::test {

/// While alive, overwrites words of a block: mostly of its head, mostly with numbers that are nearly valid. The thread
/// only yields while there is no such object.
class Scribble {
 public:
  Scribble(void *block, std::size_t bytes, std::uint32_t seed) {
    static const std::jthread s_thread(Run);
    s_words = static_cast<std::uint32_t *>(block);
    s_count = bytes / sizeof(std::uint32_t);
    s_seed = seed;
    s_writes = 0;
    s_active = true;
    while (s_writes == 0) std::this_thread::yield();
  }
  ~Scribble() {
    s_active = false;
    while (s_busy) std::this_thread::yield();
  }
  Scribble(const Scribble &) = delete;
  Scribble &operator=(const Scribble &) = delete;

 private:
  static constexpr std::size_t kHeadWords = 80;  // a ring's header, and the user area after it

  static void Run(const std::stop_token &stop) {
    std::uint32_t random = 1;
    while (!stop.stop_requested()) {
      s_busy = true;
      if (s_active) {
        random = (random ^ s_seed) * 2654435761U + 12345;
        const std::uint32_t where = random >> 8;
        const std::size_t limit = where % 4 != 0 && s_count > kHeadWords ? kHeadWords : s_count.load();
        const std::uint32_t values[] = {0, random >> 27, random >> 20, random, UINT32_MAX, 0x7FFFFFFF, 136, 137};
        __atomic_store_n(&s_words[where % limit], values[random % 8], __ATOMIC_RELAXED);
        s_writes = s_writes + 1;
        s_busy = false;
      } else {
        s_busy = false;
        std::this_thread::yield();
      }
    }
  }

  static inline std::atomic<bool> s_active{false}, s_busy{false};
  static inline std::atomic<std::uint32_t *> s_words{nullptr};
  static inline std::atomic<std::size_t> s_count{0};
  static inline std::atomic<std::uint32_t> s_seed{0}, s_writes{0};
};

}  // namespace devsupport::test
