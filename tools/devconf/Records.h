// Reads records whole, with the library's own operations: any bytes, and as many as there are.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/devconf/Bytes.h"
#include "tools/devconf/Tables.h"

namespace devconf {

enum class Answer : std::uint8_t { kYes, kNo, kFailed };

/// Reads the value of a key.
/// key        in      the key as stored
/// value      out     all bytes of the value
/// Returns    kYes; kNo without such a record; kFailed, which has been complained about.
Answer ReadValue(const Table &table, std::string_view key, Bytes &value);

/// Walks over the records of a primary table whose keys begin with a prefix, in the table's order. Others may change
/// the table meanwhile: the walk goes on behind the last key it gave.
class TableWalk {
 public:
  TableWalk(const Table &table, std::string_view prefix);

  /// Steps to the next record. Returns kNo behind the last one; kFailed has been complained about, unless a
  /// signal waits.
  Answer Next();

  std::string_view Key() const { return key_.View(); }
  std::string_view Value() const { return value_.View(); }

 private:
  enum class Place : std::uint8_t { kFound, kEnd, kMoved, kFailed };

  bool MoveStart();
  Place Locate();
  bool MakeBeginning(std::string_view found, Bytes &beginning) const;

  const Table &table_;
  Bytes prefix_;
  Bytes start_;
  Bytes key_;
  Bytes value_;
  bool begun_ = false;
};

}  // namespace devconf
