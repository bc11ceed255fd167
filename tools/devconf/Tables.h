// SPDX-License-Identifier: MIT
// The tables as devconf names them, and the keys that the library gives records.
#pragma once

#include <devsupport/db/BerkeleyDB.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "db/for_project/StoreTables.h"
#include "tools/devconf/Bytes.h"

namespace devconf {

struct Table {
  const char *role;

  /// Its place in the catalogue.
  std::uint8_t Row() const;
  const devsupport::store::TableRule &Rule() const { return devsupport::store::kTableRules[Row()]; }
  const char *Name() const { return Rule().pName; }
  bool IsIndex() const { return Rule().IsIndex(); }
  /// The table of an index.
  const Table &IndexOf() const;
  bool IsPhoneBook() const;
  /// Where two of its keys are: below 0 when a comes first, 0 when they are the same key for the table.
  int Compare(std::string_view a, std::string_view b) const;
};

/// In the order of g_auDbTbl.
extern const Table kCatalogue[BERKDB_TABLES];

/// nullptr when there is no such table.
const Table *FindTable(std::string_view name);

/// The longest key and the longest value that are stored from here, in bytes: far more than a setting needs.
inline constexpr std::size_t kMostBytes = 16U << 20U;

/// The text at the start of some bytes, up to its terminator or to their end.
std::string_view TextOf(std::string_view bytes);

/// Whether the bytes are one text with its terminator.
bool IsTerminatedText(std::string_view bytes);

/// The key under which the library stores what the caller calls by this name: the text and its terminator, and in the
/// phone book the keypad digits and their terminator.
void MakeKey(const Table &table, std::string_view name, Bytes &key);

/// Whether the library would store a record of some name under this key; the name is the key's text then.
bool IsKeyOfName(const Table &table, std::string_view key);

}  // namespace devconf
