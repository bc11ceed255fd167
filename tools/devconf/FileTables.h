// SPDX-License-Identifier: MIT
// The tables of a file, opened for reading and without an environment: a copy, or a closed store.
#pragma once

#include <devsupport/db/BerkeleyDB.h>

namespace devconf {

enum class Indexes : bool {
  ByThemselves,  ///< as tables of their own: index key and key
  Bound          ///< leading to the records of their tables
};

class FileTables {
 public:
  FileTables() = default;
  ~FileTables() { Close(); }
  FileTables(const FileTables &) = delete;
  FileTables &operator=(const FileTables &) = delete;

  /// Opens all tables, or none. Complains.
  bool Open(const char *path, Indexes indexes);
  void Close();
  bool IsOpen() const { return handles_[0] != nullptr; }
  struct __db *Handle(unsigned row) const {
    return handles_[row];
  }

 private:
  bool OpenOne(const char *path, unsigned row);
  bool Bind();

  struct __db *handles_[BERKDB_TABLES] = {};
};

/// Checks the pages of a file with the store's checker, and the order of the records of one table; without a table, at
/// the pages of all. Complains with the checker's words. Returns whether the file is whole.
bool IsFileWhole(const char *path);
bool IsTableInOrder(const char *path, unsigned row);

}  // namespace devconf
