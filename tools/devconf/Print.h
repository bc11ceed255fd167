// What devconf prints: records and words for people, or JSON; complaints.
#pragma once

#include <cstdio>
#include <string_view>

#include "tools/devconf/Json.h"
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

/// Prints bytes for people: what is no character, or does something to a terminal, as \xNN.
void PrintShown(std::FILE *stream, std::string_view bytes);

/// Prints bytes as a JSON string with its quotes.
void PrintJsonString(std::string_view bytes, Form form);

/// Prints one record on a line of standard output: key, tab, value; or its JSON object.
void PrintRecord(const Record &record, bool json);

/// Prints a table's JSON object without a record: it says that the table belongs to what follows.
void PrintTableLine(const Table &table);

/// Prints "devconf: TABLE "KEY": what" on standard error; the key as people call it.
void Complain(const char *table, std::string_view key, const char *what);

/// Prints "devconf: what" with a word in quotes behind it, unless that is empty.
void Complain(const char *what, std::string_view word = {});

/// Writes out standard output. Complains and returns false when something was lost.
bool FinishOutput();

}  // namespace devconf
