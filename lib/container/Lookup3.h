// SPDX-License-Identifier: MIT
// Bob Jenkins' published lookup3 byte hash, in its little-endian variant: the same number on every machine, for keys
// at any address.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "lib/Unaligned.h"

namespace devsupport {

namespace lookup3 {

/// Three words of state.
struct State {
  std::uint32_t a, b, c;
};

inline std::uint32_t LoadLittle(const unsigned char *p) {
  const auto dw = LoadUnaligned<std::uint32_t>(p);
  return std::endian::native == std::endian::little ? dw : __builtin_bswap32(dw);
}

/// The last word of a key, filled up with zeros where nLeft, the bytes that are not in a whole block, end within it. When
/// the key has four bytes its last four are loaded at once, and what belongs to the word before is shifted out.
inline std::uint32_t LoadTail(const unsigned char *pEnd, std::size_t nLeft, std::size_t nLength) {
  const std::size_t nPadding = -nLeft % 4;
  if (nLength >= 4) [[likely]]
    return LoadLittle(pEnd - 4) >> (8 * nPadding);
  std::uint32_t dw = 0;
  for (std::size_t i = 0; i < nLength; ++i) dw = dw << 8 | *--pEnd;
  return dw;
}

inline void Mix(State &u) {
  u.a -= u.c, u.a ^= std::rotl(u.c, 4), u.c += u.b;
  u.b -= u.a, u.b ^= std::rotl(u.a, 6), u.a += u.c;
  u.c -= u.b, u.c ^= std::rotl(u.b, 8), u.b += u.a;
  u.a -= u.c, u.a ^= std::rotl(u.c, 16), u.c += u.b;
  u.b -= u.a, u.b ^= std::rotl(u.a, 19), u.a += u.c;
  u.c -= u.b, u.c ^= std::rotl(u.b, 4), u.b += u.a;
}

inline void Final(State &u) {
  u.c ^= u.b, u.c -= std::rotl(u.b, 14);
  u.a ^= u.c, u.a -= std::rotl(u.c, 11);
  u.b ^= u.a, u.b -= std::rotl(u.a, 25);
  u.c ^= u.b, u.c -= std::rotl(u.b, 16);
  u.a ^= u.c, u.a -= std::rotl(u.c, 4);
  u.b ^= u.a, u.b -= std::rotl(u.a, 14);
  u.c ^= u.b, u.c -= std::rotl(u.b, 24);
}

}  // namespace lookup3

/// Hashes nLength bytes. The key is taken in blocks of three little-endian words; the last 1 to 12 bytes are padded
/// with zeros, and an empty key is not mixed at all.
inline std::uint32_t hashlittle(const void *pKey, std::size_t nLength, std::uint32_t dwInitial) {
  using namespace lookup3;
  constexpr std::size_t kBlockBytes = 12;
  const auto *p = static_cast<const unsigned char *>(pKey);
  const std::uint32_t dwStart = 0xdeadbeef + static_cast<std::uint32_t>(nLength) + dwInitial;
  State u{dwStart, dwStart, dwStart};

  std::size_t nLeft = nLength;
  for (; nLeft > kBlockBytes; nLeft -= kBlockBytes, p += kBlockBytes) {
    u.a += LoadLittle(p);
    u.b += LoadLittle(p + 4);
    u.c += LoadLittle(p + 8);
    Mix(u);
  }
  if (nLeft == 0) return u.c;
  const std::uint32_t dwTail = LoadTail(p + nLeft, nLeft, nLength);
  if (nLeft > 8) {
    u.a += LoadLittle(p);
    u.b += LoadLittle(p + 4);
    u.c += dwTail;
  } else if (nLeft > 4) {
    u.a += LoadLittle(p);
    u.b += dwTail;
  } else {
    u.a += dwTail;
  }
  Final(u);
  return u.c;
}

}  // namespace devsupport
