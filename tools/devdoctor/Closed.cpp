// SPDX-License-Identifier: MIT
// Checks a store by its files. Records are counted only when the seal matches: then the files are as the library
// wrote them, and no program changes them.

#include "tools/devdoctor/Closed.h"

#include <db.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "db/for_project/LibraryHooks.h"
#include "db/for_project/StoreSeal.h"
#include "db/for_project/StoreTables.h"

namespace devdoctor {

namespace {

using devsupport::store::CheckSeal;
using devsupport::store::CreateFileHandle;
using devsupport::store::kTableRules;
using devsupport::store::SealFinding;
using devsupport::store::SealState;
using devsupport::store::SetUpTable;
using devsupport::store::TableRule;

constexpr char kStore[] = "store";
constexpr char kRecovers[] = "nothing: the next program that uses the store recovers it";

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  int Number() const { return fd_; }
  /// A program that opens the store removes the seal first.
  bool IsLinked() const {
    struct stat status {};
    return ::fstat(fd_, &status) == 0 && status.st_nlink != 0;
  }

 private:
  int fd_;
};

/// False when they cannot be counted.
bool CountRecords(const char *path, const TableRule &rule, std::uint64_t &count) {
  DB *db = nullptr;
  DBC *cursor = nullptr;
  if (CreateFileHandle(&db) != 0) return false;
  db->set_errcall(db, [](const DB_ENV *, const char *, const char *) {});
  int code = 0;
  int result = SetUpTable(db, rule, code);
  if (result == 0) result = db->open(db, nullptr, path, rule.pName, DB_BTREE, DB_RDONLY, 0);
  if (result == 0) result = db->cursor(db, nullptr, &cursor, 0);
  DBT key{};
  DBT data{};
  data.flags = DB_DBT_PARTIAL | DB_DBT_USERMEM;  // reads no data, only keys
  for (count = 0; result == 0; ++count) result = cursor->get(cursor, &key, &data, DB_NEXT);
  if (cursor != nullptr) cursor->close(cursor);
  // After ENOMEM the handle lacks what the library needs to close it: close() would end the process.
  if (result != ENOMEM) db->close(db, 0);
  --count;
  return result == DB_NOTFOUND;
}

void CountAll(Report &report, const char *path, const Descriptor &seal) {
  std::uint64_t counts[BERKDB_TABLES] = {};
  for (const TableRule &rule : kTableRules) {
    if (CountRecords(path, rule, counts[&rule - kTableRules])) continue;
    report.Note(kStore, "the records of %s cannot be counted", rule.pName);
    return;
  }
  if (!seal.IsLinked()) {
    report.Note(kStore, "its records are not counted: a program has just opened it");
    return;
  }
  for (const TableRule &rule : kTableRules) {
    if (rule.IsIndex()) continue;
    const std::uint64_t count = counts[&rule - kTableRules];
    report.Note(rule.pName, "%llu record%s", static_cast<unsigned long long>(count), Plural(count));
    report.Figure(rule.pName, "records", count);
  }
}

void CheckReserve(Report &report, int home) {
  struct stat status {};
  const bool isThere = ::fstatat(home, "store.reserve", &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode);
  report.Note(kStore,
              isThere ? "its reserve is there" : "it has no reserve; who opens it makes one when there is room");
  report.Figure(kStore, "reserve", isThere ? 1 : 0);
}

}  // namespace

void CheckClosed(Report &report, const char *home, const char *file, bool isOpen) {
  char path[PATH_MAX];
  char sealName[NAME_MAX];
  const int pathSize = std::snprintf(path, sizeof path, "%s/%s", home, file);
  const int nameSize = std::snprintf(sealName, sizeof sealName, "%s.seal", file);
  if (pathSize >= static_cast<int>(sizeof path) || nameSize >= static_cast<int>(sizeof sealName)) return;
  const Descriptor folder(::open(home, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.Number() < 0) return;
  CheckReserve(report, folder.Number());
  // Opened before the first check and kept open, so that it cannot be mistaken for a later seal.
  const Descriptor seal(::openat(folder.Number(), sealName, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (seal.Number() < 0 && errno != ENOENT) {
    report.Fault(Severity::Error, kStore, "unreadable", "run devdoctor as root", "the file %s cannot be read: %s",
                 sealName, std::strerror(errno));
    return;
  }
  const SealFinding finding = seal.Number() < 0 ? SealFinding{} : CheckSeal(folder.Number(), file);
  report.Figure(kStore, "sealed", finding.state == SealState::Fits ? 1 : 0);
  switch (finding.state) {
    case SealState::Fits:
      report.Note(kStore, "it was closed in order: sealed, and as it was then");
      CountAll(report, path, seal);
      break;
    case SealState::Missing:
      if (isOpen) {
        report.Note(kStore, "its records are not counted while a program has it open");
      } else {
        report.Fault(Severity::Warning, kStore, "not_sealed", kRecovers, "it was not closed in order");
      }
      break;
    case SealState::Stale:
    case SealState::Changed:
      report.Fault(Severity::Warning, kStore, "changed_file", kRecovers,
                   "files were changed since the store was closed in order");
      break;
    case SealState::Damaged:
      report.Fault(Severity::Error, kStore, "damaged_file", kVerifyAdvice,
                   "the file %s is not as it was when the store was closed", finding.szFile);
      break;
  }
}

}  // namespace devdoctor
