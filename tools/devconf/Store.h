// SPDX-License-Identifier: MIT
// The store, open for the time of a command.
#pragma once

#include <climits>
#include <cstdint>
#include <optional>

#include "tools/devconf/FileTables.h"
#include "tools/devconf/Options.h"
#include "tools/devconf/Seal.h"
#include "tools/devconf/Tables.h"

namespace devconf {

class Store {
 public:
  Store() = default;
  /// Closes it. A signal that came meanwhile ends the program now.
  ~Store();
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  // Each opens the store in another way, complains when that fails, and returns the exit status.

  /// Opens the database that is there, to be changed.
  int OpenToChange(const Options &options);
  /// Makes the database, and its folder, when there is none, and opens it.
  int OpenOrMake(const Options &options);
  /// Opens it to be read: a copied file, a closed store without a trace of that, or the database that is there.
  int OpenToRead(const Options &options);

  /// Whether a closed store is read.
  bool IsClosed() const { return seal_.has_value(); }
  /// False when a process has opened the closed store meanwhile. Then the records read are not valid.
  bool IsCertain() const { return !seal_.has_value() || seal_->IsStillThere(); }

  void Close();

 private:
  int OpenAnyway(const Options &options);
  int OpenOffline(const char *path);
  bool OpenClosed(const Options &options);

  std::optional<Seal> seal_;
  bool isOpen_ = false;
  FileTables file_;
};

/// The handle of a table of the store that is open.
struct __db *HandleOf(const Table &table);

/// Where the database file is.
class DatabasePath {
 public:
  explicit DatabasePath(const Options &options);

  const char *Text() const { return text_; }

 private:
  char text_[PATH_MAX];
};

/// Whether the path leads to a file. Opening the store would make one, so this is asked before. Complains.
bool IsDatabaseThere(const char *path);

}  // namespace devconf
