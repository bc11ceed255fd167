// SPDX-License-Identifier: MIT
// Numbers, types and times in the form used on the command line.

#include "tools/devlog/Numbers.h"

#include <string_view>

#include "tools/common/Numbers.h"
#include "tools/common/Text.h"

namespace devlog {

namespace {

/// The types of "3", "3-5" or a name, the first and the last.
bool ToRange(std::string_view part, const Names &names, std::uint32_t &first, std::uint32_t &last) {
  const std::size_t named = Names::IsName(part) ? names.FindType(part) : Names::kTypes;
  if (named != Names::kTypes) {
    first = last = static_cast<std::uint32_t>(named);
    return true;
  }
  if (!tools::ParseNumber(tools::TakePart(part, '-'), LOGCELL_MAX(TYPE), first)) return false;
  last = first;
  return part.data() == nullptr || (tools::ParseNumber(part, LOGCELL_MAX(TYPE), last) && first <= last);
}

}  // namespace

bool ToTypes(const char *text, const Names &names, std::uint16_t &types) {
  std::uint32_t found = 0;
  std::string_view rest(text);
  do {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    if (!ToRange(tools::TakePart(rest, ','), names, first, last)) return false;
    for (std::uint32_t type = first; type <= last; ++type) found |= 1u << type;
  } while (rest.data() != nullptr);
  types = static_cast<std::uint16_t>(found);
  return true;
}

bool ToDayTime(const char *text, DayTime &time) {
  constexpr std::uint32_t kLast[] = {23, 59, 59};
  std::uint32_t parts[] = {0, 0, 0};
  std::string_view rest(text);
  std::size_t count = 0;
  do {
    const std::string_view part = tools::TakePart(rest, ':');
    if (count == 3 || part.size() > 2 || !tools::ParseDigits(part, 10, kLast[count], parts[count])) return false;
    ++count;
  } while (rest.data() != nullptr);
  if (count < 2) return false;
  time = static_cast<DayTime>(((parts[0] * 60 + parts[1]) * 60 + parts[2]) * 1000);
  return true;
}

}  // namespace devlog
