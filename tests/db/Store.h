// SPDX-License-Identifier: MIT
// Fixture of the tests of the configuration store: a private home in private shared memory, and reading of the stored
// bytes with other programs.
#pragma once

#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace devsupport::test {

using Records = std::vector<std::pair<std::string, std::string>>;

/// The end of each line that BerkDb_ErrCall prints.
inline const std::string kSourceLine = "  \\db/for_project/BerkeleyDB 149\n";

/// A literal with its embedded and its closing NUL.
template <std::size_t kBytes>
std::string Text(const char (&text)[kBytes]) {
  return {text, kBytes};
}
/// A literal with embedded NULs and without the closing one.
template <std::size_t kBytes>
std::string Raw(const char (&bytes)[kBytes]) {
  return {bytes, kBytes - 1};
}

/// Gives each test an empty home and a private IPC namespace, since the store's key is fixed.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Opens the store in the test's home; a failure fails the test.
  void Open();
  /// Closes and opens it again.
  void Reopen();

  std::string FilePath() const { return home_ + "/config.db"; }

  /// The records of a table as db5.3_dump sees them. The store must be closed or flushed.
  Records Dump(const std::string &table) const;
  /// Whether db5.3_verify finds the file clean.
  ::testing::AssertionResult Verify() const;
  /// Whether the three indexes hold exactly the keys of their tables, read with db5.3_dump.
  ::testing::AssertionResult IndexesAgree() const;
  /// Checks both.
  void ExpectSoundFile() const;

  std::string home_;
};

/// How an index gets its keys, in another implementation than the library's.
struct IndexRule {
  const char *index;
  const char *primary;
  std::string (*key)(const std::string &key, const std::string &data);
};
extern const IndexRule kIndexRules[3];

/// All records of an open table in the order of a cursor; for an index, its keys with the values of the table.
Records ReadAll(struct __db *pDb);
/// The same for all tables, by their names.
std::map<std::string, Records> ReadAllTables();

/// What BerkDb_Open returned, the code that it stored, and what it printed.
struct Opening {
  int opened;
  std::int32_t code;
  std::string printed;
  bool operator==(const Opening &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Opening &opening);
Opening TryToOpen(const std::string &home);

/// The opening of an environment that fails for this reason.
Opening RefusedOpening(const std::string &home, const std::string &reason);

/// Reads a value; returns "<code>" when that fails.
std::string Get(struct __db *pDb, const char *pKey);

/// A cursor on the first record of a table; the caller closes it. A failure fails the test.
struct __dbc *CursorOnFirst(struct __db *pDb);

/// A count that a long suite may raise: the value of an environment variable, or the default.
int Count(const char *variable, int normal);

/// The step between the cases that are tried: DEVSUPPORT_STORE_ROUNDS=10 tries each tenth.
int Stride();

}  // namespace devsupport::test
