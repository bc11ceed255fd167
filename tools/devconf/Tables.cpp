// The tables, and the keys of their records.

#include "tools/devconf/Tables.h"

#include <devsupport/detail/db/DbRecord.h>

#include <cstring>

#include "tools/devconf/Json.h"

namespace devconf {

const Table kCatalogue[BERKDB_TABLES] = {
    {"tb_parameter", "named settings", nullptr},
    {"tb_dm", "table that runs downwards", nullptr},
    {"tb_pb", "phone book, by name", nullptr},
    {"stb_pb", "phone book, by number", "tb_pb"},
    {"stb_1_pb", "phone book, by keypad digits", "tb_pb"},
    {"tb_speedd", "speed dials", nullptr},
    {"tb_dialp", "dial plans", nullptr},
    {"tb_fkey", "function keys", nullptr},
    {"tb_line", "lines", nullptr},
    {"tb_siptk", "SIP trunks", nullptr},
    {"tb_route", "routes", nullptr},
    {"stb_route", "routes, by the first three bytes of the key", "tb_route"},
    {"tb_tone", "tones", nullptr},
};

bool Table::IsPhoneBook() const { return std::strcmp(name, "tb_pb") == 0; }

bool Table::RunsDown() const { return std::strcmp(name, "tb_dm") == 0; }

struct __db *Table::Handle() const {
  return *g_auDbTbl[this - kCatalogue].ppDb;
}

const Table *FindTable(std::string_view name) {
  for (const Table &table : kCatalogue) {
    if (name == table.name) return &table;
  }
  return nullptr;
}

std::string_view TextOf(std::string_view bytes) { return First(bytes, bytes.find('\0')); }

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

std::string_view IndexKeyOf(const Table &index, std::string_view key, std::string_view value) {
  const std::string_view name = index.name;
  if (name == "stb_pb") return First(TextOf(value), TextOf(value).find(';'));
  if (name == "stb_1_pb") return TextOf(After(key, TextOf(key).size() + 1));
  return TextOf(First(key, 3));
}

}  // namespace devconf
