// One or two characters, searched a machine word at a time: what nearly all lists are split by.
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

namespace devsupport {

class CharPair {
 public:
  constexpr CharPair(char cFirst, char cSecond) : cFirst_(cFirst), cSecond_(cSecond) {}

  constexpr bool Has(char c) const { return c == cFirst_ || c == cSecond_; }

  /// First member in p .. pEnd; pEnd or beyond when there is none.
  const char *Find(const char *p, const char *pEnd) const {
    const Word uFirst = Repeat(cFirst_);
    const Word uSecond = Repeat(cSecond_);
    for (; pEnd - p >= kWordBytes; p += kWordBytes) {
      Word uText;
      std::memcpy(&uText, p, sizeof uText);
      const Word uHits = ZeroBytes(uText ^ uFirst) | ZeroBytes(uText ^ uSecond);
      if (uHits != 0) return p + std::countr_zero(uHits) / 8;
    }
    while (p < pEnd && !Has(*p)) ++p;
    return p;
  }

 private:
  using Word = std::size_t;
  static constexpr std::ptrdiff_t kWordBytes = sizeof(Word);
  static constexpr Word kOnes = ~Word{0} / 0xff;  // 0x01 in every byte

  static constexpr Word Repeat(char c) { return kOnes * static_cast<unsigned char>(c); }

  /// The top bit of each zero byte. Bytes above a zero byte may be marked as well, because the subtraction borrows from
  /// them; the lowest mark is always a zero byte, and in little-endian order that is the first character.
  static constexpr Word ZeroBytes(Word uWord) { return (uWord - kOnes) & ~uWord & (kOnes << 7); }
  static_assert(std::endian::native == std::endian::little);

  char cFirst_;
  char cSecond_;
};

}  // namespace devsupport
