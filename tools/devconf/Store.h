// The store, open for the time of a command.
#pragma once

#include <signal.h>

#include <climits>

#include "Options.h"

namespace devconf {

/// Keeps the signals with which a person or a shell ends a program waiting. A process that ends inside an operation
/// would leave the store unusable for all others until they have closed it.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals &) = delete;
  HeldSignals &operator=(const HeldSignals &) = delete;

 private:
  sigset_t before_;
};

/// Whether such a signal waits: time to come to an end.
bool IsInterrupted();

class Store {
 public:
  Store() = default;
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

  HeldSignals signals_;
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
