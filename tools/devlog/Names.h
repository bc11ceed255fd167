// SPDX-License-Identifier: MIT
// Names for the record types, and names of processes, from a small file:
//
//   # what the numbers mean here
//   type 3 call
//   process sipd
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tools/devlog/Cell.h"

namespace devlog {

class Names {
 public:
  static constexpr char kUsualPath[] = "/etc/devlog.names";
  static constexpr std::size_t kTypes = LOGCELL_MAX(TYPE) + 1;
  static constexpr std::size_t kMaxProcesses = 64;
  static constexpr std::size_t kMaxName = 31;  ///< of a process in the log channel; a type has the same limit

  /// Reads a file. With isOptional a missing file is no error.
  /// Returns  false when it cannot be read or understood; the user has been told.
  bool Load(const char *path, bool isOptional);

  /// A letter, and letters, digits, '_', '-' and '.' after it.
  static bool IsName(std::string_view text);

  /// The type that has the name; kTypes when none has it.
  std::size_t FindType(std::string_view name) const;
  /// Empty when the type has none.
  std::string_view TypeName(unsigned type) const { return types_[type].View(); }
  std::size_t LongestTypeName() const;

  /// False when there are too many.
  bool AddProcess(std::string_view name);
  /// The longest known name at the start of a text: writers put their name before it without a separator.
  std::string_view ProcessOf(std::string_view text) const;

 private:
  struct Name {
    char text[kMaxName];
    std::uint8_t size = 0;
    std::string_view View() const { return {text, size}; }
    void Set(std::string_view name);
  };

  const char *TakeLine(std::string_view line);

  Name types_[kTypes];
  Name processes_[kMaxProcesses];
  std::size_t processCount_ = 0;
};

}  // namespace devlog
