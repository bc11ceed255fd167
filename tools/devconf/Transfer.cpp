// SPDX-License-Identifier: MIT
// Export, import, and what an import would change.

#include <cerrno>

#include "tools/devconf/Changes.h"
#include "tools/devconf/Commands.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Records.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

bool ExportTable(const Table &table) {
  PrintTableLine(table);
  TableWalk walk(table, "");
  Answer answer = Answer::No;
  while ((answer = walk.Next()) == Answer::Yes) PrintRecord({&table, walk.Key(), walk.Value()}, true);
  return answer == Answer::No;
}

// Walks over a table and its entries in the file side by side. Calls
//   visit(key, in the store or nullptr, in the file or nullptr)
// for each key, the first pointer to the value in the store, the second to the entry. False when the table cannot be
// read.
template <typename TVisit>
bool Compare(const Table &table, ImportFile &file, TVisit visit) {
  Entry *entry = file.Entries().begin();
  Entry *const end = file.Entries().end();
  while (entry != end && entry->table < &table) ++entry;
  const auto isLeft = [&] { return entry != end && entry->table == &table; };
  TableWalk walk(table, "");
  Answer answer = walk.Next();
  while (answer == Answer::Yes || (answer == Answer::No && isLeft())) {
    const int order = answer == Answer::No ? 1 : isLeft() ? table.Compare(walk.Key(), file.KeyOf(*entry)) : -1;
    const std::string_view value = walk.Value();
    visit(order <= 0 ? walk.Key() : file.KeyOf(*entry), order <= 0 ? &value : nullptr, order >= 0 ? entry : nullptr);
    if (order >= 0) ++entry;
    if (order <= 0) answer = walk.Next();
  }
  return answer == Answer::No;
}

void AddEntries(ImportFile &file, Changes &changes) {
  for (const Entry &entry : file.Entries()) {
    changes.Add(Changes::Kind::Put, *entry.table, file.KeyOf(entry), file.ValueOf(entry));
  }
}

// What has to be deleted for the tables to hold nothing but what the file has.
bool AddDeletions(ImportFile &file, Changes &changes) {
  for (const Table &table : kCatalogue) {
    if (!file.HasTable(table)) continue;
    const auto visit = [&](std::string_view key, const std::string_view * /*stored*/, const Entry *entry) {
      if (entry == nullptr) changes.Add(Changes::Kind::DeleteIfThere, table, key, {});
    };
    if (!Compare(table, file, visit)) return false;
  }
  return true;
}

}  // namespace

int Export(const char *tableName) {
  const Table *only = tableName != nullptr ? FindTable(tableName) : nullptr;
  if (only != nullptr && only->IsIndex()) {
    Complain("an index has no records of its own; export its table,", only->IndexOf().Name());
    return status::kMistake;
  }
  for (const Table &table : kCatalogue) {
    const bool isWanted = only != nullptr ? &table == only : !table.IsIndex();
    if (isWanted && !ExportTable(table)) return status::kFailed;
  }
  return status::kDone;
}

namespace {

// How often others may change the store between planning and storing.
constexpr int kMostAttempts = 20;

// Stores the records of the file, and deletes what it does not have in its tables.
Changes::Result Replace(ImportFile &file) {
  Changes::Result result;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const std::uint32_t counted = devsupport::store::CountedChanges();
    Changes changes;
    AddEntries(file, changes);
    result.nResult = AddDeletions(file, changes) ? 0 : EIO;
    if (result.nResult == 0) result = changes.Apply(&counted);
    if (result.nResult != EAGAIN) break;
  }
  return result;
}

Changes::Result Merge(ImportFile &file) {
  Changes changes;
  AddEntries(file, changes);
  return changes.Apply();
}

}  // namespace

int Import(const Options &options) {
  ImportFile file;
  if (!file.Load(options.words[0]) || !file.Check()) return status::kRefused;
  Store store;
  if (const int result = store.OpenToChange(options); result != status::kDone) return result;
  const Changes::Result result = options.replace ? Replace(file) : Merge(file);
  if (result.nResult != 0) return ExplainFailure(result.nResult);
  PrintCounts(result.counts, options.json);
  return status::kDone;
}

int Diff(ImportFile &file, const Options &options) {
  for (const Table &table : kCatalogue) {
    if (!file.HasTable(table)) continue;
    const auto visit = [&](std::string_view key, const std::string_view *stored, const Entry *entry) {
      if (entry == nullptr) {
        if (options.replace) PrintDifference(table, key, nullptr, options.json);
        return;
      }
      const std::string_view value = file.ValueOf(*entry);
      if (stored == nullptr || *stored != value) PrintDifference(table, key, &value, options.json);
    };
    if (!Compare(table, file, visit)) return status::kFailed;
  }
  return status::kDone;
}

}  // namespace devconf
