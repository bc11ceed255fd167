// SPDX-License-Identifier: MIT
// The prefix search: the records that it finds, how it cuts them, and where it ends.

#include <db.h>
#include <devsupport/db/DbRecord.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"

namespace {

using namespace devsupport::test;

constexpr std::int32_t kRoom = 64;

class Prefix : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    Open();
    std::memset(records_, '#', sizeof records_);
  }

  static void Store(DB *pDb, std::initializer_list<const char *> keys) {
    for (const char *pKey : keys) ASSERT_EQ(BerkDb_Set(pDb, pKey, (std::string("v") + pKey).c_str()), BERKDB_OK);
  }

  // The keys found, or the code alone.
  std::vector<std::string> Keys(DB *pDb, const char *pPrefix, std::int32_t room = kRoom) {
    count_ = room;
    const int code = BerkDb_FindPrefix(pDb, pPrefix, records_, &count_);
    if (code != BERKDB_OK) return {"<" + std::to_string(code) + ">"};
    std::vector<std::string> keys;
    for (std::int32_t i = 0; i < count_; ++i) keys.emplace_back(records_[i].szKey);
    return keys;
  }

  using List = std::vector<std::string>;

  TDbFindRec records_[kRoom];
  std::int32_t count_ = -4711;
};

TEST_F(Prefix, OfSomeRecords_FindsThemInOrder) {
  Store(g_uDb.tb_parameter, {"net.b", "net.a", "net", "ne", "nf", "m"});
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "net"), (List{"net", "net.a", "net.b"}));
  EXPECT_STREQ(records_[1].szData, "vnet.a");
}

TEST_F(Prefix, OnAPlainTable_LeavesTheIndexFieldAlone) {
  Store(g_uDb.tb_parameter, {"a"});
  ASSERT_EQ(Keys(g_uDb.tb_parameter, "a"), List{"a"});
  EXPECT_EQ(std::string(records_[0].szSecondKey, 32), std::string(32, '#'));
  EXPECT_EQ(records_[1].szKey[0], '#') << "the next record is untouched";
}

TEST_F(Prefix, OfNothing_Is0WithACountOf0) {
  Store(g_uDb.tb_parameter, {"a", "c"});
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "b"), List{});
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "d"), List{});
  EXPECT_EQ(Keys(g_uDb.tb_tone, "a"), List{});
  EXPECT_EQ(count_, 0);
}

TEST_F(Prefix, OfMoreThanTheRoom_Is8AndLeavesTheCount) {
  Store(g_uDb.tb_parameter, {"a1", "a2", "a3"});
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "a", 2), List{"<8>"});
  EXPECT_EQ(count_, 2);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "a", 3), (List{"a1", "a2", "a3"}));
  EXPECT_EQ(count_, 3);
}

TEST_F(Prefix, EmptyPrefix_MatchesEveryRecord) {
  Store(g_uDb.tb_parameter, {"b", "a", ""});
  EXPECT_EQ(Keys(g_uDb.tb_parameter, ""), (List{"", "a", "b"}));
}

TEST_F(Prefix, EmptyPrefixOnTbDm_MatchesEveryRecordDownwards) {
  Store(g_uDb.tb_dm, {"b", "a", "c"});
  EXPECT_EQ(Keys(g_uDb.tb_dm, ""), (List{"c", "b", "a"}));
}

TEST_F(Prefix, OnTbDm_FindsTheEqualKeyOnly) {
  Store(g_uDb.tb_dm, {"ab", "abc", "b"});
  EXPECT_EQ(Keys(g_uDb.tb_dm, "ab"), List{"ab"});
  EXPECT_EQ(Keys(g_uDb.tb_dm, "a"), List{});
}

TEST_F(Prefix, OnAPhoneBookIndex_ComparesTheIndexsKeyAndFillsAllFields) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "555;x"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Anna", "777"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Zoe", "2662"), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.stb_1_pb, "26"), (List{"Bob", "Anna"}));
  EXPECT_STREQ(records_[0].szSecondKey, "262");
  EXPECT_STREQ(records_[0].szData, "555;x");
  EXPECT_STREQ(records_[1].szSecondKey, "2662");
  EXPECT_EQ(Keys(g_uDb.stb_pb, "77"), List{"Anna"});
  EXPECT_STREQ(records_[0].szSecondKey, "777");
  EXPECT_EQ(Keys(g_uDb.stb_pb, "55"), List{"Bob"});
  EXPECT_STREQ(records_[0].szSecondKey, "555");
}

TEST_F(Prefix, ThatEqualsAKeyWithoutTerminator_MissesIt) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "555;x"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Anna", "555"), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.stb_pb, "555"), List{"Anna"});
  EXPECT_EQ(Keys(g_uDb.stb_pb, "55"), (List{"Bob", "Anna"}));
}

TEST_F(Prefix, OnTheRouteIndex_ReadsItAsAPlainTable) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route,
                       "\x01"
                       "2345",
                       "out"),
            BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.stb_route, "\x01"), List{"\x01"
                                                "23"});
  EXPECT_STREQ(records_[0].szData, "out");
  EXPECT_EQ(records_[0].szSecondKey[0], '#');
}

TEST_F(Prefix, OfRecordsThatFillTheFields_TakesThemWhole) {
  const std::string key(31, 'k');
  const std::string value(127, 'v');
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, key.c_str(), value.c_str()), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "k"), List{key});
  EXPECT_EQ(records_[0].szData, value);
}

TEST_F(Prefix, OfShortTexts_TerminatesTheTextAndTheFieldAndNothingBetween) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "555"), BERKDB_OK);
  ASSERT_EQ(Keys(g_uDb.stb_1_pb, "262"), List{"Bob"});
  EXPECT_EQ(std::string(records_[0].szSecondKey, 32), Raw("262\0") + std::string(27, '#') + Raw("\0"));
  EXPECT_EQ(std::string(records_[0].szKey, 32), Raw("Bob\0") + std::string(27, '#') + Raw("\0"));
  EXPECT_EQ(std::string(records_[0].szData, 128), Raw("555\0") + std::string(123, '#') + Raw("\0"));
}

TEST_F(Prefix, OfRecordsWithoutTerminatorThatFillTheFields_CutsTheLastCharacter) {
  const std::string value(128, 'v');
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "k", value.data(), 128), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, "k"), List{"k"});
  EXPECT_EQ(records_[0].szData, value.substr(0, 127));
}

TEST_F(Prefix, OfAValueWithoutTerminator_EndsWhereTheRecordEnds) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "a long value first"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "b", "xy", 2), BERKDB_OK);
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "c", nullptr, 0), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, ""), (List{"a", "b", "c"}));
  EXPECT_STREQ(records_[1].szData, "xy");
  EXPECT_STREQ(records_[2].szData, "");
}

TEST_F(Prefix, AtARecordLargerThanTheFields_Ends) {
  Store(g_uDb.tb_parameter, {"a", "c"});
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "b", std::string(128, 'v').c_str()), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, ""), List{"a"});
  ASSERT_EQ(BerkDb_Del(g_uDb.tb_parameter, "b"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, std::string(32, 'b').c_str(), "v"), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, ""), List{"a"});
}

TEST_F(Prefix, OfAPrimaryKeyThatFillsItsField_TakesIt) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Alexander Maxim", "1"), BERKDB_OK);  // 16 + 16 bytes
  EXPECT_EQ(Keys(g_uDb.stb_pb, ""), List{"Alexander Maxim"});
}

TEST_F(Prefix, OfAPrimaryKeyLargerThanItsField_Ends) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Alexander Maximi", "1"), BERKDB_OK);  // 17 + 17 bytes
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "2"), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.stb_pb, ""), List{});
}

TEST_F(Prefix, LongestPrefix_StillMatches) {
  const std::string key(31, 'k');
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, key.c_str(), "v"), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, key.c_str()), List{key});
}

TEST_F(Prefix, ThatCannotFitTheField_MatchesNothing) {
  const std::string key(40, 'k');
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, key.c_str(), "v"), BERKDB_OK);
  EXPECT_EQ(Keys(g_uDb.tb_parameter, std::string(32, 'k').c_str()), List{});
  EXPECT_EQ(Keys(g_uDb.tb_parameter, key.c_str()), List{});
}

TEST_F(Prefix, WithoutTableRecordsCountOrRoom_IsRefused) {
  std::int32_t count = 5;
  EXPECT_EQ(BerkDb_FindPrefix(nullptr, "a", records_, &count), BERKDB_NO_TABLE);
  EXPECT_EQ(BerkDb_FindPrefix(g_uDb.tb_tone, "a", nullptr, &count), BERKDB_REFUSED);
  EXPECT_EQ(BerkDb_FindPrefix(g_uDb.tb_tone, "a", records_, nullptr), BERKDB_REFUSED);
  EXPECT_EQ(BerkDb_FindPrefix(g_uDb.tb_tone, nullptr, records_, &count), BERKDB_REFUSED);
  EXPECT_EQ(count, 5);
  count = 0;
  EXPECT_EQ(BerkDb_FindPrefix(g_uDb.tb_tone, "a", records_, &count), BERKDB_REFUSED);
  EXPECT_EQ(count, 0);
}

TEST_F(Prefix, WithoutACursor_Is10WithTheLibrarysText) {
  g_uDb.tb_tone->cursor = [](DB *, DB_TXN *, DBC **, u_int32_t) { return ENOMEM; };
  CapturedOutput err(stderr);
  EXPECT_EQ(Keys(g_uDb.tb_tone, "a"), List{"<10>"});
  EXPECT_EQ(err.Take(), "Cannot allocate memory: Cannot allocate memory" + kSourceLine);
  EXPECT_EQ(count_, kRoom);
}

// Cursors whose second step finds another's lock, or which cannot be closed, for a given number of times.
int g_conflicts = 0;
int g_steps = 0;
decltype(DB::cursor) g_realCursor;
decltype(DBC::get) g_realGet;

int OpenCursorThatConflicts(DB *pDb, DB_TXN *txn, DBC **ppCursor, u_int32_t flags) {
  const int result = g_realCursor(pDb, txn, ppCursor, flags);
  if ((*ppCursor)->get != g_realGet && g_realGet == nullptr) g_realGet = (*ppCursor)->get;
  (*ppCursor)->get = [](DBC *pCursor, DBT *pKey, DBT *pValue, u_int32_t operation) {
    if (++g_steps % 2 == 0 && g_conflicts > 0) {
      --g_conflicts;
      return DB_LOCK_DEADLOCK;
    }
    return g_realGet(pCursor, pKey, pValue, operation);
  };
  return result;
}

TEST_F(Prefix, InterruptedByALock_IsWalkedAgainFromTheStart) {
  Store(g_uDb.tb_tone, {"a1", "a2", "a3"});
  g_realCursor = g_uDb.tb_tone->cursor;
  g_realGet = nullptr;
  g_conflicts = 3;
  g_steps = 0;
  g_uDb.tb_tone->cursor = OpenCursorThatConflicts;
  EXPECT_EQ(Keys(g_uDb.tb_tone, "a"), (List{"a1", "a2", "a3"}));
  EXPECT_EQ(g_conflicts, 0);
}

TEST_F(Prefix, WhoseCursorDoesNotClose_ReportsItAndKeepsItsResult) {
  Store(g_uDb.tb_tone, {"a1"});
  g_realCursor = g_uDb.tb_tone->cursor;
  static decltype(DBC::close) s_realClose;
  s_realClose = nullptr;
  g_uDb.tb_tone->cursor = [](DB *pDb, DB_TXN *txn, DBC **ppCursor, u_int32_t flags) {
    const int result = g_realCursor(pDb, txn, ppCursor, flags);
    s_realClose = (*ppCursor)->close;
    (*ppCursor)->close = [](DBC *pCursor) {
      pCursor->close = s_realClose;
      s_realClose(pCursor);
      return EIO;
    };
    return result;
  };
  CapturedOutput err(stderr);
  EXPECT_EQ(Keys(g_uDb.tb_tone, "a"), List{"a1"});
  EXPECT_EQ(err.Take(), "Input/output error: Input/output error" + kSourceLine);
}

}  // namespace
