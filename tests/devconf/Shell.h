// SPDX-License-Identifier: MIT
// What the tests of devconf share: a home of their own, and the real program in it.
#pragma once

#include <string>
#include <vector>

#include "tests/db/Store.h"
#include "tests/support/Command.h"

namespace devconf_test {

using devsupport::test::CommandResult;
using Words = std::vector<std::string>;

/// Exit codes.
constexpr int kNothingFound = 1;
constexpr int kMistake = 2;
constexpr int kNoDatabase = 3;
constexpr int kFailed = 4;
constexpr int kRefused = 5;
constexpr int kDamaged = 6;
constexpr int kInUse = 7;

/// Gives each test an empty home in a private IPC namespace, which the program inherits.
class DevconfTest : public devsupport::test::StoreTest {
 protected:
  /// The program with these words, in the test's home.
  devsupport::test::Command Devconf(const Words &words) const;
  CommandResult Run(const Words &words) const;

  /// Runs it, expects success and silence on standard error, and returns what it printed.
  std::string Print(const Words &words) const;

  /// Runs it and expects all that it does.
  void Expect(const Words &words, int status, const std::string &out, const std::string &err) const;

  /// Makes the database.
  void Init() const;

  /// Makes a file beside the database and returns its path.
  std::string File(const std::string &text) const;

  /// Puts a record into a table as it is given, without the library: the indexes do not follow.
  /// The store must be closed.
  void Plant(const std::string &table, const std::string &key, const std::string &value);
  /// Takes such a record away, of several with the key the one with this value.
  void Uproot(const std::string &table, const std::string &key, const std::string &value);

 private:
  void Change(const std::string &table, const std::string &key, const std::string &value, bool add);
};

}  // namespace devconf_test
