// SPDX-License-Identifier: MIT
// lookup3's published byte hash, byte by byte, to compare the library's with.
#pragma once

#include <cstddef>
#include <cstdint>

namespace devsupport::test {

inline std::uint32_t NaiveLookup3(const void *key, std::size_t length, std::uint32_t initial) {
  const auto *k = static_cast<const unsigned char *>(key);
  const auto rot = [](std::uint32_t x, int n) { return x << n | x >> (32 - n); };
  std::uint32_t s[3];
  s[0] = s[1] = s[2] = 0xdeadbeef + static_cast<std::uint32_t>(length) + initial;
  if (length == 0) return s[2];
  std::size_t at = 0;
  const auto addBlock = [&] {
    for (int i = 0; i < 12 && at < length; ++i, ++at) s[i / 4] += std::uint32_t{k[at]} << (8 * (i % 4));
  };
  while (length - at > 12) {
    addBlock();
    constexpr int kMix[] = {4, 6, 8, 16, 19, 4};
    for (int i = 0; i < 6; ++i) {
      std::uint32_t &x = s[i % 3], &y = s[(i + 2) % 3], &z = s[(i + 1) % 3];
      x -= y;
      x ^= rot(y, kMix[i]);
      y += z;
    }
  }
  addBlock();
  constexpr int kFinal[] = {14, 11, 25, 16, 4, 14, 24};
  for (int i = 0; i < 7; ++i) {
    std::uint32_t &x = s[(i + 2) % 3], &y = s[(i + 1) % 3];
    x ^= y;
    x -= rot(y, kFinal[i]);
  }
  return s[2];
}

}  // namespace devsupport::test
