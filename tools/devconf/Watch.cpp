// SPDX-License-Identifier: MIT
// Prints changes of the store as they happen. The gate counts the changes of all processes: when it has counted any,
// the tables are read again and compared with what was read before.

#include <ctime>

#include "db/for_project/RecordAccess.h"
#include "tools/common/Text.h"
#include "tools/devconf/Commands.h"
#include "tools/devconf/Ending.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Records.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

constexpr timespec kPause = {0, 200'000'000};

// The records of a table at one time, in its order.
class Snapshot {
 public:
  bool Read(const Table &table, const char *prefix) {
    pairs_.Clear();
    places_.Resize(0);
    TableWalk walk(table, prefix);
    Answer answer = Answer::No;
    while ((answer = walk.Next()) == Answer::Yes) places_.Add(pairs_.Add(walk.Key(), walk.Value()));
    return answer == Answer::No;
  }

  std::size_t Size() const { return places_.Size(); }
  std::string_view Key(std::size_t i) { return pairs_.Key(places_[i]); }
  std::string_view Value(std::size_t i) { return pairs_.Value(places_[i]); }

 private:
  Pairs pairs_;
  List<Pairs::Place> places_;
};

void PrintDifferences(const Table &table, Snapshot &before, Snapshot &after, bool json) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < before.Size() || j < after.Size()) {
    const int order = i == before.Size() ? 1 : j == after.Size() ? -1 : table.Compare(before.Key(i), after.Key(j));
    const std::string_view value = order >= 0 ? after.Value(j) : std::string_view{};
    if (order < 0) {
      PrintDifference(table, before.Key(i), nullptr, json);
    } else if (order > 0 || before.Value(i) != value || before.Key(i) != after.Key(j)) {
      PrintDifference(table, after.Key(j), &value, json);
    }
    if (order <= 0) ++i;
    if (order >= 0) ++j;
  }
}

class Watcher {
 public:
  explicit Watcher(const Options &options) : prefix_(options.words[1]), json_(options.json) {
    for (const Table &table : kCatalogue) {
      isWatched_[table.Row()] =
          options.words[0] != nullptr ? &table == FindTable(options.words[0]) : !table.IsIndex();
    }
  }

  /// Reads all tables. False when that fails.
  bool Look() {
    for (const Table &table : kCatalogue) {
      if (isWatched_[table.Row()] && !Look(table)) return false;
    }
    hasLooked_ = true;
    return true;
  }

 private:
  bool Look(const Table &table) {
    Snapshot &before = snapshots_[table.Row()][newer_[table.Row()]];
    newer_[table.Row()] ^= 1;
    Snapshot &after = snapshots_[table.Row()][newer_[table.Row()]];
    if (!after.Read(table, prefix_ != nullptr ? prefix_ : "")) return false;
    if (hasLooked_) PrintDifferences(table, before, after, json_);
    return true;
  }

  const char *prefix_;
  bool json_;
  bool hasLooked_ = false;
  bool isWatched_[BERKDB_TABLES] = {};
  int newer_[BERKDB_TABLES] = {};
  Snapshot snapshots_[BERKDB_TABLES][2];
};

// Looks whenever changes have been counted. What changes while it looks is counted again.
int RunWatch(Watcher &watcher) {
  std::uint32_t seen = 0;
  for (bool isFirst = true; !IsInterrupted(); isFirst = false) {
    const std::uint32_t changes = devsupport::store::CountedChanges();
    if (isFirst || changes != seen) {
      seen = changes;
      if (!watcher.Look() && !IsInterrupted()) return status::kFailed;
      if (!FinishOutput()) return status::kFailed;
    }
    ::nanosleep(&kPause, nullptr);
  }
  return status::kDone;
}

}  // namespace

int Watch(const Options &options) {
  const Table *table = options.words[0] != nullptr ? FindTable(options.words[0]) : nullptr;
  if (table != nullptr && table->IsIndex()) {
    Complain("an index has no records of its own; use its table,", table->IndexOf().Name());
    return status::kMistake;
  }
  Watcher watcher(options);
  Store store;
  const int result = store.OpenToChange(options);
  return result == status::kDone ? RunWatch(watcher) : result;
}

}  // namespace devconf
