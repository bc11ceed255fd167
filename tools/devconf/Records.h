// SPDX-License-Identifier: MIT
// Reads records whole: any bytes, and as many as there are.
#pragma once

#include <cstdint>
#include <string_view>

#include "db/for_project/RecordAccess.h"
#include "tools/devconf/Bytes.h"
#include "tools/devconf/Tables.h"

namespace devconf {

enum class Answer : std::uint8_t { Yes, No, Failed };

using devsupport::store::GrownBytes;
using devsupport::store::WholeRecord;

/// Reads the value of a key.
/// key        in      the key as stored
/// value      out     all bytes of the value
/// Returns    Yes; No without such a record; Failed, which has been complained about.
Answer ReadValue(const Table &table, std::string_view key, GrownBytes &value);

/// Walks over the records of a table or of an index whose keys there begin with a prefix, in its order. Others may
/// change the table meanwhile: the walk continues after the last record that it returned.
class TableWalk {
 public:
  TableWalk(const Table &table, std::string_view prefix);

  /// Steps to the next record. Returns No after the last one; Failed has been complained about, unless a signal has
  /// come.
  Answer Next();

  /// The record, until the next step.
  const WholeRecord &Current() const { return record_; }
  std::string_view Key() const { return record_.key; }
  std::string_view Value() const { return record_.value; }

 private:
  const Table &table_;
  Bytes prefix_;
  devsupport::store::RecordWalk walk_;
  WholeRecord record_;
};

}  // namespace devconf
