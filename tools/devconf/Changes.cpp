// SPDX-License-Identifier: MIT
// Changes of the store that are made together.

#include "tools/devconf/Changes.h"

#include <db.h>

#include <cerrno>

#include "tools/common/Text.h"
#include "tools/devconf/Ending.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Status.h"

namespace devconf {

using devsupport::store::ApplyChanges;
using devsupport::store::Change;
using devsupport::store::ChangeCounts;

void Changes::Add(Kind kind, const Table &table, std::string_view key, std::string_view value, unsigned tag) {
  items_.Add({kind, table.Row(), tag, pairs_.Add(key, value)});
}

Changes::Result Changes::Apply(const std::uint32_t *counted) {
  List<Change> changes;
  for (const Item &item : items_)
    changes.Add({item.kind, item.row, pairs_.Key(item.place), pairs_.Value(item.place)});
  return ApplyChanges(
      {changes.begin(), changes.Size()}, [] { return !IsInterrupted(); }, counted);
}

namespace {

bool HasReason(int result) { return result == ECANCELED || result == EAGAIN || result == DB_LOCK_NOTGRANTED; }

const char *ReasonOf(int result) {
  if (result == ECANCELED) return "interrupted; nothing was changed";
  if (result == EAGAIN) return "others change the store all the time; nothing was changed";
  if (result == DB_LOCK_NOTGRANTED) return "somebody keeps a cursor of the store open; nothing was changed";
  return "the store cannot be changed; nothing was changed";
}

}  // namespace

int ExplainFailure(int result) {
  Format(Stream::Error, "devconf: %s", ReasonOf(result));
  if (!HasReason(result)) Format(Stream::Error, ": %s", db_strerror(result));
  Put(Stream::Error, "\n");
  return status::kFailed;
}

int ExplainFailure(Changes &changes, const Changes::Result &result, const char *file) {
  if (result.nResult != DB_NOTFOUND) return ExplainFailure(result.nResult);
  const unsigned line = changes.TagOf(result.dwDone);
  if (line != 0) {
    ComplainAboutLine(file, line, "no such record; nothing was changed");
  } else {
    Complain(changes.TableOf(result.dwDone), changes.KeyOf(result.dwDone), "no such record");
  }
  return status::kNothingFound;
}

void PrintCounts(const ChangeCounts &counts, bool json) {
  Format(Stream::Out,
         json ? "{\"added\":%u,\"changed\":%u,\"unchanged\":%u,\"deleted\":%u}\n"
              : "%u added, %u changed, %u unchanged, %u deleted\n",
         counts.dwAdded, counts.dwChanged, counts.dwUnchanged, counts.dwDeleted);
}

}  // namespace devconf
