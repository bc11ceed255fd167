// Which messages are shown.
#pragma once

#include <regex.h>

#include <cstdint>
#include <string_view>

#include "tools/devlog/Message.h"

namespace devlog {

/// What the options ask for.
struct Wanted {
  std::uint16_t types = 0xFFFF;   ///< one bit a record type
  DayTime since = kUnknownTime;   ///< first moment that is shown
  DayTime until = kUnknownTime;   ///< last moment that is shown; before `since`: on the next day
  const char *pattern = nullptr;  ///< extended regular expression that the text must match
};

class Filter {
 public:
  explicit Filter(const Wanted &wanted);
  ~Filter();
  Filter(const Filter &) = delete;
  Filter &operator=(const Filter &) = delete;

  /// False when the pattern is no regular expression; Complaint() says why.
  bool IsUsable() const { return error_ == 0; }
  const char *Complaint() const { return complaint_; }

  /// text  the message's text; NUL-terminated
  /// Damaged cells and notes about lost records always pass: nobody knows what they held.
  bool Passes(const Message &message, std::string_view text) const;

 private:
  bool IsInTime(DayTime time) const;
  bool Matches(std::string_view text) const;

  Wanted wanted_;
  regex_t regex_{};
  int error_ = 0;
  char complaint_[128] = "";
};

}  // namespace devlog
