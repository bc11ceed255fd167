// SPDX-License-Identifier: MIT
// Changes of the store that are made together.
#pragma once

#include <cstdint>
#include <string_view>

#include "db/for_project/RecordAccess.h"
#include "tools/devconf/Bytes.h"
#include "tools/devconf/Tables.h"

namespace devconf {

/// A list of changes with the memory that they need.
class Changes {
 public:
  using Kind = devsupport::store::Change::Kind;
  using Result = devsupport::store::ChangeResult;

  /// Adds a change, with key and value as stored. The tag belongs to the caller: the number of a line.
  void Add(Kind kind, const Table &table, std::string_view key, std::string_view value, unsigned tag = 0);

  bool IsEmpty() const { return items_.Size() == 0; }

  /// Makes them all or none, in their order. The store must be open. A signal gives everything up.
  /// counted    what the store had counted when the changes were planned, or nullptr (ApplyChanges)
  Result Apply(const std::uint32_t *counted = nullptr);

  unsigned TagOf(std::size_t i) { return items_[i].tag; }
  const Table &TableOf(std::size_t i) { return kCatalogue[items_[i].row]; }
  std::string_view KeyOf(std::size_t i) { return pairs_.Key(items_[i].place); }

 private:
  struct Item {
    Kind kind;
    std::uint8_t row;
    unsigned tag;
    Pairs::Place place;
  };

  Pairs pairs_;
  List<Item> items_;
};

/// Prints why no changes were made, for any result except that of a missing record. Returns the exit status.
int ExplainFailure(int result);

/// Prints why changes were not made, and returns the exit status. A tag is the number of a line in the file, if there is
/// one.
int ExplainFailure(Changes &changes, const Changes::Result &result, const char *file);

/// Prints how many records were added, changed and so on.
void PrintCounts(const devsupport::store::ChangeCounts &counts, bool json);

}  // namespace devconf
