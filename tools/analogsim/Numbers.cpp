// Numbers and error names as people write them on the command line.

#include "Numbers.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <system_error>

namespace analogsim {

namespace {

constexpr int kLargestErrno = 4095;  // the kernel's limit

std::optional<std::int64_t> ToMagnitude(std::string_view digits, int base) {
  std::uint32_t magnitude = 0;
  const char *end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, magnitude, base);
  if (error != std::errc{} || stopped != end) return std::nullopt;
  return magnitude;
}

}  // namespace

std::optional<std::int32_t> ToInt32(std::string_view text) {
  using Limits = std::numeric_limits<std::int32_t>;
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);

  const std::optional<std::int64_t> magnitude = ToMagnitude(text, hexadecimal ? 16 : 10);
  if (!magnitude) return std::nullopt;
  if (hexadecimal && !negative) return static_cast<std::int32_t>(*magnitude);
  const std::int64_t number = negative ? -*magnitude : *magnitude;
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
