// SPDX-License-Identifier: MIT
// Sets of characters: 256 bits, of which only those of the seven-bit characters can be set.
#pragma once

#include <array>
#include <cstdint>

namespace devsupport {

class CharSet {
 public:
  /// Without an initializer the set is not even empty: CharSet set{} makes it so.
  CharSet() = default;

  /// Kept: bytes of 0x80 and above are no members of any set, not even when they are named.
  static constexpr bool CanHold(char c) { return static_cast<unsigned char>(c) < 0x80; }

  constexpr void Add(char c) {
    const auto byValue = static_cast<unsigned char>(c);
    if (CanHold(c)) aBits_[byValue >> 3] |= static_cast<std::uint8_t>(1U << (byValue & 7U));
  }
  constexpr void AddRange(char cFirst, char cLast) {
    for (char c = cFirst; c <= cLast; ++c) Add(c);
  }
  constexpr bool Has(char c) const {
    const auto byValue = static_cast<unsigned char>(c);
    const unsigned dwBits = aBits_[byValue >> 3];
    return (dwBits >> (byValue & 7U) & 1U) != 0;
  }

  /// First member in p .. pEnd; pEnd or beyond when there is none.
  constexpr const char *Find(const char *p, const char *pEnd) const {
    while (p < pEnd && !Has(*p)) ++p;
    return p;
  }

 private:
  std::array<std::uint8_t, 32> aBits_;
};

inline constexpr std::uint32_t kDigits = 1;
inline constexpr std::uint32_t kUpperCase = 2;
inline constexpr std::uint32_t kLowerCase = 4;
inline constexpr std::uint32_t kAllClasses = kDigits | kUpperCase | kLowerCase;

/// Set k holds the classes whose bits are set in k.
inline constexpr std::array<CharSet, kAllClasses + 1> kClassSets = [] {
  std::array<CharSet, kAllClasses + 1> sets{};
  for (std::uint32_t k = 0; k <= kAllClasses; ++k) {
    if ((k & kDigits) != 0) sets[k].AddRange('0', '9');
    if ((k & kUpperCase) != 0) sets[k].AddRange('A', 'Z');
    if ((k & kLowerCase) != 0) sets[k].AddRange('a', 'z');
  }
  return sets;
}();

}  // namespace devsupport
