// Which messages are shown.

#include "tools/devlog/Filter.h"

namespace devlog {

Filter::Filter(const Wanted &wanted) : wanted_(wanted) {
  if (wanted_.pattern == nullptr) return;
  error_ = ::regcomp(&regex_, wanted_.pattern, REG_EXTENDED | REG_NOSUB);
  if (error_ != 0) ::regerror(error_, &regex_, complaint_, sizeof complaint_);
}

Filter::~Filter() {
  if (wanted_.pattern != nullptr && error_ == 0) ::regfree(&regex_);
}

bool Filter::Passes(const Message &message, std::string_view text) const {
  if (message.status == Status::Damaged || message.status == Status::Lost) return true;
  return (wanted_.types >> message.type & 1) != 0 && IsInTime(message.time) && Matches(text);
}

bool Filter::IsInTime(DayTime time) const {
  const bool isSince = wanted_.since == kUnknownTime || time >= wanted_.since;
  const bool isUntil = wanted_.until == kUnknownTime || time <= wanted_.until;
  const bool isOverMidnight =
      wanted_.since != kUnknownTime && wanted_.until != kUnknownTime && wanted_.since > wanted_.until;
  return isOverMidnight ? isSince || isUntil : isSince && isUntil;
}

bool Filter::Matches(std::string_view text) const {
  if (wanted_.pattern == nullptr) return true;
#ifdef REG_STARTEND
  // The length is given because a text may hold NULs.
  regmatch_t range{};
  range.rm_eo = static_cast<regoff_t>(text.size());
  return ::regexec(&regex_, text.data(), 1, &range, REG_STARTEND) == 0;
#else
  // Not every C library takes a length: there, what stands behind a NUL is not searched.
  return ::regexec(&regex_, text.empty() ? "" : text.data(), 0, nullptr, 0) == 0;
#endif
}

}  // namespace devlog
