// SPDX-License-Identifier: MIT
// One line of output: built in place, escaped, never longer than its room.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "tools/common/Escape.h"
#include "tools/devlog/Message.h"

namespace devlog {

class Line {
 public:
  std::string_view Text() const { return {text_, length_}; }
  void Clear() { length_ = 0; }

  void Add(std::string_view text) {
    const std::size_t taken = std::min(text.size(), sizeof text_ - length_);
    if (taken != 0) std::memcpy(text_ + length_, text.data(), taken);
    length_ += taken;
  }
  void Add(char character) { Add(std::string_view(&character, 1)); }
  /// Decimal, filled up on the left to this width.
  void AddNumber(std::uint32_t number, unsigned places = 1, char fill = '0');
  /// Two lower-case hexadecimal digits.
  void AddHex(std::uint8_t byte);
  /// "12:34:56.789", or the same with dashes for an unknown time.
  void AddTime(DayTime time);

  /// The text with control characters, and bytes that are not UTF-8, as \xNN: a terminal could take them for
  /// commands.
  void AddForPeople(std::string_view text);
  /// The text as the inside of a JSON string.
  void AddForJson(std::string_view text, tools::Form form);

 private:
  static constexpr std::size_t kLongestEscape = 6;
  static constexpr std::size_t kAroundTheText = 512;

  char text_[kMaxText * kLongestEscape + kAroundTheText];
  std::size_t length_ = 0;
};

}  // namespace devlog
