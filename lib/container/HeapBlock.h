// SPDX-License-Identifier: MIT
// Heap blocks of the containers: sizes are checked before they are asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace devsupport {

/// Memory for nCount elements of nElementSize bytes, or nullptr when there is none, when a number is negative or when
/// the product does not fit the device's 32-bit sizes. An empty block has an address too, so that nullptr is always
/// a failure.
template <typename T>
T *AllocateBlock(std::int64_t nCount, std::int64_t nElementSize = sizeof(T)) {
  if (nCount < 0 || nElementSize < 0 || nCount > UINT32_MAX || nElementSize > UINT32_MAX) return nullptr;
  const std::uint64_t qwBytes = static_cast<std::uint64_t>(nCount) * static_cast<std::uint64_t>(nElementSize);
  if (qwBytes > UINT32_MAX) return nullptr;
  return static_cast<T *>(std::malloc(qwBytes != 0 ? static_cast<std::size_t>(qwBytes) : 1));
}

/// Frees a block and forgets it.
template <typename T>
void ReleaseBlock(T *&pBlock) {
  std::free(pBlock);
  pBlock = nullptr;
}

}  // namespace devsupport
