// SPDX-License-Identifier: MIT
// Decodes and checks one cell of a log ring.

#include "tools/devlog/Cell.h"

#include <cstring>

namespace devlog {

namespace {

constexpr unsigned kLastHour = 23;
constexpr unsigned kLastMinute = 59;
constexpr unsigned kLastSecond = 59;
constexpr unsigned kLeapSecond = 60;  // no second of a day; shown as the one before it
constexpr unsigned kLastMs = 999;

DayTime ToDayTime(std::uint32_t word) {
  const unsigned hour = LOGCELL_GET(word, HOUR);
  const unsigned minute = LOGCELL_GET(word, MINUTE);
  const unsigned written = LOGCELL_GET(word, SECOND);
  const unsigned second = written == kLeapSecond ? kLastSecond : written;
  const unsigned ms = LOGCELL_GET(word, MS);
  if (hour > kLastHour || minute > kLastMinute || second > kLastSecond || ms > kLastMs) return kUnknownTime;
  return static_cast<DayTime>(((hour * 60 + minute) * 60 + second) * 1000 + ms);
}

}  // namespace

Fragment Decode(const Cell &cell) {
  Fragment fragment;
  if (cell.length < LOGCELL_LENGTH(0) || cell.length > LOGCELL_BYTES) {
    fragment.damage = Damage::Length;
    return fragment;
  }
  TLogCell record;
  std::memcpy(&record, cell.record, sizeof record);
  fragment.time = ToDayTime(record.dwTime);
  fragment.number = LOGCELL_GET(record.dwTime, FRAGMENT);
  fragment.sequence = LOGCELL_GET(record.wSequence, SEQUENCE);
  fragment.type = LOGCELL_GET(record.wSequence, TYPE);
  const std::uint32_t chars = cell.length - LOGCELL_LENGTH(0);
  fragment.text = {reinterpret_cast<const char *>(cell.record) + LOGCELL_HEAD_BYTES, chars};
  if (fragment.time == kUnknownTime) fragment.damage = Damage::Time;
  if (record.szText[chars] != '\0') fragment.damage = Damage::Text;
  return fragment;
}

}  // namespace devlog
