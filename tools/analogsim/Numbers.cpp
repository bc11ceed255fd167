// SPDX-License-Identifier: MIT
// Numbers and error names on the command line.

#include "tools/analogsim/Numbers.h"

#include <cstring>
#include <limits>

#include "tools/common/Numbers.h"

namespace analogsim {

namespace {

constexpr int kLargestErrno = 4095;  // the kernel's limit

}  // namespace

std::optional<std::int32_t> ToInt32(std::string_view text) {
  using Limits = std::numeric_limits<std::int32_t>;
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");

  std::uint32_t magnitude = 0;
  if (!tools::ParseNumber(text, UINT32_MAX, magnitude)) return std::nullopt;
  if (hexadecimal && !negative) return static_cast<std::int32_t>(magnitude);
  const std::int64_t number = negative ? -std::int64_t{magnitude} : std::int64_t{magnitude};
  if (number < Limits::min() || number > Limits::max()) return std::nullopt;
  return static_cast<std::int32_t>(number);
}

std::optional<int> ToErrno(const std::string &text) {
  for (int error = 1; error <= kLargestErrno; ++error) {
    const char *name = ::strerrorname_np(error);
    if (name != nullptr && text == name) return error;
  }
  const std::optional<std::int32_t> number = ToInt32(text);
  if (!number || *number < 1 || *number > kLargestErrno) return std::nullopt;
  return number;
}

std::string ErrnoName(int error) {
  const char *name = ::strerrorname_np(error);
  return name != nullptr ? name : "errno " + std::to_string(error);
}

}  // namespace analogsim
