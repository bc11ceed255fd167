// The text form of records: one flat JSON object of strings a line. Pure functions over the caller's memory, no heap.
//
// A byte string is written in one of two forms:
//   text    what is UTF-8 without a NUL; a character of the string is a character of the text
//   bytes   anything else; a character of the string, U+0000 to U+00FF, is one byte
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace devconf {

enum class Form : bool { kText, kBytes };

// string_view::substr and what is made of it can throw: that needs a C++ runtime.

/// At most the first count bytes.
std::string_view First(std::string_view bytes, std::size_t count);

/// What follows the first count bytes.
std::string_view Behind(std::string_view bytes, std::size_t count);

bool StartsWith(std::string_view bytes, std::string_view prefix);

/// The UTF-8 character at the start of some bytes.
/// Returns its length, and its number in point; 0 when there is none: no overlong forms, no surrogates.
std::size_t FirstCharacter(std::string_view bytes, std::uint32_t &point);

/// Whether the bytes can be written as text.
bool IsText(std::string_view bytes);

/// Whether a character does something to a terminal instead of being shown.
constexpr bool IsControl(std::uint32_t point) { return point < 0x20 || (point >= 0x7f && point < 0xa0); }

/// A few characters of output.
struct Piece {
  char text[8];
  std::size_t size = 0;

  std::string_view View() const { return {text, size}; }
};

/// Takes one character from the front of the bytes and returns how it stands between the quotes of a JSON string.
/// In the text form the bytes must be text (IsText).
Piece EscapeNext(std::string_view &bytes, Form form);

/// One member of an object: name and value as they stand between their quotes, still escaped.
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
