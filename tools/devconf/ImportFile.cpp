// SPDX-License-Identifier: MIT
// Reads and checks a file of JSON lines. Nothing here knows the store: what passes can be stored.

#include "tools/devconf/ImportFile.h"

#include <algorithm>

#include "tools/common/Text.h"
#include "tools/devconf/Input.h"
#include "tools/devconf/Print.h"

namespace devconf {

namespace {

// A string of a line: what is between its quotes, and in which form.
struct Field {
  bool isThere = false;
  Form form = Form::kText;
  std::string_view string;
};

struct Line {
  Field table;
  Field key;
  Field value;
};

const char *PutField(Field &field, Form form, std::string_view string) {
  if (field.isThere) return "a member that is there twice, or in both forms";
  field = {true, form, string};
  return nullptr;
}

const char *PutMember(Line &line, const Member &member) {
  if (member.name == "table") return PutField(line.table, Form::kText, member.value);
  if (member.name == "key") return PutField(line.key, Form::kText, member.value);
  if (member.name == "key_bytes") return PutField(line.key, Form::kBytes, member.value);
  if (member.name == "value") return PutField(line.value, Form::kText, member.value);
  if (member.name == "value_bytes") return PutField(line.value, Form::kBytes, member.value);
  return "a member other than table, key, key_bytes, value and value_bytes";
}

const char *SplitLine(std::string_view text, Line &line) {
  Member members[3];
  std::size_t count = 0;
  if (const char *wrong = ReadObject(text, members, count); wrong != nullptr) return wrong;
  for (std::size_t i = 0; i < count; ++i) {
    if (const char *wrong = PutMember(line, members[i]); wrong != nullptr) return wrong;
  }
  if (!line.table.isThere) return "no table";
  if (line.key.isThere != line.value.isThere)
    return line.key.isThere ? "a key without a value" : "a value without a key";
  return nullptr;
}

}  // namespace

bool ImportFile::Load(const char *path) {
  path_ = InputName(path);
  return ReadInput(path, text_);
}

bool ImportFile::Check() {
  std::string_view rest = text_.View();
  while (!rest.empty()) {
    ++line_;
    const std::string_view line = First(rest, rest.find('\n'));
    rest = After(rest, line.size() + 1);
    if (line.find_first_not_of(" \t\r") != std::string_view::npos && !CheckLine(line)) return false;
  }
  return Sort();
}

std::string_view ImportFile::KeyOf(const Entry &entry) const {
  return First(After(memory_.View(), entry.at), entry.keySize);
}

std::string_view ImportFile::ValueOf(const Entry &entry) const {
  return First(After(memory_.View(), entry.at + entry.keySize), entry.valueSize);
}

bool ImportFile::Refuse(const char *what) const {
  ComplainAboutLine(path_, line_, what);
  return false;
}

bool ImportFile::CheckLine(std::string_view text) {
  Line fields;
  if (const char *wrong = SplitLine(text, fields); wrong != nullptr) return Refuse(wrong);
  const Table *table = FindTable(fields.table.string);
  if (table == nullptr) return Refuse("unknown table");
  if (table->IsIndex()) return Refuse("the table is an index, which follows the records of its table by itself");
  hasTable_[table->Row()] = true;
  if (!fields.key.isThere) return true;

  Entry entry = {table, line_, memory_.Size(), 0, 0};
  const char *wrong = AppendBytes(fields.key.string, fields.key.form, true, *table);
  entry.keySize = memory_.Size() - entry.at;
  if (wrong == nullptr) wrong = AppendBytes(fields.value.string, fields.value.form, false, *table);
  entry.valueSize = memory_.Size() - entry.at - entry.keySize;
  if (wrong != nullptr) return Refuse(wrong);
  if (entry.keySize > kMostBytes) return Refuse("the key is too long");
  if (entry.valueSize > kMostBytes) return Refuse("the value is too long");
  entries_.Add(entry);
  return true;
}

// Appends a key or a value as it is stored.
const char *ImportFile::AppendBytes(std::string_view string, Form form, bool isKey, const Table &table) {
  const std::size_t at = memory_.Size();
  memory_.Resize(at + string.size());
  std::size_t size = 0;
  if (const char *wrong = Unescape(string, form, {memory_.Data() + at, string.size()}, size); wrong != nullptr) {
    return wrong;
  }
  memory_.Resize(at + size);
  if (form == Form::kBytes) return nullptr;
  if (!isKey) {
    memory_.Append({"\0", 1});
    return nullptr;
  }
  Bytes key;
  MakeKey(table, After(memory_.View(), at), key);
  memory_.Resize(at);
  memory_.Append(key.View());
  return nullptr;
}

int ImportFile::Compare(const Entry &a, const Entry &b) const {
  if (a.table != b.table) return a.table < b.table ? -1 : 1;
  return a.table->Compare(KeyOf(a), KeyOf(b));
}

bool ImportFile::Sort() {
  std::sort(entries_.begin(), entries_.end(), [this](const Entry &a, const Entry &b) {
    const int order = Compare(a, b);
    return order != 0 ? order < 0 : a.line < b.line;
  });
  const Entry *repeated = std::adjacent_find(entries_.begin(), entries_.end(),
                                             [this](const Entry &a, const Entry &b) { return Compare(a, b) == 0; });
  if (repeated == entries_.end()) return true;
  line_ = repeated[1].line;
  return Refuse("the record is in the file twice");
}

}  // namespace devconf
