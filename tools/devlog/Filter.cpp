// SPDX-License-Identifier: MIT
// Which messages are shown.

#include "tools/devlog/Filter.h"

#include <algorithm>
#include <cerrno>

#include "tools/common/Text.h"

namespace devlog {

namespace {

// regexec() returns the same for "no memory" and "no match". Without memory the record is shown, so that it does not
// disappear without a message.
bool Matches(const regex_t &regex, std::string_view text) {
  errno = 0;
#ifdef REG_STARTEND
  // The length is given because a text may hold NULs.
  regmatch_t range{};
  range.rm_eo = static_cast<regoff_t>(text.size());
  return ::regexec(&regex, text.data(), 1, &range, REG_STARTEND) == 0 || errno == ENOMEM;
#else
  // Some C libraries cannot take a length. With them, text after a NUL is not searched.
  return ::regexec(&regex, text.empty() ? "" : text.data(), 0, nullptr, 0) == 0 || errno == ENOMEM;
#endif
}

}  // namespace

Filter::Filter(const Wanted &wanted) : wanted_(wanted) {
  const int flags = REG_EXTENDED | (wanted_.ignoreCase ? REG_ICASE : 0);
  for (; usable_ < wanted_.patternCount; ++usable_) {
    regex_t &regex = regexes_[usable_];
    const int error = ::regcomp(&regex, wanted_.patterns[usable_], flags);
    if (error == 0) continue;
    ::regerror(error, &regex, complaint_, sizeof complaint_);
    return;
  }
}

Filter::~Filter() {
  for (std::size_t index = 0; index < usable_; ++index) ::regfree(&regexes_[index]);
}

bool Filter::Passes(const Message &message, std::string_view text, std::string_view process) const {
  if (message.status == Status::Damaged || message.status == Status::Lost) return true;
  return (wanted_.types >> message.type & 1) != 0 && IsInTime(message.time) && IsWantedProcess(process) &&
         (wanted_.patternCount == 0 || MatchesAny(text) != wanted_.invert);
}

bool Filter::IsInTime(DayTime time) const {
  const bool isSince = wanted_.since == kUnknownTime || time >= wanted_.since;
  const bool isUntil = wanted_.until == kUnknownTime || time <= wanted_.until;
  const bool isOverMidnight =
      wanted_.since != kUnknownTime && wanted_.until != kUnknownTime && wanted_.since > wanted_.until;
  return isOverMidnight ? isSince || isUntil : isSince && isUntil;
}

bool Filter::IsWantedProcess(std::string_view process) const {
  if (wanted_.processes == nullptr) return true;
  for (std::string_view rest = wanted_.processes; rest.data() != nullptr;) {
    if (tools::TakePart(rest, ',') == process) return true;
  }
  return false;
}

bool Filter::MatchesAny(std::string_view text) const {
  return std::any_of(regexes_, regexes_ + usable_, [text](const regex_t &regex) { return Matches(regex, text); });
}

}  // namespace devlog
