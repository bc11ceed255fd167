// SPDX-License-Identifier: MIT
// The one decimal conversion of all number parsers: strtol at base 10 as the device has it, where a long has
// 32 bits, with the same result on every host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace devsupport {

struct DeviceLong {
  std::int32_t nValue;  ///< clamped to 32 bits; 0 without digits
  const char *pStop;    ///< after the last digit; the text itself without digits
};

/// White space of the C locale, whatever the program's locale is.
constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// The digit's value; above 9 when c is no digit.
constexpr unsigned DigitValue(char c) { return static_cast<unsigned char>(c) - unsigned{'0'}; }

constexpr std::uint32_t kLongMax = std::numeric_limits<std::int32_t>::max();
constexpr std::uint32_t kLongMinMagnitude = kLongMax + 1;
constexpr std::uint32_t kBeyondLong = kLongMinMagnitude + 1;

/// As many digits as a machine word always holds; longer runs are rare enough to be walked twice.
constexpr std::ptrdiff_t kWordDigits = std::numeric_limits<std::size_t>::digits10;

/// Magnitude of any number of digits, leading zeros included; kBeyondLong for all that clamp.
inline std::uint32_t LongRunMagnitude(const char *pDigit, const char *pEnd) {
  std::uint32_t dwMagnitude = 0;
  for (; pDigit < pEnd; ++pDigit) {
    if (dwMagnitude > kLongMax / 10) return kBeyondLong;
    dwMagnitude = dwMagnitude * 10 + DigitValue(*pDigit);
  }
  return dwMagnitude;
}

/// Reads optional white space, an optional sign and all digits after it. errno is left alone.
inline DeviceLong ParseDeviceLong(const char *pText) {
  const char *p = pText;
  bool bNegative = false;
  // Numbers mostly begin with a digit: then nothing of what is loaded next waits for what was loaded before.
  if (DigitValue(*p) > 9) [[unlikely]] {
    while (IsSpace(*p)) ++p;
    bNegative = *p == '-';
    if (bNegative || *p == '+') ++p;
  }

  // The loop does not check for overflow. The number of digits shows it afterwards.
  const char *const pDigits = p;
  std::size_t uMagnitude = 0;
  for (unsigned dwDigit = DigitValue(*p); dwDigit <= 9; dwDigit = DigitValue(*++p))
    uMagnitude = uMagnitude * 10 + dwDigit;
  if (p == pDigits) return {0, pText};
  if (p - pDigits > kWordDigits) [[unlikely]]
    uMagnitude = LongRunMagnitude(pDigits, p);

  const std::uint32_t dwLimit = bNegative ? kLongMinMagnitude : kLongMax;
  const std::uint32_t dwMagnitude = uMagnitude < dwLimit ? static_cast<std::uint32_t>(uMagnitude) : dwLimit;
  return {static_cast<std::int32_t>(bNegative ? 0 - dwMagnitude : dwMagnitude), p};
}

}  // namespace devsupport
