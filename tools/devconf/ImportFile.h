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

/// One record of the file; where its key and value are in the file's memory.
struct Entry {
  const Table *table;
  std::uint32_t line;  ///< counted from 1
  std::size_t at;
  std::size_t keySize;
  std::size_t valueSize;
};

class ImportFile {
 public:
  /// Reads the file, "-" for standard input. Complains when that fails.
  bool Load(const char *path);

  /// Checks every line. Complains about the first that is wrong, with its number.
  bool Check();

  /// The records by table, in the order of each; valid after Check().
  List<Entry> &Entries() { return entries_; }
  std::string_view KeyOf(const Entry &entry) const;
  std::string_view ValueOf(const Entry &entry) const;

  /// Whether the file names the table, with or without records.
  bool HasTable(const Table &table) const { return hasTable_[table.Row()]; }

 private:
  bool CheckLine(std::string_view line);
  const char *AppendBytes(std::string_view string, tools::Form form, bool isKey, const Table &table);
  int Compare(const Entry &a, const Entry &b) const;
  bool Sort();
  bool Refuse(const char *what) const;

  const char *path_ = nullptr;
  Bytes text_;
  Bytes memory_;  // keys and values as stored
  List<Entry> entries_;
  std::uint32_t line_ = 0;
  bool hasTable_[BERKDB_TABLES] = {};
};

}  // namespace devconf
