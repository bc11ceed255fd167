// Reads and checks a file of JSON lines. Nothing here knows the store: what passes can be stored.

#include "tools/devconf/ImportFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/devconf/Print.h"

namespace devconf {

namespace {

constexpr std::size_t kReadBytes = 65536;

// A string of a line: where it stands, and in which form.
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

// Unescapes a string where it stands: it only becomes shorter, and a text's terminator replaces its closing quote.
const char *UnescapeInPlace(const Field &field, char *text, std::string_view &bytes) {
  std::size_t size = 0;
  const char *wrong = Unescape(field.string, field.form, {text, field.string.size()}, size);
  if (wrong != nullptr) return wrong;
  if (field.form == Form::kText) text[size++] = '\0';
  bytes = {text, size};
  return nullptr;
}

// Finds out how the library has to be asked to store this record.
const char *MakeEntry(const Table &table, Form keyForm, std::string_view key, std::string_view value, Entry &entry) {
  Bytes stored;
  if (keyForm == Form::kText) {
    MakeKey(table, TextOf(key), stored);
  } else {
    stored.Assign(key);
  }
  const bool asName = table.IsPhoneBook() && IsKeyOfName(table, stored.View());
  if (!asName && !IsTerminatedText(stored.View())) return "the library cannot store this key";
  if (stored.Size() > kMostKeyBytes) return "the key is too long";
  if (value.size() > kMostValueBytes) return "the value is too long";
  if (asName && !IsTerminatedText(value)) return "the library stores nothing but texts under a name";
  entry.table = &table;
  entry.name = First(key, TextOf(key).size() + 1);
  entry.value = value;
  entry.asName = asName;
  return nullptr;
}

int Compare(const Entry &a, const Entry &b) {
  if (a.table != b.table) return a.table < b.table ? -1 : 1;
  if (a.asName != b.asName) return a.asName ? 1 : -1;
  return a.name.compare(b.name);
}

bool IsBefore(const Entry &a, const Entry &b) { return Compare(a, b) < 0; }

}  // namespace

bool ImportFile::Load(const char *path) {
  const bool isStandardInput = std::strcmp(path, "-") == 0;
  path_ = isStandardInput ? "standard input" : path;
  const int fd = isStandardInput ? STDIN_FILENO : ::open(path, O_RDONLY | O_CLOEXEC);
  ssize_t got = fd < 0 ? -1 : 1;
  while (got > 0) {
    const std::size_t size = text_.Size();
    text_.Resize(size + kReadBytes);
    do {
      got = ::read(fd, text_.Data() + size, kReadBytes);
    } while (got < 0 && errno == EINTR);
    text_.Resize(size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  }
  if (got < 0) Complain(std::strerror(errno), path_);
  if (fd > STDERR_FILENO) ::close(fd);
  return got == 0;
}

bool ImportFile::Check() {
  std::string_view rest = text_.View();
  while (!rest.empty()) {
    ++line_;
    const std::string_view line = First(rest, rest.find('\n'));
    rest = After(rest, line.size() + 1);
    if (line.find_first_not_of(" \t\r") != std::string_view::npos && !CheckLine(line)) return false;
  }
  return CheckRepeated();
}

bool ImportFile::HasKey(const Table &table, std::string_view key) {
  Entry wanted{};
  wanted.table = &table;
  wanted.asName = table.IsPhoneBook() && IsKeyOfName(table, key);
  wanted.name = wanted.asName ? First(key, TextOf(key).size() + 1) : key;
  return std::binary_search(sorted_.begin(), sorted_.end(), wanted, IsBefore);
}

bool ImportFile::Refuse(const char *what) const {
  std::fputs("devconf: ", stderr);
  PrintShown(stderr, path_);
  std::fprintf(stderr, ":%lu: %s\n", static_cast<unsigned long>(line_), what);
  return false;
}

bool ImportFile::CheckLine(std::string_view line) {
  const auto inPlace = [this](std::string_view string) { return text_.Data() + (string.data() - text_.Data()); };
  Line fields;
  if (const char *wrong = SplitLine(line, fields); wrong != nullptr) return Refuse(wrong);

  std::string_view name;
  if (const char *wrong = UnescapeInPlace(fields.table, inPlace(fields.table.string), name); wrong != nullptr) {
    return Refuse(wrong);
  }
  const Table *table = FindTable(TextOf(name));
  if (table == nullptr) return Refuse("unknown table");
  if (table->IsIndex()) return Refuse("the table is an index, which follows the records of its table by itself");
  hasTable_[table - kCatalogue] = true;
  if (!fields.key.isThere) return true;

  std::string_view key;
  std::string_view value;
  Entry entry{};
  const char *wrong = UnescapeInPlace(fields.key, inPlace(fields.key.string), key);
  if (wrong == nullptr) wrong = UnescapeInPlace(fields.value, inPlace(fields.value.string), value);
  if (wrong == nullptr) wrong = MakeEntry(*table, fields.key.form, key, value, entry);
  entry.line = line_;
  if (wrong != nullptr) return Refuse(wrong);
  entries_.Add(entry);
  return true;
}

bool ImportFile::CheckRepeated() {
  for (const Entry &entry : entries_) sorted_.Add(entry);
  std::sort(sorted_.begin(), sorted_.end(),
            [](const Entry &a, const Entry &b) { return Compare(a, b) != 0 ? IsBefore(a, b) : a.line < b.line; });
  const Entry *repeated = std::adjacent_find(sorted_.begin(), sorted_.end(),
                                             [](const Entry &a, const Entry &b) { return Compare(a, b) == 0; });
  if (repeated == sorted_.end()) return true;
  line_ = repeated[1].line;
  return Refuse("the record is in the file twice");
}

}  // namespace devconf
