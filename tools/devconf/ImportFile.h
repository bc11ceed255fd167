// A file of JSON lines, checked and ready to be stored.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/devconf/Bytes.h"
#include "tools/devconf/Json.h"
#include "tools/devconf/Tables.h"

namespace devconf {

/// One record as the library can store it.
struct Entry {
  const Table *table;
  std::string_view name;   ///< with its terminator; under key.data() the library finds a C string
  std::string_view value;  ///< as stored
  std::uint32_t line;      ///< counted from 1
  bool asName;             ///< phone book: stored with keypad digits behind the name
};

class ImportFile {
 public:
  /// Reads the file, "-" for standard input. Complains when that fails.
  bool Load(const char *path);

  /// Checks every line. Complains about the first that is wrong, with its number.
  bool Check();

  /// The records in the order of the file; valid after Check().
  List<Entry> &Entries() { return entries_; }

  /// Whether the table stands in the file, with or without records.
  bool HasTable(const Table &table) const { return hasTable_[&table - kCatalogue]; }

  /// Whether the file has a record of this table with this stored key.
  bool HasKey(const Table &table, std::string_view key);

 private:
  bool CheckLine(std::string_view line);
  bool CheckRepeated();
  bool Refuse(const char *what) const;

  const char *path_ = nullptr;
  Bytes text_;  // the strings are unescaped in it, each where it stands
  List<Entry> entries_;
  List<Entry> sorted_;
  std::uint32_t line_ = 0;
  bool hasTable_[BERKDB_TABLES] = {};
};

}  // namespace devconf
