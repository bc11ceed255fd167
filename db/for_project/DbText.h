// SPDX-License-Identifier: MIT
// Texts inside records: they end at their terminator, or where the record ends.
#pragma once

#include <db.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace devsupport::store {

/// All bytes of a record.
inline std::string_view Bytes(const DBT &record) {
  return record.size == 0 ? std::string_view{}
                          : std::string_view(static_cast<const char *>(record.data), record.size);
}

/// At most the first dwCount bytes. (string_view::substr needs a C++ runtime.)
inline std::string_view First(std::string_view bytes, std::size_t dwCount) {
  return {bytes.data(), std::min(dwCount, bytes.size())};
}

/// What follows the first dwCount bytes.
inline std::string_view After(std::string_view bytes, std::size_t dwCount) {
  bytes.remove_prefix(std::min(dwCount, bytes.size()));
  return bytes;
}

/// The text at the start of some bytes, without its terminator.
inline std::string_view TextOf(std::string_view bytes) {
  const void *pEnd = bytes.empty() ? nullptr : std::memchr(bytes.data(), '\0', bytes.size());
  if (pEnd == nullptr) return bytes;
  return {bytes.data(), static_cast<std::size_t>(static_cast<const char *>(pEnd) - bytes.data())};
}

/// The same bytes with the terminator, when there is one.
inline std::string_view TextWithTerminator(std::string_view bytes) {
  const std::string_view text = TextOf(bytes);
  return {text.data(), text.size() < bytes.size() ? text.size() + 1 : text.size()};
}

}  // namespace devsupport::store
