// SPDX-License-Identifier: MIT
// Which messages are shown.
#pragma once

#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tools/devlog/Message.h"

namespace devlog {

/// What the options ask for.
struct Wanted {
  std::uint16_t types = 0xFFFF;  ///< one bit a record type
  DayTime since = kUnknownTime;  ///< first moment that is shown
  DayTime until = kUnknownTime;  ///< last moment that is shown; before `since`: on the next day
  static constexpr std::size_t kMaxPatterns = 16;
  const char *patterns[kMaxPatterns] = {};  ///< extended regular expressions, one of which the text must match
  std::size_t patternCount = 0;
  bool ignoreCase = false;
  const char *processes = nullptr;  ///< names with commas between them, all known to Names
  bool invert = false;              ///< none of the expressions may match
};

class Filter {
 public:
  explicit Filter(const Wanted &wanted);
  ~Filter();
  Filter(const Filter &) = delete;
  Filter &operator=(const Filter &) = delete;

  /// False when a pattern is no regular expression: Mistaken() is it, and Complaint() says why.
  bool IsUsable() const { return usable_ == wanted_.patternCount; }
  const char *Mistaken() const { return wanted_.patterns[usable_]; }
  const char *Complaint() const { return complaint_; }

  /// text     the message's text; NUL-terminated
  /// process  the name in front of it; empty when there is none
  /// Damaged cells and notes about lost records always pass: their contents are not known.
  bool Passes(const Message &message, std::string_view text, std::string_view process) const;

 private:
  bool IsInTime(DayTime time) const;
  bool IsWantedProcess(std::string_view process) const;
  bool MatchesAny(std::string_view text) const;

  Wanted wanted_;
  regex_t regexes_[Wanted::kMaxPatterns] = {};
  std::size_t usable_ = 0;  // of the expressions, from the first on
  char complaint_[128] = "";
};

}  // namespace devlog
