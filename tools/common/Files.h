// SPDX-License-Identifier: MIT
// Small files, read and written whole.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace tools {

/// Reads a whole file.
/// size     out  bytes read
/// Returns  false, with errno set, when it cannot be read; EFBIG when it has more than there is room for.
bool ReadFile(const char *path, std::span<char> room, std::size_t &size);

/// Writes a new file and renames it to the old one's name: a reader finds the old text or the new one, complete.
/// Returns  false, with errno set, when that cannot be done; then the old file is as it was.
bool ReplaceFile(const char *path, std::string_view text);

}  // namespace tools
