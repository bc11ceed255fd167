// SPDX-License-Identifier: MIT
// One line of output: built in place, escaped, never longer than its room.

#include "tools/devlog/Line.h"

namespace devlog {

namespace {

constexpr unsigned kMsPerSecond = 1000;
constexpr unsigned kMsPerMinute = 60 * kMsPerSecond;
constexpr unsigned kMsPerHour = 60 * kMsPerMinute;
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
  while (!text.empty()) Add(tools::ShowNext(text).View());
}

void Line::AddForJson(std::string_view text, tools::Form form) {
  while (!text.empty()) Add(tools::EscapeNext(text, form).View());
}

}  // namespace devlog
