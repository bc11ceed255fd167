// SPDX-License-Identifier: MIT
// A file of JSON lines, checked and ready to be stored.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/common/Escape.h"
#include "tools/devconf/Bytes.h"
#include "tools/devconf/Json.h"
#include "tools/devconf/Tables.h"

namespace devconf {

/// One record of the file.
struct Entry {
  const Table *table;
  std::uint32_t line;  ///< counted from 1
  Pairs::Place place;
};

class ImportFile {
 public:
  /// Reads the file, "-" for standard input. Complains when that fails.
  bool Load(const char *path);

  /// Checks every line. Complains about the first that is wrong, with its number.
  bool Check();

  /// The records by table, in the order of each; valid after Check().
  List<Entry> &Entries() { return entries_; }
  std::string_view KeyOf(const Entry &entry) const { return pairs_.Key(entry.place); }
  std::string_view ValueOf(const Entry &entry) const { return pairs_.Value(entry.place); }

  /// Whether the file names the table, with or without records.
  bool HasTable(const Table &table) const { return hasTable_[table.Row()]; }

 private:
  bool CheckLine(std::string_view line);
  int Compare(const Entry &a, const Entry &b) const;
  bool Sort();
  bool Refuse(const char *what) const;

  const char *path_ = nullptr;
  Bytes text_;
  Pairs pairs_;  // keys and values as stored
  List<Entry> entries_;
  std::uint32_t line_ = 0;
  bool hasTable_[BERKDB_TABLES] = {};
};

}  // namespace devconf
