// SPDX-License-Identifier: MIT
// The text form of records: one flat JSON object of strings a line. Pure functions over the caller's memory, no heap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "tools/common/Escape.h"
#include "tools/common/Text.h"
#include "tools/common/Utf8.h"

namespace devconf {

using tools::After;
using tools::EscapeNext;
using tools::First;
using tools::FirstCharacter;
using tools::Form;
using tools::IsText;
using tools::StartsWith;

/// One member of an object: name and value between their quotes, still escaped.
struct Member {
  std::string_view name;
  std::string_view value;
};

/// Takes a line apart that is one object whose values are all strings.
/// count      out     members found; they point into the line
/// Returns    nullptr, or what is wrong with the line.
const char *ReadObject(std::string_view line, std::span<Member> members, std::size_t &count);

/// Undoes the escapes of a string.
/// out        out     as large as the string at least; may be the memory of the string itself
/// size       out     bytes written
/// Returns    nullptr, or what is wrong with the string. Text that is not UTF-8 or has a NUL is wrong, and so are
///            characters above U+00FF in bytes.
const char *Unescape(std::string_view string, Form form, std::span<char> out, std::size_t &size);

}  // namespace devconf
