// SPDX-License-Identifier: MIT
// The library gives the environment up, before an operation or in the middle of one. The store is rebuilt, and
// nothing that was acknowledged is lost.

#include <db.h>
#include <devsupport/detail/db/BerkeleyDB.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "db/for_project/RecordAccess.h"
#include "db/for_project/StoreGate.h"
#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"

namespace {

using namespace devsupport::test;
using devsupport::store::Change;
using devsupport::store::g_gate;

enum OtherProcess { kUse, kDie };
constexpr int kPhoneBook = 2;
constexpr int kNumbers = 3;  // an index of it
constexpr int kTones = 12;

// What the library does when it finds its shared memory inconsistent.
void BreakEnvironment() { BerkDb_GetEnv()->set_flags(BerkDb_GetEnv(), DB_PANIC_ENVIRONMENT, 1); }

// Breaks it when the next cursor of the table has just been made.
void BreakAtCursorOf(DB *pDb) {
  static decltype(pDb->cursor) s_realCursor;
  s_realCursor = pDb->cursor;
  pDb->cursor = [](DB *pTable, DB_TXN *pTxn, DBC **ppCursor, u_int32_t flags) {
    const int result = s_realCursor(pTable, pTxn, ppCursor, flags);
    BreakEnvironment();
    return result;
  };
}

class Broken : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    others_.emplace([this](int what) { return what == kDie ? DieInside(home_) : Use(); });
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
  }
  void TearDown() override {
    BerkDb_Close();
    if (!IsSkipped()) ExpectSoundFile();
    others_.reset();
    StoreTest::TearDown();
  }

  static int Find(DB *pDb, const char *prefix) {
    TDbFindRec records[4];
    std::int32_t count = 4;
    return BerkDb_FindPrefix(pDb, prefix, records, &count) == BERKDB_OK ? count : -1;
  }
  static std::vector<std::string> Walk(int row) {
    devsupport::store::RecordWalk walk(*g_auDbTbl[row].ppDb, devsupport::store::kTableRules[row], "");
    std::vector<std::string> keys;
    for (devsupport::store::WholeRecord record; walk.Next(record) == 0;) keys.emplace_back(record.key);
    return keys;
  }

  int Use() const {
    if (BerkDb_Open(home_.c_str(), nullptr, nullptr) != 1) return 2;
    const int code = Get(g_uDb.tb_pb, "Bob 1") == "123;x" ? BerkDb_Set(g_uDb.tb_tone, "k", "v") : 3;
    BerkDb_Close();
    return code;
  }

  std::optional<Starter> others_;
  CapturedOutput err_{stderr};  // the library reports each time
};

TEST_F(Broken, AnyOperationThatComesFirst_IsCarriedOut) {
  BreakEnvironment();
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
  BreakEnvironment();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  BreakEnvironment();
  EXPECT_EQ(Find(g_uDb.stb_pb, "12"), 1);
  BreakEnvironment();
  EXPECT_EQ(BerkDb_CursorClose(CursorOnFirst(g_uDb.tb_pb)), 1);
  BreakEnvironment();
  EXPECT_EQ(Walk(kTones), std::vector{Text("k")});
  BreakEnvironment();
  const Change change = {Change::Kind::Delete, kTones, {"k", 2}, {}};
  EXPECT_EQ(devsupport::store::ApplyChanges({&change, 1}, nullptr).nResult, 0);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "<7>");
}

TEST_F(Broken, InTheMiddleOfASearchOrAStep_IsNotNoticed) {
  BreakAtCursorOf(g_uDb.tb_pb);
  EXPECT_EQ(Find(g_uDb.tb_pb, "Bob"), 1);
  BreakAtCursorOf(g_uDb.stb_pb);
  EXPECT_EQ(Find(g_uDb.stb_pb, "12"), 1);
  BreakAtCursorOf(g_uDb.tb_pb);
  EXPECT_EQ(BerkDb_CursorClose(CursorOnFirst(g_uDb.tb_pb)), 1);
}

TEST_F(Broken, BetweenTheBatchesOfAWalk_LosesNoRecordOfIt) {
  std::vector<std::string> keys;
  for (int n = 0; n < 250; ++n) keys.push_back(Text("name") + std::to_string(1000 + n) + '\0');
  std::vector<Change> changes;
  for (const std::string &key : keys) changes.push_back({Change::Kind::Put, kPhoneBook, key, "9;y"});
  ASSERT_EQ(devsupport::store::ApplyChanges(changes, nullptr).nResult, 0);
  devsupport::store::RecordWalk walk(g_uDb.stb_pb, devsupport::store::kTableRules[kNumbers], "9");
  devsupport::store::WholeRecord record;
  for (std::size_t n = 0; n < keys.size(); ++n) {
    if (n == 200) BreakAtCursorOf(g_uDb.stb_pb);
    ASSERT_EQ(walk.Next(record), 0) << n;
    EXPECT_EQ(record.key, keys[n]);
  }
  EXPECT_EQ(walk.Next(record), DB_NOTFOUND);
}

TEST_F(Broken, InTheMiddleOfSeveralChanges_AllAreMadeAndCountedOnce) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "old", "1"), BERKDB_OK);
  const Change changes[] = {{Change::Kind::Put, kTones, {"new", 4}, {"7", 2}},
                            {Change::Kind::Put, kTones, {"old", 4}, {"8", 2}}};
  static int asked = 0;
  const auto result = devsupport::store::ApplyChanges(changes, [] {
    if (++asked == 2) BreakEnvironment();
    return true;
  });
  EXPECT_EQ(result.nResult, 0);
  EXPECT_EQ(asked, 4) << "twice each";
  EXPECT_EQ(result.counts.dwAdded, 1u);
  EXPECT_EQ(result.counts.dwChanged, 1u);
  EXPECT_EQ(Get(g_uDb.tb_tone, "new") + Get(g_uDb.tb_tone, "old"), "78");
}

TEST_F(Broken, WhenANewProcessOpensTheStore_BothContinue) {
  BreakEnvironment();
  EXPECT_EQ(others_->Run(kUse), 0);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
}

// The library keeps the memory of what it refuses to close: so the next two are other processes.

TEST_F(Broken, AndClosed_IsReportedAndWholeWhenOpenedAgain) {
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  BerkDb_Close();
  Child process([this] {
    Open();
    BreakEnvironment();
    CapturedOutput err(stderr);
    BerkDb_Close();
    const std::string said = err.Take();
    for (const char *pName : {"tb_parameter", "tb_tone", "(environment)"})
      EXPECT_NE(said.find(std::string("FAIL to close database ") + pName), std::string::npos) << said;
    Open();
    EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(process.Wait(), 0);
}

TEST_F(Broken, WithATableThatTheCallerOpened_NeedsItOpenedAgain) {
  BerkDb_Close();
  Child process([this] {
    EXPECT_EQ(_BerkDb_CreateEnvir(home_.c_str()), 1);
    DB *pOwn = nullptr;
    EXPECT_EQ(db_create(&pOwn, BerkDb_GetEnv(), 0), 0);
    EXPECT_EQ(pOwn->open(pOwn, nullptr, "config.db", "tb_tone", DB_BTREE, 0, 0), 0);
    EXPECT_EQ(BerkDb_Set(pOwn, "k", "v"), BERKDB_OK);
    EXPECT_EQ(others_->Run(kDie), 1000 + SIGKILL);
    CapturedOutput err(stderr);
    EXPECT_EQ(BerkDb_Set(pOwn, "k", "w"), BERKDB_ERROR);
    EXPECT_NE(err.Take().find(db_strerror(DB_RUNRECOVERY)), std::string::npos);
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(process.Wait(), 0);
  Open();
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
}

TEST_F(Broken, WhenAllPlacesWereTakenMeanwhile_IsAnErrorUntilOneIsFree) {
  auto &members = g_gate.Record().aMembers;
  for (auto &member : members) member = {1, 0, 0};  // process 1 is always there
  BreakEnvironment();
  for (const int reason : {DB_RUNRECOVERY, ENOMEM}) {
    CapturedOutput err(stderr);
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "<" + std::to_string(BERKDB_ERROR) + ">");
    EXPECT_NE(err.Take().find(db_strerror(reason)), std::string::npos);
  }
  for (auto &member : members) member = {};
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
}

// Several changes at once wait for the cursors of all processes.
TEST_F(Broken, WithACursorFromBefore_CountsTheCursorsOfOthersOnly) {
  for (const bool follow : {false, true}) {
    BerkDb_Close();
    Event died;
    Event opened;
    Event closed;
    Child other([&] {
      died.Wait();
      Open();
      DBC *cursor = CursorOnFirst(g_uDb.tb_pb);
      opened.Announce();
      closed.Wait();
      const auto count = static_cast<int>(g_gate.Cursors());
      return BerkDb_CursorClose(cursor) == 1 ? count : -1;
    });
    Open();
    EXPECT_NE(CursorOnFirst(g_uDb.tb_pb), nullptr);
    EXPECT_EQ(others_->Run(kDie), 1000 + SIGKILL);
    died.Announce();
    opened.Wait();
    if (follow) {
      EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
    }
    BerkDb_Close();
    closed.Announce();
    EXPECT_EQ(other.Wait(), 1) << "followed before: " << follow;
  }
}

}  // namespace
