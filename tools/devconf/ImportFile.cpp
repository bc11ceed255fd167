// SPDX-License-Identifier: MIT
// Reads and checks a file of JSON lines, without the store. Records that pass the checks can be stored.

#include "tools/devconf/ImportFile.h"

#include <algorithm>

#include "tools/common/Text.h"
#include "tools/devconf/Input.h"
#include "tools/devconf/Print.h"

namespace devconf {

namespace {

// A string of a line: the text between its quotes, and its form.
struct Field {
  bool isThere = false;
  Form form = Form::Text;
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
  if (member.name == "table") return PutField(line.table, Form::Text, member.value);
  if (member.name == "key") return PutField(line.key, Form::Text, member.value);
  if (member.name == "key_bytes") return PutField(line.key, Form::Bytes, member.value);
  if (member.name == "value") return PutField(line.value, Form::Text, member.value);
  if (member.name == "value_bytes") return PutField(line.value, Form::Bytes, member.value);
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

const char *ReadField(const Field &field, Bytes &bytes) {
  std::size_t size = 0;
  bytes.Resize(field.string.size());
  const char *wrong = Unescape(field.string, field.form, {bytes.Data(), bytes.Size()}, size);
  bytes.Resize(size);
  return wrong;
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

  Bytes name;
  Bytes key;
  Bytes value;
  const char *wrong = ReadField(fields.key, name);
  if (wrong == nullptr) wrong = ReadField(fields.value, value);
  if (wrong != nullptr) return Refuse(wrong);
  const bool isName = fields.key.form == Form::Text;
  if (isName) MakeKey(*table, name.View(), key);
  if (fields.value.form == Form::Text) value.Append({"\0", 1});
  const std::string_view storedKey = isName ? key.View() : name.View();
  if (storedKey.size() > kMostBytes) return Refuse("the key is too long");
  if (value.Size() > kMostBytes) return Refuse("the value is too long");
  entries_.Add({table, line_, pairs_.Add(storedKey, value.View())});
  return true;
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
