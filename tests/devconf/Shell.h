// SPDX-License-Identifier: MIT
// Fixture of the tests of devconf: a private home, and the real program.
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

  /// Runs it and compares status and both outputs.
  void Expect(const Words &words, int status, const std::string &out, const std::string &err) const;

  /// Makes the database.
  void Init() const;

  /// Makes a file in the database's folder and returns its path.
  std::string File(const std::string &text) const;

  /// Stores a record in a table without the library, so that the indexes are not updated. The store must be closed.
  void Plant(const std::string &table, const std::string &key, const std::string &value);
  /// Deletes such a record. When several have the key, it deletes the one with this value.
  void Uproot(const std::string &table, const std::string &key, const std::string &value);

 private:
  void Change(const std::string &table, const std::string &key, const std::string &value, bool add);
};

}  // namespace devconf_test
