// SPDX-License-Identifier: MIT
// Whole records, with their sizes, and several changes as one: what the configuration shell needs beyond the public
// operations. Any bytes and any length are good as key and as value.
#pragma once

#include <db.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "db/for_project/StoreTables.h"

namespace devsupport::store {

/// Bytes that the library makes room for.
class GrownBytes {
 public:
  GrownBytes() { record_.flags = DB_DBT_REALLOC; }
  ~GrownBytes() { std::free(record_.data); }
  GrownBytes(const GrownBytes &) = delete;
  GrownBytes &operator=(const GrownBytes &) = delete;

  DBT *Record() { return &record_; }
  std::string_view View() const;
  /// False when there is no memory.
  bool Assign(std::string_view bytes);

 private:
  DBT record_ = {};
};

/// Reads the value of a key, both as stored. Returns 0, kNotFound or another result of the library.
int ReadWhole(DB *pDb, std::string_view key, GrownBytes &value);

/// One record of a walk. Of an index, its key, and key and value of the record that it leads to.
struct WholeRecord {
  std::string_view indexKey;
  std::string_view key;
  std::string_view value;
};

/// A walk over a table or an index, in its order. The records are read in batches, each inside the gate; others may
/// change the table between two batches: the walk continues after the last record that it has read.
class RecordWalk {
 public:
  /// From the first key on that is not before the given one; an empty one starts with the first of all.
  RecordWalk(DB *pDb, const TableRule &rule, std::string_view from);
  ~RecordWalk() { std::free(pMemory_); }
  RecordWalk(const RecordWalk &) = delete;
  RecordWalk &operator=(const RecordWalk &) = delete;

  /// Steps to the next record, which stays as it is until the next call. Returns 0, kNotFound after the last one, or
  /// another result of the library.
  int Next(WholeRecord &record);

 private:
  struct Sizes {
    std::uint32_t dwIndexKey;
    std::uint32_t dwKey;
    std::uint32_t dwValue;
  };

  int ReadBatch(DB *pDb);
  int FillFrom(DBC *pCursor);
  int GoToStart(DBC *pCursor);
  int GoToNextDuplicate(DBC *pCursor);
  int Step(DBC *pCursor, std::uint32_t dwOperation);
  bool IsAtLast() const;
  bool Keep();
  bool RememberLast();
  std::string_view Take(std::size_t dwBytes);

  DB *pDb_;
  const TableRule &rule_;
  bool bBegun_ = false;
  bool bAtEnd_ = false;

  // Where the walk is: the place in the table, and before it the last record of the batch before.
  GrownBytes place_;
  GrownBytes key_;
  GrownBytes value_;
  GrownBytes lastPlace_;
  GrownBytes lastKey_;

  // The batch: sizes and bytes of its records, one after the other.
  char *pMemory_ = nullptr;
  std::size_t dwRoom_ = 0;
  std::size_t dwUsed_ = 0;
  std::size_t dwTaken_ = 0;
};

/// One change of a table that is no index.
struct Change {
  enum class Kind : std::uint8_t {
    Put,     // stores a record, or replaces it
    Delete,  // the record must be there
    DeleteIfThere,
  };

  Kind kind;
  std::uint8_t byTable;  // row in the catalogue
  std::string_view key;  // as stored
  std::string_view value;
};

/// What became of the changes, counted in records.
struct ChangeCounts {
  std::uint32_t dwAdded = 0;
  std::uint32_t dwChanged = 0;
  std::uint32_t dwUnchanged = 0;
  std::uint32_t dwDeleted = 0;
};

struct ChangeResult {
  int nResult = 0;         // 0, or the library's result: nothing was changed then
  std::size_t dwDone = 0;  // changes before the one that failed
  ChangeCounts counts;
};

/// Changes of records that all processes have made since the gate is new.
std::uint32_t CountedChanges();

/// Makes all changes, in their order, or none of them: as one transaction, with the indexes, on the medium when it
/// returns. Whatever ends the process meanwhile, the store has all of them or none.
/// pfnGoOn     asked before each change; false gives everything up, with ECANCELED; may be nullptr
/// pdwCounted  the result of CountedChanges() when the changes were planned; when there are more now, nothing is
///             changed
///             and the result is EAGAIN; may be nullptr
/// Returns     kNotFound for Delete of a record that is not there; DB_LOCK_NOTGRANTED when a process keeps a cursor
///             open.
/// Lock        the gate, for the whole transaction: others wait for it.
ChangeResult ApplyChanges(std::span<const Change> changes, bool (*pfnGoOn)(),
                          const std::uint32_t *pdwCounted = nullptr);

}  // namespace devsupport::store
