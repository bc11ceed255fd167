// SPDX-License-Identifier: MIT
// Makes cells of a log ring bit by bit, without the library's headers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tools/devlog/Cell.h"

namespace devlog_test {

/// What a writer puts into one cell.
struct Entry {
  std::string text{};
  unsigned sequence = 0;
  unsigned type = 0;
  unsigned fragment = 0;
  unsigned hour = 12;
  unsigned minute = 34;
  unsigned second = 56;
  unsigned ms = 789;
};

/// A time of the day, in ms.
constexpr devlog::DayTime At(int hour, int minute, int second = 0) {
  return ((hour * 60 + minute) * 60 + second) * 1000;
}

inline void SetWord(devlog::Cell &cell, std::size_t offset, std::uint32_t word) {
  std::memcpy(cell.record + offset, &word, sizeof word);
}

inline devlog::Cell CellOf(const Entry &entry) {
  devlog::Cell cell{};
  std::memset(cell.record, 0xAB, sizeof cell.record);  // an older record of the slot
  cell.length = static_cast<std::uint32_t>(8 + entry.text.size() + 1);
  SetWord(cell, 0, entry.hour | entry.minute << 5 | entry.second << 11 | entry.ms << 17 | entry.fragment << 27);
  SetWord(cell, 4, (entry.sequence & 0xFFF) | entry.type << 12 | 0xBEEF0000U);
  std::memcpy(cell.record + 8, entry.text.c_str(), std::min<std::size_t>(entry.text.size() + 1, 128));
  return cell;
}

inline std::vector<devlog::Cell> CellsOf(const std::vector<Entry> &entries) {
  std::vector<devlog::Cell> cells;
  cells.reserve(entries.size());
  for (const Entry &entry : entries) cells.push_back(CellOf(entry));
  return cells;
}

}  // namespace devlog_test
