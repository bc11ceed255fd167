// SPDX-License-Identifier: MIT
// Reads a damaged file with Berkeley DB's salvager, in a separate process, because it may crash or never end.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/devconf/Bytes.h"

namespace devconf {

/// How the salvager ended.
enum class RescueEnd : std::uint8_t {
  Whole,    ///< it found no damage
  Damaged,  ///< it found damage, and read all that it could
  Broken    ///< it crashed, or was stopped because it did not come to an end
};

/// Reads a file and appends what the salvager wrote: the dump format of the store, tables one after the other. It is
/// stopped when it writes nothing for so many milliseconds, or far more than the file can hold.
RescueEnd RunRescue(const char *path, int mostSilentMs, Bytes &dump);

/// Takes the records out of a dump, one after the other.
class DumpReader {
 public:
  explicit DumpReader(std::string_view dump) : rest_(dump) {}

  /// False after the last record. The table's name is empty for records whose table is not known.
  bool Next();

  std::string_view Table() const { return table_; }
  std::string_view Key() const { return key_.View(); }
  std::string_view Value() const { return value_.View(); }

 private:
  bool TakeBytes(Bytes &bytes);

  std::string_view rest_;
  std::string_view table_;
  bool isInData_ = false;
  Bytes key_;
  Bytes value_;
};

}  // namespace devconf
