// SPDX-License-Identifier: MIT
// The order of the tables and of their indexes, the keys that records get in an index, and lookups through an index.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>

#include <cerrno>
#include <string>

#include "db/for_project/DbIndexes.h"
#include "tests/db/RecordFixture.h"

namespace {

using namespace devsupport::test;

// An octal escape of three digits ends where the text goes on: "\00123" is the byte 1 and "23".

class Indexes : public StoreTest {};

TEST_F(Indexes, TbDm_RunsDownwards) {
  Open();
  for (const char *key : {"a", "c", "b", "ab"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key, key), BERKDB_OK);
  BerkDb_Close();
  Records keys = Dump("tb_dm");
  EXPECT_EQ(
      keys,
      (Records{{Text("c"), Text("c")}, {Text("b"), Text("b")}, {Text("ab"), Text("ab")}, {Text("a"), Text("a")}}));
  EXPECT_TRUE(Verify());
}

TEST_F(Indexes, StbPb_KeyIsTheTextBeforeTheSemicolonWithoutTerminator) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123;x"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_pb"), (Records{{Raw("123"), Text("Bob\000262")}}));
}

TEST_F(Indexes, StbPb_KeyWithoutSemicolonIsTheWholeTextWithTerminator) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_pb"), (Records{{Text("123"), Text("Bob\000262")}}));
}

TEST_F(Indexes, StbPb_KeyOfAValueWithoutTerminatorIsTheWholeValue) {
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Bob", "123", 3), BERKDB_OK);
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Empty", nullptr, 0), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_pb"), (Records{{"", Text("Empty")}, {Raw("123"), Text("Bob")}}));
}

TEST_F(Indexes, Stb1Pb_KeyIsTheDigitsWithTerminator) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "x"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_1_pb"), (Records{{Text("26201"), Text("Bob 1\00026201")}}));
}

TEST_F(Indexes, Stb1Pb_KeyOfARecordWithoutDigitsIsEmpty) {
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Bob", "x", 2), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_1_pb"), (Records{{"", Text("Bob")}}));
}

TEST_F(Indexes, StbRoute_KeyIsTheFirstThreeBytesOfTheRoutesKey) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "\00123456", "x"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "", "one byte"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "\x02", "two bytes"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_route"),
            (Records{{Raw("\0"), Text("")}, {Raw("\00123"), Text("\00123456")}, {Raw("\x02\0"), Text("\x02")}}));
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Indexes, StbRoute_DuplicatesRunDownwardsByNumberAsTextAndRest) {
  Open();
  // Same first three bytes, so duplicates of one another in the index; of different length and end.
  for (const char *key : {"\00512", "\005129", "\00512a", "\005120"}) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, key, "x"), BERKDB_OK);
  }
  BerkDb_Close();
  const std::string group = "\00512";
  EXPECT_EQ(
      Dump("stb_route"),
      (Records{
          {group, Text("\00512a")}, {group, Text("\005129")}, {group, Text("\005120")}, {group, Text("\00512")}}));
}

TEST(RouteOrder, TakesTheFirstByteAsASignedNumber) {
  const auto compare = [](std::string a, std::string b) {
    DBT recordA = {};
    recordA.data = a.data();
    recordA.size = static_cast<u_int32_t>(a.size());
    DBT recordB = {};
    recordB.data = b.data();
    recordB.size = static_cast<u_int32_t>(b.size());
    return devsupport::store::CompareStbRouteDuplicates(nullptr, &recordA, &recordB);
  };
  EXPECT_LT(compare(Text("\x01"), Text("\xFF")), 0) << "downwards: 1 comes before -1";
  EXPECT_GT(compare(Text("\xFF"), Text("\x01")), 0);
  EXPECT_LT(compare(Text("\x02"), Text("\x0A")), 0) << "as texts, downwards: 2 comes before 10";
  EXPECT_GT(compare(Text("\005x"), Text("\005y")), 0);
  EXPECT_EQ(compare(Text("\200x"), Raw("\200x")), 0) << "with a terminator or without";
  EXPECT_LT(compare(Text("\x05"), Raw("")), 0) << "a record without a byte comes last";
}

TEST_F(Indexes, StbRoute_LongRoutesThatBeginAlikeAreNotTakenForOne) {
  Open();
  const std::string begin = "\20012345678901234567890";
  for (const char *end : {"a", "b", "c"})
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, (begin + end).c_str(), end), BERKDB_OK);
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_route").size(), 3u);
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Indexes, StbRoute_IsBuiltFromTheRoutesWhenItIsEmpty) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "\00123456", "x"), BERKDB_OK);
  BerkDb_Close();
  DB *pFile = nullptr;
  ASSERT_EQ(db_create(&pFile, nullptr, 0), 0);
  ASSERT_EQ(pFile->remove(pFile, FilePath().c_str(), "stb_route", 0), 0);
  Open();
  BerkDb_Close();
  EXPECT_EQ(Dump("stb_route"), (Records{{Raw("\00123"), Text("\00123456")}}));
}

// --- lookups

// What BerkDb_PGet returned, and the bytes that it wrote to its two buffers.
struct Entry {
  int code;
  std::string primary;
  std::string value;
  bool operator==(const Entry &) const = default;
};

Entry PGetInto(DB *pIndex, const char *key, std::int32_t size, std::int32_t primaryRoom = 32,
               std::int32_t valueRoom = 32) {
  Reading value;
  const Reading primary = Read32([&](char *name) {
    value = Read32([&](char *data) { return BerkDb_PGet(pIndex, key, size, name, primaryRoom, data, valueRoom); });
    return value.code;
  });
  return {primary.code, primary.bytes, value.bytes};
}

TEST_F(Record, PGet_ByDigits_FindsKeyAndValue) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
  EXPECT_EQ(PGetInto(g_uDb.stb_1_pb, "26201", 0), (Entry{BERKDB_OK,
                                                         Text("Bob 1\0"
                                                              "26201"),
                                                         Text("123;x")}));
}

TEST_F(Record, PGet_ByNumber_TakesTheSizeItIsGiven) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123;x"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Ann", "123"), BERKDB_OK);
  EXPECT_STREQ(PGetInto(g_uDb.stb_pb, "123", 3).primary.c_str(), "Bob");
  EXPECT_STREQ(PGetInto(g_uDb.stb_pb, "123", -1).primary.c_str(), "Ann");
  EXPECT_EQ(PGetInto(g_uDb.stb_pb, "12", 2).code, BERKDB_NOT_FOUND);
}

TEST_F(Record, PGet_WithSeveralRecords_FindsTheFirst) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "1"), BERKDB_OK);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Anc", "2"), BERKDB_OK);  // 262, too
  EXPECT_STREQ(PGetInto(g_uDb.stb_1_pb, "262", 0).primary.c_str(), "Anc");
}

TEST_F(Record, PGet_IntoBuffersThatFitExactly_Works) {
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "1234567"), BERKDB_OK);
  EXPECT_EQ(PGetInto(g_uDb.stb_1_pb, "262", 0, 8, 8).code, BERKDB_OK);
  EXPECT_EQ(PGetInto(g_uDb.stb_1_pb, "262", 0, 7, 8).code, BERKDB_BUFFER_SMALL);
  EXPECT_EQ(PGetInto(g_uDb.stb_1_pb, "262", 0, 8, 7).code, BERKDB_BUFFER_SMALL);
}

TEST_F(Record, PGet_OfTextsWithoutTerminator_EndsThemWhereTheirRecordsEnd) {
  // The library's operations terminate every key. Another program stored this record.
  char name[] = {'B', 'o', 'b'};
  char number[] = {'1', ';', 'x'};
  DBT key = {};
  key.data = name;
  key.size = sizeof name;
  key.flags = DB_DBT_READONLY;
  DBT data = {};
  data.data = number;
  data.size = sizeof number;
  ASSERT_EQ(g_uDb.tb_pb->put(g_uDb.tb_pb, nullptr, &key, &data, 0), 0);
  EXPECT_EQ(PGetInto(g_uDb.stb_pb, "1", 1, 8, 8), (Entry{BERKDB_OK, Text("Bob"), Text("1;x")}));
}

TEST_F(Record, PGet_OnAnotherTableOrWithoutABuffer_Is9) {
  char buffer[8] = "#";
  EXPECT_EQ(BerkDb_PGet(nullptr, "k", 0, buffer, 8, buffer, 8), BERKDB_NO_TABLE);
  EXPECT_EQ(BerkDb_PGet(g_uDb.tb_pb, "k", 0, buffer, 8, buffer, 8), BERKDB_REFUSED);
  EXPECT_EQ(BerkDb_PGet(g_uDb.stb_route, "k", 0, buffer, 8, buffer, 8), BERKDB_REFUSED);
  EXPECT_EQ(BerkDb_PGet(g_uDb.stb_pb, "k", 0, nullptr, 8, buffer, 8), BERKDB_REFUSED);
  EXPECT_EQ(BerkDb_PGet(g_uDb.stb_pb, "k", 0, buffer, 8, nullptr, 8), BERKDB_REFUSED);
}

TEST_F(Record, PGet_WhenTheLibraryFails_Is10WithItsText) {
  g_uDb.stb_pb->pget = [](DB *, DB_TXN *, DBT *, DBT *, DBT *, u_int32_t) { return EIO; };
  char buffer[8] = "#";
  CapturedOutput err(stderr);
  EXPECT_EQ(BerkDb_PGet(g_uDb.stb_pb, "k", 0, buffer, 8, buffer, 8), BERKDB_ERROR);
  EXPECT_EQ(err.Take(), Report(EIO));
}

}  // namespace
