// SPDX-License-Identifier: MIT
// The text form of keys and values. It can be converted back without loss.
//   \\ \n \r \t \" \'   the character itself
//   \xNN                one byte
//   \c                  at the end: these bytes are all; without it, a terminator follows that is not shown
#pragma once

#include <string_view>

#include "tools/devconf/Bytes.h"
#include "tools/devconf/Tables.h"

namespace devconf {

enum class Quotes : bool { None, Double };

/// Appends a text: control characters and bytes that are no characters as escapes.
void AppendShown(Bytes &out, std::string_view text, Quotes quotes = Quotes::None);

/// Appends a stored value, with \c when it is no terminated text.
void AppendShownValue(Bytes &out, std::string_view value, Quotes quotes = Quotes::None);

/// Appends a stored key: its name, or with \c all its bytes when the library makes no such key.
void AppendShownKey(Bytes &out, const Table &table, std::string_view key, Quotes quotes = Quotes::None);

/// A text that was read from its form.
struct Unshown {
  Bytes bytes;
  bool isWhole = false;  ///< \c: the bytes are a whole key or value
};

/// Undoes the escapes. Returns nullptr, or what is wrong.
const char *Unshow(std::string_view text, Unshown &unshown);

/// The stored key that a text means in a table.
void KeyOf(const Table &table, const Unshown &unshown, Bytes &key);

/// The stored value that a text means: with a terminator, unless it has a NUL already or is whole.
void ValueOf(const Unshown &unshown, Bytes &value);

}  // namespace devconf
