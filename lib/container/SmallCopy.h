// Copies the small blocks that the containers hold, for which a call of the C library costs more than the copy.
#pragma once

#include <cstddef>
#include <cstring>

namespace devsupport {

namespace smallcopy {

template <std::size_t nBytes>
struct Piece {
  unsigned char ab[nBytes];
};

/// nBytes at the front and nBytes at the end, which meet or overlap in the middle. Both are loaded before either is
/// stored, so source and destination may overlap.
template <std::size_t nBytes>
inline void CopyEnds(unsigned char *pTo, const unsigned char *pFrom, std::size_t nSize) {
  Piece<nBytes> uFront;
  Piece<nBytes> uBack;
  std::memcpy(&uFront, pFrom, nBytes);
  std::memcpy(&uBack, pFrom + nSize - nBytes, nBytes);
  std::memcpy(pTo, &uFront, nBytes);
  std::memcpy(pTo + nSize - nBytes, &uBack, nBytes);
}

}  // namespace smallcopy

/// Copies nSize bytes; the blocks may overlap, and may be null when nSize is 0.
inline void CopyBytes(void *pTo, const void *pFrom, std::size_t nSize) {
  auto *pbTo = static_cast<unsigned char *>(pTo);
  const auto *pbFrom = static_cast<const unsigned char *>(pFrom);
  // Only where unaligned registers are cheap: 32-bit machines leave it to their C library.
  if constexpr (sizeof(void *) == 8) {
    using namespace smallcopy;
    if (nSize >= 32 && nSize <= 64) return CopyEnds<32>(pbTo, pbFrom, nSize);
    if (nSize >= 16 && nSize < 32) return CopyEnds<16>(pbTo, pbFrom, nSize);
    if (nSize >= 8 && nSize < 16) return CopyEnds<8>(pbTo, pbFrom, nSize);
  }
  if (nSize != 0) std::memmove(pTo, pFrom, nSize);
}

}  // namespace devsupport
