// SPDX-License-Identifier: MIT
#include "tests/devconf/Shell.h"

#include <db.h>

#include "db/for_project/DbIndexes.h"
#include "tests/support/TempDir.h"

namespace devconf_test {

using devsupport::test::Command;

namespace {

DBT RecordOf(const std::string &bytes) {
  DBT record = {};
  // The library reads these bytes only.
  record.data = const_cast<char *>(bytes.data());
  record.size = static_cast<u_int32_t>(bytes.size());
  return record;
}

int Remove(DB *db, DBT key, DBT value) {
  DB_TXN *transaction = nullptr;
  DB_ENV *env = BerkDb_GetEnv();
  if (const int result = env->txn_begin(env, nullptr, &transaction, 0); result != 0) return result;
  DBC *cursor = nullptr;
  int result = db->cursor(db, transaction, &cursor, 0);
  if (result == 0) result = cursor->get(cursor, &key, &value, DB_GET_BOTH);
  if (result == 0) result = cursor->del(cursor, 0);
  if (cursor != nullptr) cursor->close(cursor);
  return result == 0 ? transaction->commit(transaction, 0) : (transaction->abort(transaction), result);
}

}  // namespace

Command DevconfTest::Devconf(const Words &words) const {
  Words all{DEVCONF_PATH, "--home", home_};
  all.insert(all.end(), words.begin(), words.end());
  return Command(all);
}

CommandResult DevconfTest::Run(const Words &words) const { return Devconf(words).Run(); }

void DevconfTest::Expect(const Words &words, int status, const std::string &out, const std::string &err) const {
  EXPECT_EQ(Run(words), (CommandResult{status, out, err})) << ::testing::PrintToString(words);
}

std::string DevconfTest::Print(const Words &words) const {
  const CommandResult result = Run(words);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return result.out;
}

void DevconfTest::Init() const { EXPECT_EQ(Print({"init"}), ""); }

std::string DevconfTest::File(const std::string &text) const {
  const std::string path = home_ + "/file.jsonl";
  devsupport::test::WriteFile(path, text);
  return path;
}

void DevconfTest::Plant(const std::string &table, const std::string &key, const std::string &value) {
  Change(table, key, value, true);
}

void DevconfTest::Uproot(const std::string &table, const std::string &key, const std::string &value) {
  Change(table, key, value, false);
}

// Another handle of the table in the same environment, without its indexes.
void DevconfTest::Change(const std::string &table, const std::string &key, const std::string &value, bool add) {
  Open();
  DB *db = nullptr;
  ASSERT_EQ(db_create(&db, BerkDb_GetEnv(), 0), 0);
  if (table == "tb_dm") db->set_bt_compare(db, devsupport::store::CompareTbDm);
  if (table == "stb_route") db->set_dup_compare(db, devsupport::store::CompareStbRouteDuplicates);
  ASSERT_EQ(db->open(db, nullptr, "config.db", table.c_str(), DB_BTREE, 0, 0), 0);
  DBT keyRecord = RecordOf(key);
  DBT valueRecord = RecordOf(value);
  EXPECT_EQ(add ? db->put(db, nullptr, &keyRecord, &valueRecord, 0) : Remove(db, keyRecord, valueRecord), 0);
  EXPECT_EQ(db->close(db, 0), 0);
  BerkDb_Close();
}

}  // namespace devconf_test
