// SPDX-License-Identifier: MIT
// A buffer on the heap of exactly the required size, between bytes that must not change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace devsupport::test {

/// A size that means no limit.
inline constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

class GuardedBuffer {
 public:
  static constexpr char kGuard = '\x5a';
  static constexpr std::size_t kGuardBytes = 16;

  /// All bytes read as 'Z'.
  explicit GuardedBuffer(std::size_t size) : size_(size), bytes_(size + 2 * kGuardBytes, kGuard) {}
  /// A text and its NUL at the beginning of the buffer.
  GuardedBuffer(std::size_t size, const std::string &text) : GuardedBuffer(size) {
    text.copy(Data(), text.size());
    Data()[text.size()] = '\0';
  }

  char *Data() { return bytes_.data() + kGuardBytes; }
  int Size() const { return static_cast<int>(size_); }

  /// The text up to the first NUL; up to the buffer's end when there is none.
  std::string Text() {
    const std::string_view all(Data(), size_);
    return std::string(all.substr(0, all.find('\0')));
  }
  /// Every byte of the buffer, NULs included; unwritten bytes read as 'Z'.
  std::string Bytes() { return {Data(), size_}; }

  bool GuardsIntact() const {
    for (std::size_t i = 0; i < kGuardBytes; ++i)
      if (bytes_[i] != kGuard || bytes_[kGuardBytes + size_ + i] != kGuard) return false;
    return true;
  }

 private:
  std::size_t size_;
  std::vector<char> bytes_;
};

}  // namespace devsupport::test
