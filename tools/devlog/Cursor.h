// SPDX-License-Identifier: MIT
// Where the last run stopped: a small file, written after everything that was shown.
#pragma once

#include <cstddef>

#include "tools/devlog/LogRing.h"

namespace devlog {

/// A place in one ring.
struct Bookmark {
  Identity ring;
  Position position;
  unsigned expected;  ///< number of the next record; kSequences when that is not known
};

/// The file says which start of the system it belongs to: rings do not outlive it. It is replaced in one step.
class Cursor {
 public:
  /// path  of the file; nullptr: there is none, and nothing is ever loaded or saved
  explicit Cursor(const char *path) : path_(path) {}

  /// Reads the file. True without one, too; false when it is there and cannot be used: the user has been told.
  bool Load();
  /// The place in a ring that the file has, or Set() gave; nullptr when there is none.
  const Bookmark *Find(Ring ring) const;
  void Set(Ring ring, const Bookmark &bookmark);
  /// Writes the file when something has changed. False, and the user has been told, when that cannot be done.
  bool Save();

 private:
  static constexpr std::size_t kRings = 2;
  struct Slot {
    bool isSet = false;
    Bookmark bookmark{};
  };

  const char *path_;
  Slot slots_[kRings];
  bool isChanged_ = false;
};

}  // namespace devlog
