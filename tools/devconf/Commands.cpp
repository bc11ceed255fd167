// Everything but import, export and verify.

#include "tools/devconf/Commands.h"

#include <devsupport/db/DbRecord.h>

#include <cstdio>
#include <cstring>

#include "tools/devconf/Print.h"
#include "tools/devconf/Records.h"
#include "tools/devconf/Search.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"
#include "tools/devconf/Transfer.h"
#include "tools/devconf/Verify.h"

namespace devconf {

namespace {

constexpr char kSettings[] = "tb_parameter";
constexpr char kPhoneBook[] = "tb_pb";
constexpr char kNumbers[] = "stb_pb";
constexpr char kDigits[] = "stb_1_pb";

int StatusOf(Answer answer) {
  switch (answer) {
    case Answer::kYes:
      return status::kDone;
    case Answer::kNo:
      return status::kNothingFound;
    default:
      return status::kFailed;
  }
}

const Table *FindTableOrComplain(const char *name) {
  const Table *table = FindTable(name);
  if (table == nullptr) Complain("unknown table", name);
  return table;
}

int Get(const Options &options) {
  const Table &table = *FindTable(kSettings);
  Bytes key;
  Bytes value;
  MakeKey(table, options.words[0], key);
  const Answer answer = ReadValue(table, key.View(), value);
  if (answer == Answer::kNo) Complain(table.name, options.words[0], "no such record");
  if (answer != Answer::kYes) return StatusOf(answer);
  if (options.json) {
    PrintRecord({&table, key.View(), value.View()}, true);
  } else {
    PrintShown(stdout, IsTerminatedText(value.View()) ? TextOf(value.View()) : value.View());
    std::putchar('\n');
  }
  return status::kDone;
}

int Set(const char *tableName, const Options &options) {
  const Table &table = *FindTable(tableName);
  const char *name = options.words[0];
  const char *value = options.words[1];
  Bytes key;
  MakeKey(table, name, key);
  if (key.Size() > kMostKeyBytes || std::strlen(value) >= kMostValueBytes) {
    Complain(table.name, name, key.Size() > kMostKeyBytes ? "the name is too long" : "the value is too long");
    return status::kMistake;
  }
  if (BerkDb_Set(table.Handle(), name, value) == BERKDB_OK) return status::kDone;
  Complain(table.name, name, "cannot be stored");
  return status::kFailed;
}

int Delete(const Options &options) {
  const Table &table = *FindTable(kSettings);
  const int code = BerkDb_Del(table.Handle(), options.words[0]);
  if (code == BERKDB_OK) return status::kDone;
  Complain(table.name, options.words[0], code == BERKDB_NOT_FOUND ? "no such record" : "cannot be deleted");
  return code == BERKDB_NOT_FOUND ? status::kNothingFound : status::kFailed;
}

Answer PrintMatches(const Table &table, const char *prefix, bool json) {
  if (table.IsIndex()) return PrintIndexed(table, prefix, Match::kPrefix, json);
  TableWalk walk(table, prefix);
  Answer any = Answer::kNo;
  for (;;) {
    const Answer answer = walk.Next();
    if (answer == Answer::kFailed) return answer;
    if (answer == Answer::kNo) return any;
    PrintRecord({&table, walk.Key(), walk.Value()}, json);
    any = Answer::kYes;
  }
}

const Table &NamedTable(const Options &options) {
  return *FindTable(options.words[0] != nullptr ? options.words[0] : kSettings);
}

int ListRecords(const Options &options) {
  const char *prefix = options.words[1] != nullptr ? options.words[1] : "";
  return PrintMatches(NamedTable(options), prefix, options.json) == Answer::kFailed ? status::kFailed : status::kDone;
}

int Find(const Options &options) {
  const Table &table = NamedTable(options);
  const Answer answer = PrintMatches(table, options.words[1], options.json);
  if (answer == Answer::kNo) Complain(table.name, options.words[1], "nothing begins like this");
  return StatusOf(answer);
}

int FindIndexed(const char *indexName, Match match, const Options &options) {
  const char *wanted = options.words[0];
  if (match == Match::kPrefix && (*wanted == '\0' || wanted[std::strspn(wanted, "0123456789")] != '\0')) {
    Complain("no keypad digits", wanted);
    return status::kMistake;
  }
  const Answer answer = PrintIndexed(*FindTable(indexName), wanted, match, options.json);
  if (answer == Answer::kNo) Complain(indexName, wanted, "no such entry");
  return StatusOf(answer);
}

bool Count(const Table &table, unsigned long &count) {
  TableWalk walk(table, "");
  Answer answer = Answer::kNo;
  for (count = 0; (answer = walk.Next()) == Answer::kYes;) ++count;
  return answer == Answer::kNo;
}

void PrintTable(const Table &table, unsigned long count, bool json) {
  if (json) {
    std::printf("{\"table\":\"%s\",\"role\":\"%s\",\"records\":%lu,\"index_of\":", table.name, table.role, count);
    std::printf(table.IsIndex() ? "\"%s\"}\n" : "null}\n", table.indexOf);
  } else {
    std::printf("%-13s %8lu  %-9s  %s\n", table.name, count, table.IsIndex() ? table.indexOf : "-", table.role);
  }
}

int PrintTables(const Options &options) {
  if (!options.json) std::puts("TABLE          RECORDS  INDEX OF   ROLE");
  for (const Table &table : kCatalogue) {
    // An index has one entry for each record of its table; verify looks whether it really has.
    unsigned long count = 0;
    if (!Count(table.IsIndex() ? *FindTable(table.indexOf) : table, count)) return status::kFailed;
    PrintTable(table, count, options.json);
  }
  return status::kDone;
}

int RunInStore(const Options &options) {
  switch (options.command) {
    case Command::kGet:
      return Get(options);
    case Command::kSet:
      return Set(kSettings, options);
    case Command::kDelete:
      return Delete(options);
    case Command::kList:
      return ListRecords(options);
    case Command::kTables:
      return PrintTables(options);
    case Command::kFind:
      return Find(options);
    case Command::kPhoneBookAdd:
      return Set(kPhoneBook, options);
    case Command::kPhoneBookFind:
      return FindIndexed(kDigits, Match::kPrefix, options);
    case Command::kPhoneBookNumber:
      return FindIndexed(kNumbers, Match::kWhole, options);
    case Command::kExport:
      return Export(options.words[0]);
    default:
      return status::kDone;  // init: the store is there
  }
}

bool NamesTable(Command command) {
  return command == Command::kList || command == Command::kFind || command == Command::kExport;
}

}  // namespace

int RunCommand(const Options &options) {
  if (NamesTable(options.command) && options.words[0] != nullptr &&
      FindTableOrComplain(options.words[0]) == nullptr) {
    return status::kMistake;
  }
  if (options.command == Command::kVerify) return Verify(options);
  if (options.command == Command::kImport) return Import(options);
  Store store;
  const bool isOpen = options.command == Command::kInit ? store.OpenOrMake(options) : store.Open(options);
  return isOpen ? RunInStore(options) : status::kNoDatabase;
}

}  // namespace devconf
