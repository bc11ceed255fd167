// SPDX-License-Identifier: MIT
// Copies the small blocks that containers and log records hold, for which a call of the C library costs more than the
// copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace devsupport {

namespace smallcopy {

using Word = std::uint64_t;
using Vector [[gnu::vector_size(16)]] = std::uint64_t;

template <typename TPiece>
inline TPiece Load(const unsigned char *pFrom) {
  TPiece uPiece;
  std::memcpy(&uPiece, pFrom, sizeof uPiece);
  return uPiece;
}

template <typename TPiece>
inline void Store(unsigned char *pTo, TPiece uPiece) {
  std::memcpy(pTo, &uPiece, sizeof uPiece);
}

/// Copies 8 to 64 bytes as pieces from both ends, which meet or overlap in the middle. All are loaded before the first
/// is stored, so source and destination may overlap.
inline void CopyFromBothEnds(unsigned char *pTo, const unsigned char *pFrom, std::size_t nSize) {
  unsigned char *pToEnd = pTo + nSize;
  const unsigned char *pFromEnd = pFrom + nSize;
  if (nSize < sizeof(Vector)) {
    const auto front = Load<Word>(pFrom), back = Load<Word>(pFromEnd - 8);
    Store(pTo, front);
    Store(pToEnd - 8, back);
    return;
  }
  const auto front = Load<Vector>(pFrom), back = Load<Vector>(pFromEnd - 16);
  if (nSize > 2 * sizeof(Vector)) {
    const auto second = Load<Vector>(pFrom + 16), lastButOne = Load<Vector>(pFromEnd - 32);
    Store(pTo + 16, second);
    Store(pToEnd - 32, lastButOne);
  }
  Store(pTo, front);
  Store(pToEnd - 16, back);
}

}  // namespace smallcopy

/// Copies nSize bytes; the blocks may overlap, and may be null when nSize is 0.
[[gnu::always_inline]] inline void CopyBytes(void *pTo, const void *pFrom, std::size_t nSize) {
  // Only where unaligned loads are cheap: 32-bit machines leave it to their C library.
  if constexpr (sizeof(void *) == 8) {
    if (nSize >= 8 && nSize <= 64) [[likely]] {
      smallcopy::CopyFromBothEnds(static_cast<unsigned char *>(pTo), static_cast<const unsigned char *>(pFrom),
                                  nSize);
      return;
    }
  }
  if (nSize == 0) return;
  if constexpr (sizeof(void *) == 4) {
    // On the device a memmove() of 48 bytes takes some 50 instructions more than a memcpy().
    const auto dwTo = reinterpret_cast<std::uintptr_t>(pTo), dwFrom = reinterpret_cast<std::uintptr_t>(pFrom);
    if (dwTo - dwFrom >= nSize && dwFrom - dwTo >= nSize) [[likely]] {
      std::memcpy(pTo, pFrom, nSize);
      return;
    }
  }
  std::memmove(pTo, pFrom, nSize);
}

}  // namespace devsupport
