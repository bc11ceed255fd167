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
  unsigned expected;  ///< number of the next record; kSequences when not known
};

/// The file says for which start of the system it is valid, because a restart removes the rings. A new file replaces
/// the old one in one step.
class Cursor {
 public:
  /// path  of the file; nullptr: no file, nothing is loaded or saved
  explicit Cursor(const char *path) : path_(path) {}

  /// Reads the file. True also when there is no file; false when it cannot be used: the user has been told.
  bool Load();
  /// The place in a ring from the file or from Set(); nullptr when there is none.
  const Bookmark *Find(Ring ring) const;
  void Set(Ring ring, const Bookmark &bookmark);
  /// Writes the file when something has changed. False when it cannot be written; the user has been told.
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
