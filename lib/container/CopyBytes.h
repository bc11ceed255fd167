// SPDX-License-Identifier: MIT
// Copies the blocks that containers and log records hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace devsupport {

/// Copies nSize bytes; the blocks may overlap, and may be null when nSize is 0.
[[gnu::always_inline]] inline void CopyBytes(void *pTo, const void *pFrom, std::size_t nSize) {
  if (nSize == 0) return;
  // On the device a memmove() of 48 bytes takes some 50 instructions more than a memcpy().
  const auto dwTo = reinterpret_cast<std::uintptr_t>(pTo), dwFrom = reinterpret_cast<std::uintptr_t>(pFrom);
  if (dwTo - dwFrom >= nSize && dwFrom - dwTo >= nSize) [[likely]] {
    std::memcpy(pTo, pFrom, nSize);
  } else {
    std::memmove(pTo, pFrom, nSize);
  }
}

}  // namespace devsupport
