// SPDX-License-Identifier: MIT
// The text form of keys and values.

#include "tools/devconf/Shown.h"

#include <cstdint>

#include "tools/common/Numbers.h"
#include "tools/common/Text.h"
#include "tools/common/Utf8.h"

namespace devconf {

namespace {

using tools::After;
using tools::First;

constexpr std::string_view kLetters = "\\nrt\"'";
constexpr std::string_view kMeanings = "\\\n\r\t\"'";
constexpr std::string_view kWholeMark = "\\c";

void AppendByte(Bytes &out, char byte) {
  constexpr char kHexDigits[] = "0123456789abcdef";
  const auto value = static_cast<std::uint8_t>(byte);
  const char escape[] = {'\\', 'x', kHexDigits[value >> 4], kHexDigits[value & 0xf]};
  out.Append({escape, sizeof escape});
}

// The letter for a character after a backslash, or 0.
char LetterOf(char c, Quotes quotes) {
  if (c == '\'' || (c == '"' && quotes == Quotes::None)) return '\0';
  const std::size_t at = kMeanings.find(c);
  return at == std::string_view::npos ? '\0' : kLetters[at];
}

// Takes what follows a backslash.
const char *TakeEscape(std::string_view &rest, Unshown &unshown) {
  if (rest.empty()) return "nothing follows a backslash";
  const char letter = rest.front();
  rest = After(rest, 1);
  if (const std::size_t at = kLetters.find(letter); at != std::string_view::npos) {
    unshown.bytes.Append({&kMeanings[at], 1});
    return nullptr;
  }
  if (letter == 'c') {
    unshown.isWhole = true;
    return rest.empty() ? nullptr : "something follows \\c";
  }
  std::uint32_t value = 0;
  if (letter != 'x') return "unknown escape (a backslash is written \\\\)";
  if (rest.size() < 2 || !tools::ParseDigits(First(rest, 2), 16, 0xff, value))
    return "\\x needs two hexadecimal digits";
  const char byte = static_cast<char>(value);
  unshown.bytes.Append({&byte, 1});
  rest = After(rest, 2);
  return nullptr;
}

}  // namespace

void AppendShown(Bytes &out, std::string_view text, Quotes quotes) {
  while (!text.empty()) {
    std::uint32_t point = 0;
    const std::size_t size = tools::FirstCharacter(text, point);
    if (const char letter = LetterOf(text.front(), quotes); letter != '\0') {
      const char escape[] = {'\\', letter};
      out.Append({escape, sizeof escape});
      text = After(text, 1);
    } else if (size != 0 && !tools::IsControl(point)) {
      out.Append(First(text, size));
      text = After(text, size);
    } else {
      AppendByte(out, text.front());
      text = After(text, 1);
    }
  }
}

void AppendShownValue(Bytes &out, std::string_view value, Quotes quotes) {
  if (IsTerminatedText(value)) return AppendShown(out, TextOf(value), quotes);
  AppendShown(out, value, quotes);
  out.Append(kWholeMark);
}

void AppendShownKey(Bytes &out, const Table &table, std::string_view key, Quotes quotes) {
  if (IsKeyOfName(table, key)) return AppendShown(out, TextOf(key), quotes);
  AppendShown(out, key, quotes);
  out.Append(kWholeMark);
}

const char *Unshow(std::string_view text, Unshown &unshown) {
  while (!text.empty()) {
    const std::string_view plain = First(text, text.find('\\'));
    unshown.bytes.Append(plain);
    text = After(text, plain.size());
    if (text.empty()) break;
    text = After(text, 1);
    if (const char *wrong = TakeEscape(text, unshown); wrong != nullptr) return wrong;
  }
  return nullptr;
}

void KeyOf(const Table &table, const Unshown &unshown, Bytes &key) {
  if (unshown.isWhole) return key.Assign(unshown.bytes.View());
  MakeKey(table, unshown.bytes.View(), key);
}

void ValueOf(const Unshown &unshown, Bytes &value) {
  value.Assign(unshown.bytes.View());
  if (!unshown.isWhole && value.View().find('\0') == std::string_view::npos) value.Append({"\0", 1});
}

}  // namespace devconf
