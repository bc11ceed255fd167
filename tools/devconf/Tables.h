// What devconf knows about the tables beyond the library's catalogue, and the keys that the library gives records.
#pragma once

#include <devsupport/db/BerkeleyDB.h>

#include <cstddef>
#include <string_view>

#include "tools/devconf/Bytes.h"

namespace devconf {

/// The longest key, in bytes as stored: the library reads keys into 256 bytes, and one is needed to step behind it.
inline constexpr std::size_t kMostKeyBytes = 255;

/// The longest value that is stored from here, in bytes.
inline constexpr std::size_t kMostValueBytes = 65536;

struct Table {
  const char *name;
  const char *role;
  const char *indexOf;  ///< nullptr for a primary table

  bool IsIndex() const { return indexOf != nullptr; }
  bool IsPhoneBook() const;
  /// Whether it runs downwards, in the order of the texts of its keys.
  bool RunsDown() const;
  /// The handle; nullptr while the store is closed.
  struct __db *Handle() const;
};

/// In the order of g_auDbTbl.
extern const Table kCatalogue[BERKDB_TABLES];

/// nullptr when there is no such table.
const Table *FindTable(std::string_view name);

/// The text at the start of some bytes, up to its terminator or to their end.
std::string_view TextOf(std::string_view bytes);

/// Whether the bytes are one text with its terminator.
bool IsTerminatedText(std::string_view bytes);

/// The key under which the library stores what the caller calls by this name: the text and its terminator, and in the
/// phone book the keypad digits and their terminator.
void MakeKey(const Table &table, std::string_view name, Bytes &key);

/// Whether the library would store a record of some name under this key; the name is the key's text then.
bool IsKeyOfName(const Table &table, std::string_view key);

/// The text under which an index has a record of its table.
std::string_view IndexKeyOf(const Table &index, std::string_view key, std::string_view value);

}  // namespace devconf
