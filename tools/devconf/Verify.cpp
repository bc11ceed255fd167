// Checks the store. The library's operations show an index only through the library's eyes, so here, with nobody else
// at work and the store closed, the file itself is read.

#include "tools/devconf/Verify.h"

#include <db.h>
#include <devsupport/ipc/ShareMem.h>

#include <cstdio>
#include <cstring>

#include "db/for_project/DbIndexes.h"
#include "db/for_project/DbLibrary.h"
#include "db/for_project/DbText.h"
#include "db/for_project/Environment.h"
#include "db/for_project/StoreKeys.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"
#include "tools/devconf/Tables.h"

namespace devconf {

namespace {

using namespace devsupport::store;  // NOLINT(google-build-using-namespace): its rules are what is checked

using KeyRule = int (*)(DB *, const DBT *, const DBT *, DBT *);
using Order = int (*)(DB *, const DBT *, const DBT *);

struct IndexRule {
  const char *index;
  KeyRule rule;
};
constexpr IndexRule kIndexRules[] = {{"stb_pb", KeyOfStbPb}, {"stb_1_pb", KeyOfStb1Pb}, {"stb_route", KeyOfStbRoute}};

// What was found so far. Each finding is printed at once.
class Findings {
 public:
  explicit Findings(bool json) : json_(json) {}

  void Add(const char *table, std::string_view key, const char *what) {
    ++count_;
    if (!json_) {
      Complain(table, key, what);
      return;
    }
    std::printf("{\"table\":\"%s\",\"key_bytes\":", table);
    PrintJsonString(key, Form::kBytes);
    std::printf(",\"error\":\"%s\"}\n", what);
  }

  /// A finding that is about a table as a whole.
  void Add(const char *table, const char *what) {
    ++count_;
    std::fprintf(json_ ? stdout : stderr, json_ ? "{\"table\":\"%s\",\"error\":\"%s\"}\n" : "devconf: %s: %s\n",
                 table, what);
  }

  unsigned long Count() const { return count_; }

 private:
  bool json_;
  unsigned long count_ = 0;
};

void SayForStore(const DB_ENV * /*env*/, const char * /*prefix*/, const char *message) {
  std::fprintf(stderr, "devconf: %s\n", message);
}

// A table handle of its own, outside any environment.
class TableHandle {
 public:
  explicit TableHandle(const char *name) : name_(name) {
    if (db_create(&db_, nullptr, 0) != 0) EndOutOfMemory();
    db_->set_errcall(db_, SayForStore);
    if (std::strcmp(name, "tb_dm") == 0) db_->set_bt_compare(db_, CompareTbDm);
    if (std::strcmp(name, "stb_route") == 0) db_->set_dup_compare(db_, CompareStbRouteDuplicates);
  }
  ~TableHandle() {
    if (db_ != nullptr) db_->close(db_, 0);
  }
  TableHandle(const TableHandle &) = delete;
  TableHandle &operator=(const TableHandle &) = delete;

  bool OpenToRead(const char *file) { return db_->open(db_, nullptr, file, name_, DB_BTREE, DB_RDONLY, 0) == 0; }

  /// Lets the store's checker look; the handle is used up by that.
  int Check(const char *file, const char *table, std::uint32_t flags) {
    DB *db = db_;
    db_ = nullptr;
    return db->verify(db, file, table, nullptr, flags);
  }

  DB *Get() const { return db_; }

 private:
  const char *name_;
  DB *db_ = nullptr;
};

// Calls visit(key, value) for each record. False when the walk broke off.
template <typename TVisit>
bool VisitAll(DB *db, TVisit visit) {
  DBC *cursor = nullptr;
  if (db->cursor(db, nullptr, &cursor, 0) != 0) return false;
  DBT key = {};
  DBT value = {};
  int result = 0;
  while ((result = cursor->get(cursor, &key, &value, DB_NEXT)) == 0) visit(key, value);
  cursor->close(cursor);
  return result == DB_NOTFOUND;
}

// Checks one index in both directions.
class IndexCheck {
 public:
  IndexCheck(const IndexRule &rule, Findings &findings)
      : rule_(rule),
        tableName_(FindTable(rule.index)->indexOf),
        table_(tableName_),
        index_(rule.index),
        findings_(findings) {}

  void Run(const char *file) {
    if (!table_.OpenToRead(file)) return findings_.Add(tableName_, "cannot be opened");
    if (!index_.OpenToRead(file)) return findings_.Add(rule_.index, "cannot be opened");
    const auto record = [this](DBT &key, DBT &value) { CheckRecord(key, value); };
    const auto entry = [this](DBT &indexKey, DBT &key) { CheckEntry(indexKey, key); };
    if (!VisitAll(table_.Get(), record)) findings_.Add(tableName_, "cannot be read to the end");
    if (!VisitAll(index_.Get(), entry)) findings_.Add(rule_.index, "cannot be read to the end");
  }

 private:
  void CheckRecord(DBT &key, DBT &value) {
    DBT indexKey = {};
    rule_.rule(index_.Get(), &key, &value, &indexKey);
    DBT primary = key;
    const int result = index_.Get()->get(index_.Get(), nullptr, &indexKey, &primary, DB_GET_BOTH);
    if (result != 0) findings_.Add(rule_.index, Bytes(key), "the index does not have this record of its table");
  }

  void CheckEntry(DBT &indexKey, DBT &key) {
    DBT value = {};
    if (table_.Get()->get(table_.Get(), nullptr, &key, &value, 0) != 0) {
      findings_.Add(rule_.index, Bytes(key), "the index has a record that its table does not have");
      return;
    }
    DBT expected = {};
    rule_.rule(index_.Get(), &key, &value, &expected);
    if (Bytes(indexKey) != Bytes(expected)) {
      findings_.Add(rule_.index, Bytes(key), "the index has this record under another key than its own");
    }
  }

  static std::string_view Bytes(const DBT &record) { return devsupport::store::Bytes(record); }

  const IndexRule &rule_;
  const char *tableName_;
  TableHandle table_;
  TableHandle index_;
  Findings &findings_;
};

// The pages first, without regard to the order of keys; then the order, for which each table needs its comparison.
// False when the pages are such that the file had better not be read.
bool CheckFile(const char *file, Findings &findings) {
  if (TableHandle("").Check(file, nullptr, DB_NOORDERCHK) != 0) {
    findings.Add("(file)", "the store's checker found damage");
    return false;
  }
  for (const Table &table : kCatalogue) {
    if (TableHandle(table.name).Check(file, table.name, DB_ORDERCHKONLY) != 0) {
      findings.Add(table.name, "the records are out of order, or the table is missing");
    }
  }
  return true;
}

int SayInUse() {
  std::fputs("devconf: others are using the store; verify needs it alone\n", stderr);
  return status::kInUse;
}

bool IsInUse() { return ShareMem_FindKeyAttchCount(kShmKey) != 0; }

int Look(const char *file, bool json) {
  Findings findings(json);
  if (CheckFile(file, findings)) {
    for (const IndexRule &rule : kIndexRules) IndexCheck(rule, findings).Run(file);
  }
  if (json) {
    std::printf("{\"errors\":%lu}\n", findings.Count());
  } else if (findings.Count() == 0) {
    std::puts("clean");
  }
  return findings.Count() == 0 ? status::kDone : status::kDamaged;
}

// Lets the store recover, if it must, and write everything to the file.
bool OpenAndClose(const Options &options) {
  Store store;
  return store.Open(options);
}

}  // namespace

int Verify(const Options &options) {
  if (IsInUse()) return SayInUse();
  const DatabasePath path(options);
  const bool canOpen = OpenAndClose(options);
  if (!canOpen && !path.HasFile()) return status::kNoDatabase;
  // Whoever opens the store waits until the turn is over.
  OpeningTurn turn;
  if (const int error = turn.TakeToOpen(options.home); error != 0) {
    Complain(std::strerror(error), options.home);
    return status::kNoDatabase;
  }
  if (IsInUse()) return SayInUse();
  const int result = Look(path.Text(), options.json);
  return result == status::kDone && !canOpen ? status::kNoDatabase : result;
}

}  // namespace devconf
