// The store, open for the time of a command.
#pragma once

#include <climits>

#include "tools/common/Signals.h"
#include "tools/devconf/Options.h"

namespace devconf {

/// Whether a signal waits with which a person or a shell ends a program: time to come to an end.
bool IsInterrupted();

class Store {
 public:
  Store();
  ~Store() { Close(); }
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  /// Opens the database that is there. Complains when there is none, or when it cannot be opened.
  bool Open(const Options &options);
  /// Makes the database, and its folder, when there is none, and opens it.
  bool OpenOrMake(const Options &options);
  void Close();

 private:
  bool OpenAnyway(const Options &options);

  // A process that ends inside an operation would leave the store unusable for all others until they have closed it.
  tools::HeldSignals signals_;
  bool open_ = false;
};

/// Where the database file is.
class DatabasePath {
 public:
  explicit DatabasePath(const Options &options);

  const char *Text() const { return text_; }
  /// Whether there is a file. Opening the store would make one, so this is asked before.
  bool HasFile() const;

 private:
  char text_[PATH_MAX];
};

}  // namespace devconf
