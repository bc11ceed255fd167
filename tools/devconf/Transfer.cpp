// Export and import.

#include "tools/devconf/Transfer.h"

#include <devsupport/db/DbRecord.h>

#include <algorithm>
#include <cstdio>

#include "tools/devconf/ImportFile.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Records.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

bool ExportTable(const Table &table) {
  PrintTableLine(table);
  TableWalk walk(table, "");
  Answer answer = Answer::kNo;
  while ((answer = walk.Next()) == Answer::kYes) PrintRecord({&table, walk.Key(), walk.Value()}, true);
  return answer == Answer::kNo;
}

// A record that is in the store and not in the file.
struct Surplus {
  const Table *table;
  std::size_t nameAt;  // in the memory of all names
};

struct Counts {
  unsigned long added = 0;
  unsigned long changed = 0;
  unsigned long unchanged = 0;
  unsigned long deleted = 0;

  void Print(bool json) const {
    std::printf(json ? "{\"added\":%lu,\"changed\":%lu,\"unchanged\":%lu,\"deleted\":%lu}\n"
                     : "%lu added, %lu changed, %lu unchanged, %lu deleted\n",
                added, changed, unchanged, deleted);
  }
};

class Importer {
 public:
  explicit Importer(ImportFile &file) : file_(file) {}

  /// Finds out what has to be deleted for the tables to hold what the file has. Changes nothing.
  /// Returns the exit status.
  int PlanDeletions();

  /// Stores the records of the file, then deletes what was planned. Returns the exit status.
  int Apply();

  const Counts &Done() const { return counts_; }

 private:
  int PlanDeletions(const Table &table);
  bool StoreEntry(const Entry &entry);
  bool DeleteSurplus(const Surplus &surplus);

  ImportFile &file_;
  List<Surplus> surplus_;
  Bytes names_;
  Counts counts_;
};

int Importer::PlanDeletions() {
  for (const Table &table : kCatalogue) {
    const int result = file_.HasTable(table) ? PlanDeletions(table) : status::kDone;
    if (result != status::kDone) return result;
  }
  return status::kDone;
}

int Importer::PlanDeletions(const Table &table) {
  TableWalk walk(table, "");
  for (;;) {
    const Answer answer = walk.Next();
    if (answer == Answer::kFailed) return status::kFailed;
    if (answer == Answer::kNo) return status::kDone;
    const std::string_view key = walk.Key();
    if (file_.HasKey(table, key)) continue;
    if (!IsKeyOfName(table, key)) {
      Complain(table.name, key, "is not in the file, and the library cannot delete such a key; nothing was changed");
      return status::kRefused;
    }
    surplus_.Add({&table, names_.Size()});
    names_.Append(First(key, TextOf(key).size() + 1));
  }
}

// A record that is there already is not written again: it costs the flash memory nothing.
bool Importer::StoreEntry(const Entry &entry) {
  const Table &table = *entry.table;
  Bytes key;
  Bytes value;
  if (entry.asName) {
    MakeKey(table, TextOf(entry.name), key);
  } else {
    key.Assign(entry.name);
  }
  const Answer isThere = ReadValue(table, key.View(), value);
  if (isThere == Answer::kFailed) return false;
  if (isThere == Answer::kYes && value.View() == entry.value) {
    ++counts_.unchanged;
    return true;
  }
  const char *name = entry.name.data();
  const int code = entry.asName ? BerkDb_Set(table.Handle(), name, entry.value.data())
                                : BerkDb_Put(table.Handle(), name, entry.value.data(),
                                             static_cast<std::int32_t>(entry.value.size()));
  if (code != BERKDB_OK) {
    Complain(table.name, name, "cannot be stored");
    return false;
  }
  ++(isThere == Answer::kYes ? counts_.changed : counts_.added);
  return true;
}

bool Importer::DeleteSurplus(const Surplus &surplus) {
  const char *name = names_.Data() + surplus.nameAt;
  const int code = BerkDb_Del(surplus.table->Handle(), name);
  if (code == BERKDB_NOT_FOUND) return true;  // somebody else did it
  if (code != BERKDB_OK) {
    Complain(surplus.table->name, name, "cannot be deleted");
    return false;
  }
  ++counts_.deleted;
  return true;
}

int Importer::Apply() {
  const auto store = [this](const Entry &entry) { return !IsInterrupted() && StoreEntry(entry); };
  const auto remove = [this](const Surplus &surplus) { return !IsInterrupted() && DeleteSurplus(surplus); };
  List<Entry> &entries = file_.Entries();
  const bool isDone =
      std::all_of(entries.begin(), entries.end(), store) && std::all_of(surplus_.begin(), surplus_.end(), remove);
  if (isDone) return status::kDone;
  std::fprintf(stderr, "devconf: stopped; until then: %lu added, %lu changed, %lu deleted\n", counts_.added,
               counts_.changed, counts_.deleted);
  return status::kFailed;
}

}  // namespace

int Export(const char *tableName) {
  const Table *only = tableName != nullptr ? FindTable(tableName) : nullptr;
  if (only != nullptr && only->IsIndex()) {
    Complain("an index has no records of its own; export its table,", only->indexOf);
    return status::kMistake;
  }
  for (const Table &table : kCatalogue) {
    const bool isWanted = only != nullptr ? &table == only : !table.IsIndex();
    if (isWanted && !ExportTable(table)) return status::kFailed;
  }
  return status::kDone;
}

int Import(const Options &options) {
  ImportFile file;
  if (!file.Load(options.words[0]) || !file.Check()) return status::kRefused;
  Store store;
  if (!store.Open(options)) return status::kNoDatabase;
  Importer importer(file);
  int result = options.replace ? importer.PlanDeletions() : status::kDone;
  if (result == status::kDone) result = importer.Apply();
  if (result == status::kDone) importer.Done().Print(options.json);
  return result;
}

}  // namespace devconf
