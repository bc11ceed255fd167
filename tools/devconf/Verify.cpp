// SPDX-License-Identifier: MIT
// Checks the store. The library's operations cannot show entries of an index that lead nowhere, so the file itself is
// read, with the store closed.

#include <db.h>
#include <devsupport/ipc/ShareMem.h>

#include "db/for_project/DbText.h"
#include "db/for_project/StoreKeys.h"
#include "tools/devconf/Commands.h"
#include "tools/devconf/Ending.h"
#include "tools/devconf/FileTables.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Seal.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

// What was found so far. Each finding is printed at once.
class Findings {
 public:
  explicit Findings(bool json) : json_(json) {}

  void Add(const Table &table, std::string_view key, const char *what) {
    ++count_;
    if (!json_) return Complain(table, key, what);
    Format(Stream::Out, "{\"table\":\"%s\",\"key_bytes\":", table.Name());
    PrintJsonString(key, tools::Form::Bytes);
    Format(Stream::Out, ",\"error\":\"%s\"}\n", what);
  }

  /// A finding that is about a table as a whole, or about all.
  void Add(const char *table, const char *what) {
    ++count_;
    Format(json_ ? Stream::Out : Stream::Error, json_ ? "{\"table\":\"%s\",\"error\":\"%s\"}\n" : "devconf: %s: %s\n",
           table, what);
  }

  unsigned long Count() const { return count_; }

 private:
  bool json_;
  unsigned long count_ = 0;
};

std::string_view BytesOf(const DBT &record) { return devsupport::store::Bytes(record); }

// Calls visit(key, value) for each record. False when the walk broke off.
template <typename TVisit>
bool VisitAll(DB *db, TVisit visit) {
  DBC *cursor = nullptr;
  if (db->cursor(db, nullptr, &cursor, 0) != 0) return false;
  DBT key = {};
  DBT value = {};
  int result = 0;
  while (!IsInterrupted() && (result = cursor->get(cursor, &key, &value, DB_NEXT)) == 0) visit(key, value);
  cursor->close(cursor);
  return result == DB_NOTFOUND;
}

// Checks one index in both directions.
class IndexCheck {
 public:
  IndexCheck(const Table &index, const FileTables &file, Findings &findings)
      : index_(index),
        rule_(index.Rule().pfnKey),
        tableDb_(file.Handle(index.IndexOf().Row())),
        indexDb_(file.Handle(index.Row())),
        findings_(findings) {}

  void Run() {
    const auto record = [this](DBT &key, DBT &value) { CheckRecord(key, value); };
    const auto entry = [this](DBT &indexKey, DBT &key) { CheckEntry(indexKey, key); };
    if (!VisitAll(tableDb_, record)) findings_.Add(index_.IndexOf().Name(), "cannot be read to the end");
    if (!VisitAll(indexDb_, entry)) findings_.Add(index_.Name(), "cannot be read to the end");
  }

 private:
  void CheckRecord(DBT &key, DBT &value) {
    DBT indexKey = {};
    rule_(indexDb_, &key, &value, &indexKey);
    DBT primary = key;
    if (indexDb_->get(indexDb_, nullptr, &indexKey, &primary, DB_GET_BOTH) != 0) {
      findings_.Add(index_, BytesOf(key), "the index does not have this record of its table");
    }
  }

  void CheckEntry(DBT &indexKey, DBT &key) {
    DBT value = {};
    if (tableDb_->get(tableDb_, nullptr, &key, &value, 0) != 0) {
      findings_.Add(index_, BytesOf(key), "the index has a record that its table does not have");
      return;
    }
    DBT expected = {};
    rule_(indexDb_, &key, &value, &expected);
    if (BytesOf(indexKey) != BytesOf(expected)) {
      findings_.Add(index_, BytesOf(key), "the index has this record under another key than its own");
    }
  }

  const Table &index_;
  devsupport::store::KeyRule rule_;
  DB *tableDb_;
  DB *indexDb_;
  Findings &findings_;
};

void CheckIndexes(const char *path, Findings &findings) {
  FileTables file;
  if (!file.Open(path, Indexes::ByThemselves)) return findings.Add("(file)", "the tables cannot be opened");
  for (const Table &table : kCatalogue) {
    if (table.IsIndex()) IndexCheck(table, file, findings).Run();
  }
}

// When the pages are damaged, reading the file could crash.
void CheckFile(const char *path, Findings &findings) {
  if (!IsFileWhole(path)) return findings.Add("(file)", "the store's checker found damage");
  for (const Table &table : kCatalogue) {
    if (IsInterrupted()) return;
    if (!IsTableInOrder(path, table.Row())) {
      findings.Add(table.Name(), "the records are out of order, or the table is missing");
    }
  }
  CheckIndexes(path, findings);
}

int Conclude(const Findings &findings, bool json) {
  if (IsInterrupted()) return status::kFailed;
  if (json) {
    Format(Stream::Out, "{\"errors\":%lu}\n", findings.Count());
  } else if (findings.Count() == 0) {
    Put(Stream::Out, "clean\n");
  }
  return findings.Count() == 0 ? status::kDone : status::kDamaged;
}

int Look(const char *path, bool json) {
  Findings findings(json);
  CheckFile(path, findings);
  return Conclude(findings, json);
}

int SayInUse() {
  Complain("others are using the store; verify needs it alone");
  return status::kInUse;
}

// After a close in order, the files hold everything. Other processes can open the store meanwhile.
int LookAtClosed(const char *path, const Seal &seal, bool json) {
  HoldOutput();
  Findings findings(json);
  if (seal.Found() == Seal::State::Damaged) {
    findings.Add(seal.DamagedFile(), "the file is not as it was when the store was closed");
  }
  CheckFile(path, findings);
  const int result = Conclude(findings, json);
  if (seal.IsStillThere()) {
    ReleaseOutput();
    return result;
  }
  DropOutput();
  return SayInUse();
}

// After a crash, part of the data is only in the log. When the store cannot be opened, the file alone is incomplete.
int LookAtUnopened(const char *path, bool json) {
  Complain("the store cannot be opened, so that not all of it can be verified");
  Findings findings(json);
  CheckFile(path, findings);
  return findings.Count() == 0 ? status::kNoDatabase : status::kDamaged;
}

bool IsInUse() { return ShareMem_FindKeyAttchCount(devsupport::store::kShmKey) != 0; }

// Opens and closes the store, so that it recovers, writes everything to the file, and seals it.
bool OpenAndClose(const Options &options) {
  Store store;
  return store.OpenToChange(options) == status::kDone;
}

}  // namespace

int Verify(const Options &options) {
  const DatabasePath database(options);
  const char *path = options.offline != nullptr ? options.offline : database.Text();
  if (!IsDatabaseThere(path)) return status::kNoDatabase;
  if (options.offline != nullptr) return Look(path, options.json);
  if (const Seal seal(options); seal.Found() != Seal::State::None) return LookAtClosed(path, seal, options.json);
  if (IsInUse()) return SayInUse();
  const bool canOpen = OpenAndClose(options);
  if (const Seal seal(options); seal.Found() != Seal::State::None) return LookAtClosed(path, seal, options.json);
  return canOpen || IsInUse() ? SayInUse() : LookAtUnopened(path, options.json);
}

}  // namespace devconf
