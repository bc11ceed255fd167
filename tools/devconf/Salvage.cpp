// SPDX-License-Identifier: MIT
// Reads what can be read of a damaged file, and prints it as a file for import.

#include <algorithm>

#include "tools/common/Text.h"
#include "tools/devconf/Commands.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Rescue.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

// What the salvager writes in place of what it could not read.
constexpr std::string_view kLost[] = {"UNKNOWN_KEY", "UNKNOWN_DATA"};

bool IsLost(std::string_view bytes) {
  return std::find(std::begin(kLost), std::end(kLost), bytes) != std::end(kLost);
}

constexpr int kMostSilentMs = 30000;

struct Counts {
  unsigned long lost = 0;      // key or value cannot be read
  unsigned long repeated = 0;  // with another value than the one that is printed
  unsigned long unknown = 0;   // whose table is not known
};

class Salvager {
 public:
  void Add(const DumpReader &reader) {
    if (IsLost(reader.Key()) || IsLost(reader.Value())) {
      ++counts_.lost;
      return;
    }
    const Table *table = reader.Table().empty() ? nullptr : FindTable(reader.Table());
    bool isNamed = table != nullptr;
    if (isNamed && table->IsIndex()) return;
    if (!isNamed && !Recognise(reader.Key(), reader.Value(), table)) return;
    items_.Add({table, isNamed, pairs_.Add(reader.Key(), reader.Value())});
  }

  void Print() {
    std::sort(items_.begin(), items_.end(), [this](const Item &a, const Item &b) { return IsBefore(a, b); });
    for (std::size_t i = 0; i < items_.Size(); ++i) {
      if (i == 0 || items_[i].table != items_[i - 1].table) PrintTable(items_[i].table);
      if (i == 0 || !IsSameKey(items_[i - 1], items_[i])) {
        PrintItem(items_[i]);
      } else if (Value(items_[i - 1]) != Value(items_[i])) {
        ++counts_.repeated;
      }
    }
  }

  const Counts &Found() const { return counts_; }

 private:
  struct Item {
    const Table *table;  // nullptr: not known
    bool isNamed;        // the file names the table
    Pairs::Place place;
  };

  // For records whose table is lost. Entries of an index are recognised by the keys that they refer to, and records
  // of the phone book by their keys. Returns false for those that need not be printed.
  static bool Recognise(std::string_view key, std::string_view value, const Table *&table) {
    const Table &phoneBook = *FindTable("tb_pb");
    const auto isPhoneBookKey = [&](std::string_view bytes) {
      return IsKeyOfName(phoneBook, bytes) && bytes.size() > TextOf(bytes).size() + 2;
    };
    if (isPhoneBookKey(value)) return false;
    constexpr std::size_t kRouteGroupBytes = 3;
    if (key.size() == kRouteGroupBytes && value.size() > key.size() && tools::StartsWith(value, key)) return false;
    if (isPhoneBookKey(key)) table = &phoneBook;
    return true;
  }

  std::string_view Key(const Item &item) const { return pairs_.Key(item.place); }
  std::string_view Value(const Item &item) const { return pairs_.Value(item.place); }

  // By table, those without one at the end. Of several with one key, the most certain comes first.
  bool IsBefore(const Item &a, const Item &b) const {
    if (a.table != b.table) return a.table != nullptr && (b.table == nullptr || a.table < b.table);
    const int order = Key(a).compare(Key(b));
    if (order != 0) return order < 0;
    if (a.isNamed != b.isNamed) return a.isNamed;
    return Value(a) < Value(b);
  }

  // Without a table, the same key can be in several.
  bool IsSameKey(const Item &a, const Item &b) const {
    return a.table == b.table && Key(a) == Key(b) && (a.table != nullptr || Value(a) == Value(b));
  }

  static void PrintTable(const Table *table) {
    if (table != nullptr) PrintTableLine(*table);
  }

  void PrintItem(const Item &item) {
    if (item.table != nullptr) return PrintRecord({item.table, Key(item), Value(item)}, true);
    ++counts_.unknown;
    PrintWithoutTable(Key(item), Value(item));
  }

  Pairs pairs_;
  List<Item> items_;
  Counts counts_;
};

void Say(unsigned long count, const char *what) {
  if (count != 0) Format(Stream::Error, "devconf: %lu %s\n", count, what);
}

int Report(RescueEnd end, const Counts &counts) {
  Say(counts.lost, "records cannot be read");
  Say(counts.repeated, "records are there twice with different values; one of them was printed");
  Say(counts.unknown, "records have the table \"?\": which one it was is lost; name it before you import them");
  if (end == RescueEnd::Broken) Complain("the store's rescuer did not come to its end; what it read was printed");
  if (end == RescueEnd::Damaged) Complain("the file is damaged; what could be read was printed");
  // Also when the salvager has not noticed a loss: it can run out of memory.
  const bool isComplete = counts.lost + counts.repeated + counts.unknown == 0;
  return end == RescueEnd::Whole && isComplete ? status::kDone : status::kDamaged;
}

}  // namespace

int Salvage(const Options &options) {
  const DatabasePath database(options);
  const char *path = options.offline != nullptr ? options.offline : database.Text();
  if (!IsDatabaseThere(path)) return status::kNoDatabase;
  Bytes dump;
  const RescueEnd end = RunRescue(path, kMostSilentMs, dump);
  Salvager salvager;
  for (DumpReader reader(dump.View()); reader.Next();) salvager.Add(reader);
  salvager.Print();
  return Report(end, salvager.Found());
}

}  // namespace devconf
