// SPDX-License-Identifier: MIT
// The commands that read and change single records, and what each command needs of the store.

#include "tools/devconf/Commands.h"

#include <unistd.h>

#include <cstring>
#include <optional>

#include "tools/common/Text.h"
#include "tools/devconf/Changes.h"
#include "tools/devconf/Input.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Records.h"
#include "tools/devconf/Search.h"
#include "tools/devconf/Shown.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

constexpr char kSettings[] = "tb_parameter";
constexpr char kPhoneBook[] = "tb_pb";
constexpr char kNumbers[] = "stb_pb";
constexpr char kDigits[] = "stb_1_pb";

int StatusOf(Answer answer) {
  switch (answer) {
    case Answer::Yes:
      return status::kDone;
    case Answer::No:
      return status::kNothingFound;
    default:
      return status::kFailed;
  }
}

bool IsPhoneBookCommand(Command command) {
  return command == Command::PhoneBookSet || command == Command::PhoneBookDelete;
}

// The table of a command that is about one record.
const Table &TableOf(const Options &options) {
  if (IsPhoneBookCommand(options.command)) return *FindTable(kPhoneBook);
  return *FindTable(options.table != nullptr ? options.table : kSettings);
}

// A word of the command line, escaped or as it is.
bool ReadWord(const char *word, const Options &options, Unshown &unshown) {
  if (options.writing != Writing::Escaped) {
    unshown.bytes.Assign(word);
    return true;
  }
  const char *wrong = Unshow(word, unshown);
  if (wrong != nullptr) Complain(wrong, word);
  return wrong == nullptr;
}

bool ReadKey(const Table &table, const Options &options, Bytes &key) {
  Unshown name;
  if (!ReadWord(options.words[0], options, name)) return false;
  KeyOf(table, name, key);
  return true;
}

void PrintValue(std::string_view value, Writing writing) {
  if (writing == Writing::ByOutput) writing = ::isatty(STDOUT_FILENO) == 1 ? Writing::Escaped : Writing::Raw;
  if (writing == Writing::Raw) return Put(Stream::Out, IsTerminatedText(value) ? TextOf(value) : value);
  Bytes shown;
  AppendShownValue(shown, value);
  shown.Append("\n");
  Put(Stream::Out, shown.View());
}

int Get(const Options &options) {
  const Table &table = TableOf(options);
  Bytes key;
  GrownBytes value;
  if (!ReadKey(table, options, key)) return status::kMistake;
  const Answer answer = ReadValue(table, key.View(), value);
  if (answer == Answer::No) Complain(table, key.View(), "no such record");
  if (answer != Answer::Yes) return StatusOf(answer);
  if (options.json) {
    PrintRecord({&table, key.View(), value.View()}, true);
  } else {
    PrintValue(value.View(), options.writing);
  }
  return status::kDone;
}

// The value of set: a word, a file, or standard input.
int ReadNewValue(const Options &options, Bytes &value) {
  const bool isFile = options.from != nullptr || std::strcmp(options.words[1], "-") == 0;
  Unshown text;
  if (!isFile && !ReadWord(options.words[1], options, text)) return status::kMistake;
  if (isFile && !ReadInput(options.from != nullptr ? options.from : "-", text.bytes)) return status::kRefused;
  ValueOf(text, value);
  return status::kDone;
}

int Apply(const Options &options, Changes &changes) {
  Store store;
  if (const int result = store.OpenToChange(options); result != status::kDone) return result;
  const Changes::Result result = changes.Apply();
  return result.nResult == 0 ? status::kDone : ExplainFailure(changes, result, nullptr);
}

int Set(const Options &options) {
  const Table &table = TableOf(options);
  Bytes key;
  Bytes value;
  if (!ReadKey(table, options, key)) return status::kMistake;
  if (const int result = ReadNewValue(options, value); result != status::kDone) return result;
  if (key.Size() > kMostBytes || value.Size() > kMostBytes) {
    Complain(table, key.View(), key.Size() > kMostBytes ? "the name is too long" : "the value is too long");
    return status::kMistake;
  }
  Changes changes;
  changes.Add(Changes::Kind::Put, table, key.View(), value.View());
  return Apply(options, changes);
}

int Delete(const Options &options) {
  const Table &table = TableOf(options);
  Bytes key;
  if (!ReadKey(table, options, key)) return status::kMistake;
  Changes changes;
  changes.Add(Changes::Kind::Delete, table, key.View(), {});
  return Apply(options, changes);
}

Answer PrintMatches(const Table &table, const char *prefix, bool json) {
  if (table.IsIndex()) return PrintIndexed(table, prefix, Match::Prefix, json);
  TableWalk walk(table, prefix);
  Answer any = Answer::No;
  for (;;) {
    const Answer answer = walk.Next();
    if (answer == Answer::Failed) return answer;
    if (answer == Answer::No) return any;
    PrintRecord({&table, walk.Key(), walk.Value()}, json);
    any = Answer::Yes;
  }
}

const Table &NamedTable(const Options &options) {
  return *FindTable(options.words[0] != nullptr ? options.words[0] : kSettings);
}

int ListRecords(const Options &options) {
  const char *prefix = options.words[1] != nullptr ? options.words[1] : "";
  return PrintMatches(NamedTable(options), prefix, options.json) == Answer::Failed ? status::kFailed : status::kDone;
}

int Find(const Options &options) {
  const Table &table = NamedTable(options);
  const Answer answer = PrintMatches(table, options.words[1], options.json);
  if (answer == Answer::No) Complain(table, options.words[1], "nothing begins like this");
  return StatusOf(answer);
}

int FindIndexed(const char *indexName, Match match, const Options &options) {
  const char *wanted = options.words[0];
  if (match == Match::Prefix && (*wanted == '\0' || wanted[std::strspn(wanted, "0123456789")] != '\0')) {
    Complain("no keypad digits", wanted);
    return status::kMistake;
  }
  const Table &index = *FindTable(indexName);
  const Answer answer = PrintIndexed(index, wanted, match, options.json);
  if (answer == Answer::No) Complain(index, wanted, "no such entry");
  return StatusOf(answer);
}

bool Count(const Table &table, unsigned long &count) {
  TableWalk walk(table, "");
  Answer answer = Answer::No;
  for (count = 0; (answer = walk.Next()) == Answer::Yes;) ++count;
  return answer == Answer::No;
}

void PrintTable(const Table &table, unsigned long count, bool json) {
  const char *indexOf = table.IsIndex() ? table.IndexOf().Name() : nullptr;
  if (!json) {
    return Format(Stream::Out, "%-13s %8lu  %-9s  %s\n", table.Name(), count, indexOf != nullptr ? indexOf : "-",
                  table.role);
  }
  Format(Stream::Out, "{\"table\":\"%s\",\"role\":\"%s\",\"records\":%lu,\"index_of\":", table.Name(), table.role,
         count);
  Format(Stream::Out, indexOf != nullptr ? "\"%s\"}\n" : "null}\n", indexOf);
}

int PrintTables(const Options &options) {
  if (!options.json) Put(Stream::Out, "TABLE          RECORDS  INDEX OF   ROLE\n");
  for (const Table &table : kCatalogue) {
    unsigned long count = 0;
    if (!Count(table, count)) return status::kFailed;
    PrintTable(table, count, options.json);
  }
  return status::kDone;
}

int RunInStore(const Options &options, ImportFile &file) {
  switch (options.command) {
    case Command::Get:
      return Get(options);
    case Command::List:
      return ListRecords(options);
    case Command::Tables:
      return PrintTables(options);
    case Command::Find:
      return Find(options);
    case Command::PhoneBookFind:
      return FindIndexed(kDigits, Match::Prefix, options);
    case Command::PhoneBookNumber:
      return FindIndexed(kNumbers, Match::Whole, options);
    case Command::Diff:
      return Diff(file, options);
    default:
      return Export(options.words[0]);
  }
}

// Returns nothing when a process opened the store while it was read.
std::optional<int> ReadOnce(const Options &options, ImportFile &file) {
  Store store;
  HoldOutput();
  int result = store.OpenToRead(options);
  if (!store.IsClosed()) ReleaseOutput();
  if (result == status::kDone) result = RunInStore(options, file);
  if (!store.IsCertain()) return std::nullopt;
  ReleaseOutput();
  return result;
}

int Read(const Options &options) {
  ImportFile file;
  if (options.command == Command::Diff && (!file.Load(options.words[0]) || !file.Check())) return status::kRefused;
  for (;;) {
    if (const std::optional<int> result = ReadOnce(options, file); result.has_value()) return *result;
    DropOutput();
  }
}

int Init(const Options &options) {
  Store store;
  return store.OpenOrMake(options);
}

bool NamesTable(Command command) {
  return command == Command::List || command == Command::Find || command == Command::Export ||
         command == Command::Watch;
}

// Whether the tables that the command line names are there, and can be used like that.
bool AreTablesRight(const Options &options) {
  for (const char *name : {options.table, NamesTable(options.command) ? options.words[0] : nullptr}) {
    if (name == nullptr || FindTable(name) != nullptr) continue;
    Complain("unknown table", name);
    return false;
  }
  if (options.table == nullptr || !FindTable(options.table)->IsIndex()) return true;
  Complain("an index has no records of its own; use its table,", FindTable(options.table)->IndexOf().Name());
  return false;
}

}  // namespace

int RunCommand(const Options &options) {
  if (!AreTablesRight(options)) return status::kMistake;
  switch (options.command) {
    case Command::Init:
      return Init(options);
    case Command::Set:
    case Command::PhoneBookSet:
      return Set(options);
    case Command::Delete:
    case Command::PhoneBookDelete:
      return Delete(options);
    case Command::Batch:
      return Batch(options);
    case Command::Import:
      return Import(options);
    case Command::Watch:
      return Watch(options);
    case Command::Verify:
      return Verify(options);
    case Command::Salvage:
      return Salvage(options);
    default:
      return Read(options);
  }
}

}  // namespace devconf
