// SPDX-License-Identifier: MIT
// Formats one message: for people, as JSON, for syslog.
#pragma once

#include <string_view>

#include "tools/devlog/Line.h"
#include "tools/devlog/Message.h"

namespace devlog {

enum class Look : std::uint8_t { Plain, Coloured, Json };

/// "log" or "event".
std::string_view NameOf(Ring ring);

/// What else is known about a message.
struct Known {
  std::string_view text{};      ///< the whole text
  std::string_view process{};   ///< the name at its start; empty when not known
  std::string_view typeName{};  ///< empty when the type has none
  std::size_t typePlaces = 2;   ///< room for the type's name or number
};

/// Adds one message, or one note, without the newline.
///
///   12:34:56.789 log    3  registered at 10.0.0.1
///   12:34:57.001 event  1  (its beginning is lost) and so on
///   12:34:57.002 log    -  (12 records lost)
///   --:--:--.--- log    -  (damaged: the length is 4711)
///
/// With names for types and processes:
///
///   12:34:56.789 log   call  sipd: registered at 10.0.0.1
///
/// JSON objects always have the same members in the same order. The time is always valid: for a record without one it
/// comes from Place(). A text that is not UTF-8, or has a NUL, is "text_bytes" instead of
/// "text": one character, U+0000 to U+00FF, for each byte.
///
///   {"time":"12:34:56.789","ring":"log","type":3,"type_name":"call","sequence":17,"records":1,"status":"ok",
///    "detail":"","process":"sipd","text":"..."}
void AddMessage(Line &line, const Message &message, const Known &known, Look look);

}  // namespace devlog
