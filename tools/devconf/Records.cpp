// SPDX-License-Identifier: MIT
// Reads records whole.

#include "tools/devconf/Records.h"

#include <db.h>

#include "tools/common/Text.h"
#include "tools/devconf/Ending.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

Answer AnswerOf(const Table &table, std::string_view key, int result) {
  if (result == 0) return Answer::Yes;
  if (result == DB_NOTFOUND) return Answer::No;
  Complain(table, key, db_strerror(result));
  return Answer::Failed;
}

// Where a walk has to begin. The keys with a prefix are together in every table; but of one that does not run upwards
// it is not known where.
std::string_view StartOf(const Table &table, std::string_view prefix) {
  return table.Rule().pfnCompare == nullptr ? prefix : std::string_view{};
}

}  // namespace

Answer ReadValue(const Table &table, std::string_view key, GrownBytes &value) {
  return AnswerOf(table, key, devsupport::store::ReadWhole(HandleOf(table), key, value));
}

TableWalk::TableWalk(const Table &table, std::string_view prefix)
    : table_(table), walk_(HandleOf(table), table.Rule(), StartOf(table, prefix)) {
  prefix_.Assign(prefix);
}

Answer TableWalk::Next() {
  for (;;) {
    if (IsInterrupted()) return Answer::Failed;
    const Answer answer = AnswerOf(table_, record_.key, walk_.Next(record_));
    if (answer != Answer::Yes) return answer;
    if (tools::StartsWith(table_.IsIndex() ? record_.indexKey : record_.key, prefix_.View())) return answer;
    if (table_.Rule().pfnCompare == nullptr) return Answer::No;
  }
}

}  // namespace devconf
