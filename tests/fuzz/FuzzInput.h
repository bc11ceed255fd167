// SPDX-License-Identifier: MIT
// The bytes of one fuzzing input, read as what a target needs: numbers, pieces, or simply the rest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace devsupport::test {

class FuzzInput {
 public:
  FuzzInput(const std::uint8_t *data, std::size_t size) : rest_(reinterpret_cast<const char *>(data), size) {}

  bool IsUsedUp() const { return rest_.empty(); }

  /// One byte as a number below the limit, which is at most 256; 0 when the bytes are used up.
  std::size_t Below(std::size_t limit) {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return byte % limit;
  }

  /// The bytes before the next separator, which is removed as well.
  std::string UpTo(char separator) {
    const std::string piece(rest_.substr(0, rest_.find(separator)));
    rest_.remove_prefix(piece.size() < rest_.size() ? piece.size() + 1 : piece.size());
    return piece;
  }

  /// At most so many bytes.
  std::string_view Take(std::size_t count) {
    const std::string_view piece = rest_.substr(0, count);
    rest_.remove_prefix(piece.size());
    return piece;
  }

  std::string_view Rest() { return Take(rest_.size()); }

 private:
  std::string_view rest_;
};

}  // namespace devsupport::test
