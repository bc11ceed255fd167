// One line of output: built in place, escaped, never longer than its room.

#include "Line.h"

namespace devlog {

namespace {

constexpr unsigned kMsPerSecond = 1000;
constexpr unsigned kMsPerMinute = 60 * kMsPerSecond;
constexpr unsigned kMsPerHour = 60 * kMsPerMinute;
constexpr unsigned kFirstPrintable = 0x20;
constexpr unsigned kDelete = 0x7F;
constexpr unsigned kFirstBehindControls = 0xA0;  // 0x80 to 0x9F are control characters, too
constexpr std::uint32_t kLastCharacter = 0x10FFFF;

/// What stands at the beginning of a text.
struct Character {
  std::uint32_t code;
  std::size_t bytes;  ///< 0: these bytes are no character
};

bool IsSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

Character FirstOf(std::string_view text) {
  const auto byteAt = [text](std::size_t index) { return static_cast<std::uint8_t>(text.data()[index]); };
  const std::uint8_t lead = byteAt(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes > text.size()) return {lead, 0};
  std::uint32_t code = lead & (0x7Fu >> bytes);
  for (std::size_t index = 1; index < bytes; ++index) {
    if ((byteAt(index) & 0xC0) != 0x80) return {lead, 0};
    code = code << 6 | (byteAt(index) & 0x3Fu);
  }
  constexpr std::uint32_t kShortest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kShortest[bytes] || code > kLastCharacter || IsSurrogate(code)) return {lead, 0};
  return {code, bytes};
}

bool IsControl(std::uint32_t code) {
  return code < kFirstPrintable || (code >= kDelete && code < kFirstBehindControls);
}

/// Walks over a text: `plain` gets what can stand as it is, `other` gets the rest, one character or byte at a time.
template <typename Plain, typename Other>
void Walk(std::string_view text, Plain plain, Other other) {
  while (!text.empty()) {
    const Character character = FirstOf(text);
    const std::size_t bytes = std::max<std::size_t>(character.bytes, 1);
    const std::string_view taken(text.data(), bytes);
    if (character.bytes != 0 && !IsControl(character.code)) {
      plain(taken);
    } else {
      other(character.code, taken);
    }
    text.remove_prefix(bytes);
  }
}

}  // namespace

void Line::AddNumber(std::uint32_t number, unsigned places, char fill) {
  char digits[10];
  std::size_t first = sizeof digits;
  do {
    digits[--first] = static_cast<char>('0' + number % 10);
    number /= 10;
  } while (number != 0);
  for (std::size_t have = sizeof digits - first; have < places; ++have) Add(fill);
  Add(std::string_view(digits + first, sizeof digits - first));
}

void Line::AddHex(std::uint8_t byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  Add(kDigits[byte >> 4]);
  Add(kDigits[byte & 0xF]);
}

void Line::AddTime(DayTime time) {
  if (time == kUnknownTime) {
    Add("--:--:--.---");
    return;
  }
  const auto ms = static_cast<unsigned>(time);
  AddNumber(ms / kMsPerHour, 2);
  Add(':');
  AddNumber(ms % kMsPerHour / kMsPerMinute, 2);
  Add(':');
  AddNumber(ms % kMsPerMinute / kMsPerSecond, 2);
  Add('.');
  AddNumber(ms % kMsPerSecond, 3);
}

void Line::AddForPeople(std::string_view text) {
  Walk(
      text, [this](std::string_view plain) { Add(plain); },
      [this](std::uint32_t, std::string_view bytes) {
        for (const char byte : bytes) {
          Add("\\x");
          AddHex(static_cast<std::uint8_t>(byte));
        }
      });
}

void Line::AddForJson(std::string_view text) {
  Walk(
      text,
      [this](std::string_view plain) {
        if (plain.front() == '"' || plain.front() == '\\') Add('\\');
        Add(plain);
      },
      [this](std::uint32_t code, std::string_view) {
        Add("\\u00");
        AddHex(static_cast<std::uint8_t>(code));
      });
}

}  // namespace devlog
