// SPDX-License-Identifier: MIT
// Cursors: one step for each call, and the effect of an open cursor on other processes.

#include <db.h>
#include <devsupport/db/DbRecord.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "db/for_project/StoreGate.h"
#include "tests/db/RecordFixture.h"
#include "tests/support/CapturedOutput.h"

namespace {

using namespace devsupport::test;

class Cursor : public Record {
 protected:
  // A step to a key (with DB_FIRST: from it). The test closes the cursor. Bytes that are not written keep their
  // preset.
  int Go(DB *pDb, const char *text, u_int32_t flags = DB_SET, std::int32_t room = 256) {
    std::strcpy(key, text);
    const auto keyBytes = static_cast<std::int32_t>(flags == DB_FIRST ? 0 : std::strlen(text) + 1);
    return BerkDb_CursorGet(pDb, &pCursor, key, keyBytes, value, room, flags, &result);
  }

  char key[256] = "#";
  char value[512] = "#";
  DBC *pCursor = nullptr;
  int result = -4711;
};

TEST_F(Cursor, Get_FindsAKeyAndHandsTheCursorBack) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "a", "1"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "b", "2"), BERKDB_OK);
  EXPECT_EQ(Go(g_uDb.tb_tone, "a"), BERKDB_OK);
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(value, "1");
  ASSERT_NE(pCursor, nullptr);
  DBT nextKey{};
  DBT nextValue{};
  EXPECT_EQ(pCursor->get(pCursor, &nextKey, &nextValue, DB_NEXT), 0);
  EXPECT_STREQ(static_cast<char *>(nextKey.data), "b");
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 1);
}

TEST_F(Cursor, Get_WritesTheKeyThatItFinds) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "a", "1"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "b", "2"), BERKDB_OK);
  EXPECT_EQ(Go(g_uDb.tb_dm, "#", DB_FIRST), BERKDB_OK);
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(key, "b");
  EXPECT_STREQ(value, "2");
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 1);
}

TEST_F(Cursor, Get_OfAMissingKey_Returns0WithTheLibrarysResult) {
  EXPECT_EQ(Go(g_uDb.tb_tone, "none"), BERKDB_OK);
  EXPECT_EQ(result, DB_NOTFOUND);
  EXPECT_NE(pCursor, nullptr);
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 1);
}

TEST_F(Cursor, Get_FillsAtMostTheRoomItHasAnd256) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "255", std::string(255, 'x').c_str()), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "256", std::string(256, 'x').c_str()), BERKDB_OK);
  const auto resultOf = [this](const char *text, std::int32_t room) {
    Go(g_uDb.tb_tone, text, DB_SET, room);
    BerkDb_CursorClose(pCursor);
    return result;
  };
  EXPECT_EQ(resultOf("255", 256), 0);
  EXPECT_EQ(resultOf("255", 0), 0);
  EXPECT_EQ(resultOf("255", 255), DB_BUFFER_SMALL);
  EXPECT_EQ(resultOf("256", 512), DB_BUFFER_SMALL);
}

TEST_F(Cursor, Get_WithoutACursor_Is11AndLeavesTheResultAlone) {
  g_uDb.tb_tone->cursor = [](DB *, DB_TXN *, DBC **, u_int32_t) { return ENOMEM; };
  pCursor = static_cast<DBC *>(static_cast<void *>(value));
  CapturedOutput err(stderr);
  EXPECT_EQ(Go(g_uDb.tb_tone, "k"), BERKDB_NO_CURSOR);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(pCursor, nullptr);
  EXPECT_EQ(result, -4711);
}

TEST_F(Cursor, Get_WithACursorDespiteTheFailure_ClosesIt) {
  static decltype(g_uDb.tb_tone->cursor) s_real;
  s_real = g_uDb.tb_tone->cursor;
  g_uDb.tb_tone->cursor = [](DB *pDb, DB_TXN *txn, DBC **ppCursor, u_int32_t flags) {
    s_real(pDb, txn, ppCursor, flags);
    return EIO;
  };
  EXPECT_EQ(Go(g_uDb.tb_tone, "k"), BERKDB_NO_CURSOR);
  EXPECT_EQ(pCursor, nullptr);
  g_uDb.tb_tone->cursor = s_real;
  CapturedOutput err(stderr);
  BerkDb_Close();
  EXPECT_EQ(err.Take(), "") << "a cursor was left open";
}

TEST_F(Cursor, Get_ThatFindsALock_ClosesItsCursorAndIsTriedAgain) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  static decltype(g_uDb.tb_tone->cursor) s_realCursor;
  static decltype(DBC::get) s_realGet;
  static decltype(DBC::close) s_realClose;
  static int s_closed;
  s_realCursor = g_uDb.tb_tone->cursor;
  s_closed = 0;
  g_uDb.tb_tone->cursor = [](DB *pDb, DB_TXN *txn, DBC **ppCursor, u_int32_t flags) {
    const int opened = s_realCursor(pDb, txn, ppCursor, flags);
    pDb->cursor = s_realCursor;
    s_realGet = (*ppCursor)->get;
    s_realClose = (*ppCursor)->close;
    (*ppCursor)->get = [](DBC *, DBT *, DBT *, u_int32_t) { return DB_LOCK_DEADLOCK; };
    (*ppCursor)->close = [](DBC *pOpen) {
      ++s_closed;
      pOpen->get = s_realGet;  // the library keeps closed cursors for later
      pOpen->close = s_realClose;
      return s_realClose(pOpen);
    };
    return opened;
  };
  EXPECT_EQ(Go(g_uDb.tb_tone, "k"), BERKDB_OK);
  EXPECT_EQ(s_closed, 1);
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(value, "v");
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 1);
}

TEST_F(Cursor, Get_OfANullTable_Is6) { EXPECT_EQ(Go(nullptr, "", DB_FIRST), BERKDB_NO_TABLE); }

TEST_F(Cursor, Close_ThatFails_ReportsAndReturns0) {
  ASSERT_EQ(Go(g_uDb.tb_tone, "k"), BERKDB_OK);
  static decltype(pCursor->close) s_real;
  s_real = pCursor->close;
  pCursor->close = [](DBC *pOpen) {
    s_real(pOpen);
    return EIO;
  };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 0);
  EXPECT_EQ(err.Take(), Report(EIO));
  EXPECT_EQ(BerkDb_CursorClose(nullptr), 1);
  pCursor->close = s_real;  // the library keeps closed cursors for later
}

TEST_F(Cursor, Close_OfACursorOfTheLibrary_IsNotCounted) {
  devsupport::store::g_gate.Record().dwCursors = 1;  // another process's
  ASSERT_EQ(g_uDb.tb_tone->cursor(g_uDb.tb_tone, nullptr, &pCursor, 0), 0);
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 1);
  EXPECT_EQ(devsupport::store::g_gate.Cursors(), 1u);
}

// --- left open

TEST_F(Cursor, LeftOpen_LetsReadersPass) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  ASSERT_EQ(Go(g_uDb.tb_tone, "k", DB_SET | DB_RMW), BERKDB_OK);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
  EXPECT_EQ(BerkDb_CursorClose(pCursor), 1);
}

TEST_F(Cursor, LeftOpen_HoldsAWriterOfTheSamePageUpUntilItIsClosed) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "old"), BERKDB_OK);
  ASSERT_EQ(Go(g_uDb.tb_tone, "k"), BERKDB_OK);
  static DBC *s_pCursor;
  static decltype(g_uDb.tb_tone->put) s_real;
  s_pCursor = pCursor;
  s_real = g_uDb.tb_tone->put;
  // The first try meets the cursor; it is closed before the second one.
  g_uDb.tb_tone->put = [](DB *pDb, DB_TXN *txn, DBT *pKey, DBT *pValue, u_int32_t flags) {
    const int first = s_real(pDb, txn, pKey, pValue, flags);
    EXPECT_EQ(first, DB_LOCK_DEADLOCK);
    s_pCursor->close(s_pCursor);
    pDb->put = s_real;
    return first;
  };
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "new"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "new");
}

}  // namespace
