// SPDX-License-Identifier: MIT
// Single records: read, written, deleted, looked up through an index.

#include <db.h>
#include <devsupport/db/DbRecord.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

#include "db/for_project/Environment.h"
#include "tests/db/RecordFixture.h"
#include "tests/support/CapturedOutput.h"

namespace {

using namespace devsupport::test;

// How many further calls find a conflicting lock.
int g_conflicts = 0;

Reading GetInto(DB *pDb, const char *key, std::int32_t room) {
  return Read32([&](char *buffer) { return BerkDb_Get(pDb, key, buffer, room); });
}
Reading ReadInto(DB *pDb, const char *key, std::int32_t room) {
  return Read32([&](char *buffer) { return BerkDb_Read(pDb, key, buffer, room); });
}

// --- reading

TEST_F(Record, Get_ReadsWhatSetStored) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "vlan", "5"), BERKDB_OK);
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "vlan", 16), (Reading{BERKDB_OK, Raw("5\0")}));
}

TEST_F(Record, Get_IntoABufferThatFitsExactly_Works) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "1234567"), BERKDB_OK);
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "k", 8), (Reading{BERKDB_OK, Raw("1234567\0")}));
}

TEST_F(Record, Get_IntoABufferOneByteTooSmall_Is8) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "1234567"), BERKDB_OK);
  const Reading reading = GetInto(g_uDb.tb_parameter, "k", 7);
  EXPECT_EQ(reading.code, BERKDB_BUFFER_SMALL);
  EXPECT_EQ(reading.printed, "");
  EXPECT_LE(reading.bytes.size(), 7u);
}

TEST_F(Record, Get_IntoNoRoomAtAll_Is8) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "1"), BERKDB_OK);
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "k", 0), (Reading{BERKDB_BUFFER_SMALL, ""}));
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "k", -5), (Reading{BERKDB_BUFFER_SMALL, ""}));
}

TEST_F(Record, Get_OfAMissingKey_Is7AndPrintsNothing) {
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "none", 8), (Reading{BERKDB_NOT_FOUND, ""}));
}

TEST_F(Record, Get_OfANullTable_Is6) {
  EXPECT_EQ(GetInto(nullptr, "k", 8), (Reading{BERKDB_NO_TABLE, ""}));
  EXPECT_EQ(BerkDb_Get(nullptr, "k", nullptr, 0), BERKDB_NO_TABLE);
}

TEST_F(Record, Get_OnAPhoneBookIndexOrWithoutABuffer_Is9) {
  EXPECT_EQ(GetInto(g_uDb.stb_pb, "k", 8), (Reading{BERKDB_REFUSED, ""}));
  EXPECT_EQ(GetInto(g_uDb.stb_1_pb, "k", 8), (Reading{BERKDB_REFUSED, ""}));
  EXPECT_EQ(BerkDb_Get(g_uDb.tb_parameter, "k", nullptr, 8), BERKDB_REFUSED);
}

TEST_F(Record, Get_OnTheRouteIndex_IsNotRefused) {
  EXPECT_EQ(GetInto(g_uDb.stb_route, "k", 8), (Reading{BERKDB_NOT_FOUND, ""}));
}

TEST_F(Record, Get_OnTbDm_FindsTheRecordAndNeverWritesTheKey) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "digit", "map"), BERKDB_OK);
  static const char s_key[] = "digit";  // in memory that cannot be written
  EXPECT_EQ(Get(g_uDb.tb_dm, s_key), "map");
  EXPECT_EQ(ReadInto(g_uDb.tb_dm, s_key, 8), (Reading{BERKDB_OK, Raw("map\0")}));
}

TEST_F(Record, Get_OfAVeryLongKey_Works) {
  const std::string key(1500, 'k');
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key.c_str(), "map"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_dm, key.c_str()), "map");
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, key.c_str(), "long"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_pb, key.c_str()), "long");
}

TEST_F(Record, Get_OfANullKey_Is10) {
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, nullptr, 8), (Reading{BERKDB_ERROR, "", Report(EINVAL)}));
}

TEST_F(Record, Get_OfAValueWithoutTerminator_EndsItWhereTheRecordEnds) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "raw", "abc", 3), BERKDB_OK);
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "raw", 8), (Reading{BERKDB_OK, Raw("abc\0")}));
}

TEST_F(Record, Get_OfAValueWithoutTerminatorThatFitsExactly_WritesNothingAfterIt) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "raw", "abc", 3), BERKDB_OK);
  EXPECT_EQ(GetInto(g_uDb.tb_parameter, "raw", 3), (Reading{BERKDB_OK, "abc"}));
}

TEST_F(Record, Get_OfAnEmptyValue_IsTheEmptyText) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_parameter, "empty", nullptr, 0), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "empty"), "");
}

TEST_F(Record, Get_InThePhoneBook_LooksTheNameUpUnderNameAndDigits) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
  EXPECT_EQ(ReadInto(g_uDb.tb_pb, "Bob 1", 8).code, BERKDB_NOT_FOUND) << "the name alone is no key";
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), (Records{{Text("Bob 1\0"
                                          "26201"),
                                     Text("123;x")}}));
}

TEST_F(Record, Read_OnAPhoneBookIndex_ReadsTheRecordOfTheTable) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123"), BERKDB_OK);
  EXPECT_EQ(ReadInto(g_uDb.stb_1_pb, "262", 8), (Reading{BERKDB_OK, Raw("123\0")}));
}

TEST_F(Record, Read_AnswersAsTheLibraryDoes) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "12"), BERKDB_OK);
  EXPECT_EQ(ReadInto(g_uDb.tb_parameter, "none", 8).code, BERKDB_NOT_FOUND);
  EXPECT_EQ(ReadInto(g_uDb.tb_parameter, "k", 2).code, BERKDB_BUFFER_SMALL);
  EXPECT_EQ(BerkDb_Read(g_uDb.tb_parameter, "k", nullptr, 8), BERKDB_BUFFER_SMALL);
  EXPECT_EQ(ReadInto(g_uDb.tb_parameter, "k", 3), (Reading{BERKDB_OK, Raw("12\0")}));
  EXPECT_EQ(ReadInto(nullptr, "k", 3).code, BERKDB_NO_TABLE);
}

TEST_F(Record, GetStr_AnswersYesOrNo) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "k", "12"), BERKDB_OK);
  char buffer[8] = "#";
  EXPECT_EQ(BerkDb_GetStr(g_uDb.tb_parameter, "k", buffer, sizeof buffer), 1);
  EXPECT_STREQ(buffer, "12");
  EXPECT_EQ(BerkDb_GetStr(g_uDb.tb_parameter, "k", buffer, 2), 0);
  EXPECT_EQ(BerkDb_GetStr(g_uDb.tb_parameter, "none", buffer, sizeof buffer), 0);
  EXPECT_EQ(BerkDb_GetStr(nullptr, "k", buffer, sizeof buffer), 0);
}

TEST_F(Record, Get_WhenTheLibraryFails_Is10WithItsText) {
  g_uDb.tb_tone->get = [](DB *, DB_TXN *, DBT *, DBT *, u_int32_t) { return EIO; };
  EXPECT_EQ(GetInto(g_uDb.tb_tone, "k", 8), (Reading{BERKDB_ERROR, "", Report(EIO)}));
}

// --- writing

TEST_F(Record, Set_StoresKeyAndValueWithTheirTerminators) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, "line1", "on"), BERKDB_OK);
  EXPECT_EQ(Dump("tb_line"), (Records{{Text("line1"), Text("on")}})) << "flushed to the file while open";
}

TEST_F(Record, Set_OfAKeyThatIsThere_ReplacesItsValue) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, "k", "a long value"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, "k", ""), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_line, "k"), "");
  EXPECT_EQ(Dump("tb_line"), (Records{{Text("k"), Text("")}}));
}

TEST_F(Record, Set_WhenTheLibraryFails_Is10WithItsTextTwiceAndFlushesNothing) {
  DB *pDb = g_uDb.tb_tone;
  pDb->put = [](DB *, DB_TXN *, DBT *, DBT *, u_int32_t) { return EIO; };
  pDb->sync = [](DB *, u_int32_t) {
    std::fputs("flushed", stderr);
    return 0;
  };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Set(pDb, "k", "v"), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(EIO) + Short(EIO));
}

TEST_F(Record, Set_WhenTheFileCannotBeWritten_Is10) {
  static decltype(g_uDb.tb_tone->sync) s_real;
  s_real = g_uDb.tb_tone->sync;
  g_uDb.tb_tone->sync = [](DB *, u_int32_t) { return ENOSPC; };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(ENOSPC) + Short(ENOSPC));
  g_uDb.tb_tone->sync = s_real;
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
}

TEST_F(Record, ChangesWhoseLogCannotBeWritten_Are10) {
  devsupport::store::g_pEnv->log_flush = [](DB_ENV *, const DB_LSN *) { return EACCES; };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Put(g_uDb.tb_tone, "k", "v", 2), BERKDB_ERROR);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_ERROR);
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_tone, "k"), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(EACCES) + Short(EACCES) + Report(EACCES) + Short(EACCES) + Report(EACCES));
}

TEST_F(Record, Set_WithoutTableKeyOrValue_Fails) {
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Set(nullptr, "k", "v"), BERKDB_NO_TABLE);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, nullptr, "v"), BERKDB_ERROR);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", nullptr), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(EINVAL) + Short(EINVAL) + Report(EINVAL) + Short(EINVAL));
}

TEST_F(Record, Put_StoresTheBytesAsGiven) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, "bytes", "a\0b", 3), BERKDB_OK);
  Reopen();
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_line"), (Records{{Text("bytes"), Raw("a\0b")}}));
}

TEST_F(Record, Put_InThePhoneBook_TakesTheKeyUnchanged) {
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Bob", "123", 4), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob"), "<7>");
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), (Records{{Text("Bob"), Text("123")}}));
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Record, Put_WhenTheLibraryFails_Is10WithItsTextTwice) {
  g_uDb.tb_tone->put = [](DB *, DB_TXN *, DBT *, DBT *, u_int32_t) { return DB_SECONDARY_BAD; };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Put(g_uDb.tb_tone, "k", "v", 2), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(DB_SECONDARY_BAD) + Short(DB_SECONDARY_BAD));
}

TEST_F(Record, Put_OfANegativeSizeOrOfNoData_Is10) {
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Put(g_uDb.tb_tone, "k", "v", -1), BERKDB_ERROR);
  EXPECT_EQ(BerkDb_Put(g_uDb.tb_tone, "k", nullptr, 1), BERKDB_ERROR);
  EXPECT_EQ(BerkDb_Put(nullptr, "k", "v", 1), BERKDB_NO_TABLE);
  err.Take();
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "<7>");
}

TEST_F(Record, Put_OnAnIndex_Is10) {
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Put(g_uDb.stb_pb, "k", "v", 1), BERKDB_ERROR);
  EXPECT_NE(err.Take().find(Short(EINVAL)), std::string::npos);
}

TEST_F(Record, PutStr_StoresTheKeyUnchangedAndFlushes) {
  EXPECT_EQ(BerkDb_PutStr(g_uDb.tb_pb, "Bob", "123"), 1);
  EXPECT_EQ(Dump("tb_pb"), (Records{{Text("Bob"), Text("123")}}));
}

TEST_F(Record, PutStr_WhenTheLibraryFails_Is0) {
  g_uDb.tb_tone->put = [](DB *, DB_TXN *, DBT *, DBT *, u_int32_t) { return EIO; };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_PutStr(g_uDb.tb_tone, "k", "v"), 0);
  EXPECT_EQ(BerkDb_PutStr(nullptr, "k", "v"), 0);
  EXPECT_EQ(err.Take(), Report(EIO));
}

TEST_F(Record, Writing_FlushesTheTableForSetPutStrAndDelOnly) {
  static int s_flushes;
  static decltype(g_uDb.tb_tone->sync) s_real;
  s_real = g_uDb.tb_tone->sync;
  g_uDb.tb_tone->sync = [](DB *pDb, u_int32_t flags) {
    s_flushes += flags == 0 ? 1 : 1000;
    return s_real(pDb, flags);
  };
  s_flushes = 0;
  BerkDb_Put(g_uDb.tb_tone, "k", "v", 2);
  EXPECT_EQ(s_flushes, 0);
  BerkDb_Set(g_uDb.tb_tone, "k", "v");
  EXPECT_EQ(s_flushes, 1);
  BerkDb_PutStr(g_uDb.tb_tone, "k", "v");
  EXPECT_EQ(s_flushes, 2);
  BerkDb_Del(g_uDb.tb_tone, "k");
  EXPECT_EQ(s_flushes, 3);
  BerkDb_Del(g_uDb.tb_tone, "k");
  EXPECT_EQ(s_flushes, 3);
}

TEST_F(Record, Writing_KeepsTheLogShort) {
  for (int i = 0; i < 2000; ++i)
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_tone, "k", std::string(500, 'v').c_str(), 501), BERKDB_OK);
  char **names = nullptr;
  DB_ENV *pEnv = BerkDb_GetEnv();
  ASSERT_EQ(pEnv->log_archive(pEnv, &names, DB_ARCH_LOG), 0);
  int files = 0;
  for (char **name = names; name != nullptr && *name != nullptr; ++name) ++files;
  std::free(names);
  EXPECT_LE(files, 12) << "files of 64 KiB, for 2 MB of changes";
}

// --- deleting

TEST_F(Record, Del_RemovesTheRecordFromTheFile) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, "a", "1"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, "b", "2"), BERKDB_OK);
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_line, "a"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_line, "a"), "<7>");
  EXPECT_EQ(Dump("tb_line"), (Records{{Text("b"), Text("2")}}));
}

TEST_F(Record, Del_OfAMissingKey_Is7) {
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_line, "a"), BERKDB_NOT_FOUND);
  EXPECT_EQ(err.Take(), "");
}

TEST_F(Record, Del_OnTbDm_RemovesTheRecord) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "a", "1"), BERKDB_OK);
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_dm, "a"), BERKDB_OK);
  EXPECT_EQ(Get(g_uDb.tb_dm, "a"), "<7>");
}

TEST_F(Record, Del_InThePhoneBook_TakesTheNameAndClearsTheIndexes) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123"), BERKDB_OK);
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_pb, "Bob"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("tb_pb"), Records{});
  EXPECT_EQ(Dump("stb_pb"), Records{});
  EXPECT_EQ(Dump("stb_1_pb"), Records{});
}

TEST_F(Record, Del_WhenTheLibraryFails_Is10WithItsText) {
  g_uDb.tb_tone->del = [](DB *, DB_TXN *, DBT *, u_int32_t) { return EIO; };
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Del(g_uDb.tb_tone, "k"), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(EIO));
  EXPECT_EQ(BerkDb_Del(nullptr, "k"), BERKDB_NO_TABLE);
}

// --- the space that changes take

/// The most bytes that the log files of a home took after any of these changes.
template <typename Change>
std::uintmax_t MostLogBytes(const std::string &home, int changes, Change change) {
  std::uintmax_t most = 0;
  for (int i = 0; i < changes; ++i) {
    EXPECT_EQ(change(i), BERKDB_OK) << i;
    std::uintmax_t bytes = 0;
    for (const auto &entry : std::filesystem::directory_iterator(home)) {
      if (entry.path().filename().string().starts_with("log.")) bytes += entry.file_size();
    }
    most = std::max(most, bytes);
  }
  return most;
}

// Four log files of 64 KiB.
constexpr std::uintmax_t kLogRoom = 0x40000;

TEST_F(Record, ManySmallChanges_DoNotFillTheMedium) {
  EXPECT_LE(MostLogBytes(home_, 4000, [](int i) { return BerkDb_Put(g_uDb.tb_tone, "k", &i, sizeof i); }), kLogRoom);
}

TEST_F(Record, FewLargeChanges_DoNotFillTheMedium) {
  const std::string value(4000, 'v');
  EXPECT_LE(MostLogBytes(home_, 200, [&](int) { return BerkDb_Set(g_uDb.tb_tone, "k", value.c_str()); }), kLogRoom);
}

// --- conflicts with locks of other processes

TEST_F(Record, Set_ThatFindsALock_IsTriedAgain) {
  static decltype(g_uDb.tb_tone->put) s_real;
  s_real = g_uDb.tb_tone->put;
  g_uDb.tb_tone->put = [](DB *pDb, DB_TXN *, DBT *, DBT *, u_int32_t) {
    if (--g_conflicts == 0) pDb->put = s_real;
    return g_conflicts % 2 == 0 ? DB_LOCK_DEADLOCK : DB_LOCK_NOTGRANTED;
  };
  g_conflicts = 3;
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(g_conflicts, 0);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
}

TEST_F(Record, Get_ThatFindsALock_IsTriedAgain) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "v"), BERKDB_OK);
  static decltype(g_uDb.tb_tone->get) s_real;
  s_real = g_uDb.tb_tone->get;
  g_uDb.tb_tone->get = [](DB *pDb, DB_TXN *, DBT *, DBT *, u_int32_t) {
    pDb->get = s_real;
    return DB_LOCK_DEADLOCK;
  };
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
}

TEST_F(Record, ReadByAnIndexWithoutAKey_IsAnError) {
  EXPECT_EQ(Read32([](char *buffer) { return BerkDb_PGet(g_uDb.stb_pb, nullptr, 0, buffer, 32, buffer, 32); }),
            (Reading{BERKDB_ERROR, "", Report(EINVAL)}));
}

}  // namespace
