// SPDX-License-Identifier: MIT
// The printed forms of records: text or JSON. And complaints.
#pragma once

#include <string_view>

#include "tools/common/Escape.h"
#include "tools/devconf/Output.h"
#include "tools/devconf/Tables.h"

namespace devconf {

/// One record as it is stored. Of an index, key and value are those of the record that it leads to.
struct Record {
  const Table *table = nullptr;  ///< the primary table
  std::string_view key;
  std::string_view value;
  const Table *index = nullptr;  ///< the index through which it was found, if any
  std::string_view indexKey = {};
};

/// Prints bytes as a JSON string with its quotes.
void PrintJsonString(std::string_view bytes, tools::Form form);

/// Prints one record on a line of standard output: key, tab, value; or its JSON object.
void PrintRecord(const Record &record, bool json);

/// Prints a record whose table is not known as a JSON object with the table "?".
void PrintWithoutTable(std::string_view key, std::string_view value);

/// Prints a table's JSON object without a record. It marks the table as part of the file.
void PrintTableLine(const Table &table);

/// Prints a change as a line for devconf batch, or as a JSON object; the value of a deletion is nullptr.
void PrintDifference(const Table &table, std::string_view key, const std::string_view *value, bool json);

/// Prints "devconf: TABLE "KEY": what" on standard error, with the key as a name.
void Complain(const Table &table, std::string_view key, const char *what);

/// Prints "devconf: what" and a word in quotes, unless that is empty.
void Complain(const char *what, std::string_view word = {});

/// Prints "devconf: FILE:LINE: what".
void ComplainAboutLine(const char *file, unsigned line, const char *what);

}  // namespace devconf
