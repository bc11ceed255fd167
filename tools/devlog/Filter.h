// SPDX-License-Identifier: MIT
// Which messages are shown.
#pragma once

#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tools/devlog/Message.h"

namespace devlog {

/// Which messages the options select.
struct Wanted {
  std::uint16_t types = 0xFFFF;  ///< one bit for each record type
  DayTime since = kUnknownTime;  ///< first time that is shown
  DayTime until = kUnknownTime;  ///< last time that is shown; if before `since`, on the next day
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

  /// False when a pattern is wrong: Mistaken() returns it, and Complaint() the reason.
  bool IsUsable() const { return usable_ == wanted_.patternCount; }
  const char *Mistaken() const { return wanted_.patterns[usable_]; }
  const char *Complaint() const { return complaint_; }

  /// text     the message's text; NUL-terminated
  /// process  the name in front of it; empty when there is none
  /// True for damaged cells and notes about lost records: their contents are not known.
  bool Passes(const Message &message, std::string_view text, std::string_view process) const;

 private:
  bool IsInTime(DayTime time) const;
  bool IsWantedProcess(std::string_view process) const;
  bool MatchesAny(std::string_view text) const;

  Wanted wanted_;
  regex_t regexes_[Wanted::kMaxPatterns] = {};
  std::size_t usable_ = 0;  // the first usable_ expressions are compiled
  char complaint_[128] = "";
};

}  // namespace devlog
