// SPDX-License-Identifier: MIT
// Loads and stores words at any address. For 32-bit MIPS the compiler makes a call of memcpy() where the address is
// not known to be aligned, even for two bytes; of a packed record's field it makes two instructions.
#pragma once

namespace devsupport {

template <typename TWord>
struct [[gnu::packed, gnu::may_alias]] Unaligned {
  TWord word;
};

template <typename TWord>
inline TWord LoadUnaligned(const void *pFrom) {
  return static_cast<const Unaligned<TWord> *>(pFrom)->word;
}

template <typename TWord>
inline void StoreUnaligned(void *pTo, TWord word) {
  static_cast<Unaligned<TWord> *>(pTo)->word = word;
}

}  // namespace devsupport
