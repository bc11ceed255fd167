// SPDX-License-Identifier: MIT
// The tables, and the keys of their records.

#include "tools/devconf/Tables.h"

#include <db.h>
#include <devsupport/detail/db/DbRecord.h>

#include "tools/common/Text.h"

namespace devconf {

namespace {

constexpr int kPhoneBookRow = 2;

DBT RecordOf(std::string_view bytes) {
  DBT record = {};
  // The orders read these bytes only.
  record.data = const_cast<char *>(bytes.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  record.size = static_cast<u_int32_t>(bytes.size());
  return record;
}

}  // namespace

const Table kCatalogue[BERKDB_TABLES] = {
    {"named settings"},
    {"table that runs downwards"},
    {"phone book, by name"},
    {"phone book, by number"},
    {"phone book, by keypad digits"},
    {"speed dials"},
    {"dial plans"},
    {"function keys"},
    {"lines"},
    {"SIP trunks"},
    {"routes"},
    {"routes, by the first three bytes of the key"},
    {"tones"},
};

std::uint8_t Table::Row() const { return static_cast<std::uint8_t>(this - kCatalogue); }

const Table &Table::IndexOf() const { return kCatalogue[Rule().nPrimary]; }

bool Table::IsPhoneBook() const { return Row() == kPhoneBookRow; }

int Table::Compare(std::string_view a, std::string_view b) const {
  if (Rule().pfnCompare == nullptr) return a.compare(b);
  const DBT recordA = RecordOf(a);
  const DBT recordB = RecordOf(b);
  return Rule().pfnCompare(nullptr, &recordA, &recordB);
}

const Table *FindTable(std::string_view name) {
  for (const Table &table : kCatalogue) {
    if (name == table.Name()) return &table;
  }
  return nullptr;
}

std::string_view TextOf(std::string_view bytes) { return tools::First(bytes, bytes.find('\0')); }

bool IsTerminatedText(std::string_view bytes) { return !bytes.empty() && bytes.find('\0') == bytes.size() - 1; }

void MakeKey(const Table &table, std::string_view name, Bytes &key) {
  constexpr std::string_view kTerminator{"\0", 1};
  key.Assign(name);
  key.Append(kTerminator);
  if (!table.IsPhoneBook()) return;
  for (const char c : name) {
    const char digit = _Letter2Num(c);
    if (digit == '\0') break;
    key.Append({&digit, 1});
  }
  key.Append(kTerminator);
}

bool IsKeyOfName(const Table &table, std::string_view key) {
  if (!table.IsPhoneBook()) return IsTerminatedText(key);
  Bytes expected;
  MakeKey(table, TextOf(key), expected);
  return expected.View() == key;
}

}  // namespace devconf
