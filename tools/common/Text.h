// SPDX-License-Identifier: MIT
// Slices of texts. string_view::substr can throw, which needs a C++ runtime.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace tools {

/// At most the first count bytes.
inline std::string_view First(std::string_view bytes, std::size_t count) {
  return {bytes.data(), std::min(count, bytes.size())};
}

/// What follows the first count bytes.
inline std::string_view After(std::string_view bytes, std::size_t count) {
  bytes.remove_prefix(std::min(count, bytes.size()));
  return bytes;
}

inline bool StartsWith(std::string_view bytes, std::string_view prefix) {
  return First(bytes, prefix.size()) == prefix;
}

/// Takes the part before the next separator off a text, and the separator with it.
/// rest     in,out  what follows; null data after the last part
inline std::string_view TakePart(std::string_view &rest, char separator) {
  const std::size_t found = rest.find(separator);
  const std::string_view part = First(rest, found);
  rest = found == std::string_view::npos ? std::string_view{} : After(rest, found + 1);
  return part;
}

}  // namespace tools
