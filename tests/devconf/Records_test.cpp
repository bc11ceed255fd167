// Reading records whole, with the library's own operations: any bytes, any size, in every table's order.

#include "tools/devconf/Records.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/devconf/Shell.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;
using devconf::Answer;
using devconf::Bytes;
using devconf::FindTable;
using devconf::kCatalogue;
using devconf::ReadValue;
using devconf::Table;
using devconf::TableWalk;

class RecordsOf : public devconf_test::DevconfTest {
 protected:
  static Records Walk(const char *table, const std::string &prefix = "") {
    Records records;
    TableWalk walk(*FindTable(table), prefix);
    Answer answer = Answer::kFailed;
    while ((answer = walk.Next()) == Answer::kYes) {
      records.emplace_back(walk.Key(), walk.Value());
      if (records.size() > 100000) break;
    }
    EXPECT_EQ(answer, Answer::kNo);
    return records;
  }
};

TEST_F(RecordsOf, TheCatalogue_IsTheLibrarys) {
  for (int i = 0; i < BERKDB_TABLES; ++i) EXPECT_STREQ(kCatalogue[i].name, g_auDbTbl[i].pName);
}

TEST_F(RecordsOf, AnEmptyTable_AreNone) {
  Open();
  for (const Table &table : kCatalogue) {
    if (table.IsIndex()) continue;
    EXPECT_TRUE(Walk(table.name).empty()) << table.name;
  }
}

TEST_F(RecordsOf, AnyBytes_AreReadWhole) {
  const Records records = {
      {Raw(""), Raw("value of the empty key")},
      {Raw("\0"), Raw("")},
      {Raw("a"), Raw("\0")},
      {Raw("a\0"), Raw("\0\0\0")},
      {Raw("a\0\0"), Raw("\xff")},
      {Raw("a\0b"), Raw("\0\xff")},
      {Raw("ab\0"), Raw("\xff\0")},
      {Raw("b"), Raw("text\0")},
      {Raw("\xff"), Raw("text")},
      {Raw("\xff\xff\0"), Raw("\xff\xff\xff\xff")},
  };
  for (const auto &[key, value] : records) Plant("tb_line", key, value);
  Open();
  EXPECT_EQ(Walk("tb_line"), records);
}

TEST_F(RecordsOf, ValuesOfEverySizeAroundTheBuffers_AreReadWhole) {
  Open();
  for (const std::size_t size : {0UL, 1UL, 255UL, 256UL, 257UL, 511UL, 512UL, 513UL, 5000UL, 65536UL, 100000UL}) {
    for (const char last : {'\0', '\xff', 'x'}) {
      std::string value(size, 'v');
      if (size > 0) value.back() = last;
      ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, "k", value.data(), static_cast<int>(size)), 0);
      EXPECT_EQ(Walk("tb_line"), (Records{{Text("k"), value}})) << size;
    }
  }
}

TEST_F(RecordsOf, ThePhoneBook_LargeOnesUnderANameAndUnderABareKey_AreReadWhole) {
  Open();
  const std::string value(1000, 'v');
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", value.c_str()), 0);
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "Bob 1", value.data(), 1000), 0);
  EXPECT_EQ(Walk("tb_pb"), (Records{{Text("Bob 1"), value}, {Text("Bob 1\00026201"), value + '\0'}}));
}

TEST_F(RecordsOf, KeysOfTheLargestSize_AreRead) {
  Open();
  const std::string name(254, 'k');
  for (const char *table : {"tb_line", "tb_dm"}) {
    struct __db *db = FindTable(table)->Handle();
    ASSERT_EQ(BerkDb_Set(db, name.c_str(), "1"), 0);
    ASSERT_EQ(BerkDb_Set(db, "a", "2"), 0);
    EXPECT_EQ(Walk(table).size(), 2U);
  }
}

TEST_F(RecordsOf, ATableWithALongerKey_FailsAndSaysSo) {
  Open();
  for (const std::size_t size : {255UL, 256UL, 300UL}) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, std::string(size, 'k').c_str(), "1"), 0);
    CapturedOutput err(stderr);
    TableWalk walk(*FindTable("tb_line"), "");
    EXPECT_EQ(walk.Next(), Answer::kFailed);
    EXPECT_THAT(err.Take(), ::testing::EndsWith("\": a key at this place or behind is too long to be read\n"));
    ASSERT_EQ(BerkDb_Del(g_uDb.tb_line, std::string(size, 'k').c_str()), 0);
  }
}

TEST_F(RecordsOf, ATableWithALongerKeyBehindOthers_FailBehindThem) {
  for (const char *table : {"tb_line", "tb_dm"}) {
    Open();
    struct __db *db = FindTable(table)->Handle();
    ASSERT_EQ(BerkDb_Set(db, "k", "1"), 0);
    ASSERT_EQ(BerkDb_Set(db, std::string(255, table[3] == 'd' ? 'a' : 'z').c_str(), "1"), 0);
    CapturedOutput err(stderr);
    TableWalk walk(*FindTable(table), "");
    EXPECT_EQ(walk.Next(), Answer::kYes);
    EXPECT_EQ(walk.Next(), Answer::kFailed);
    EXPECT_THAT(err.Take(), ::testing::HasSubstr("is too long to be read\n"));
    BerkDb_Close();
  }
}

TEST_F(RecordsOf, ALargeValueThatChangesMeanwhile_IsReadWhole) {
  Event begun;
  Event enough;
  Child writer([&] {
    Open();
    for (int i = 0; !enough.TryWait(); ++i) {
      const std::string value(static_cast<std::size_t>(i % 7) * 300 + 1, static_cast<char>('a' + i % 26));
      if (BerkDb_Put(g_uDb.tb_line, "k", value.data(), static_cast<int>(value.size())) != 0) return 1;
      if (i == 0) begun.Announce();
    }
    BerkDb_Close();
    return 0;
  });
  begun.Wait();
  Open();
  for (int i = 0; i < 300; ++i) {
    Bytes value;
    CapturedOutput err(stderr);  // a reader that is always overtaken says so
    if (ReadValue(*FindTable("tb_line"), Text("k"), value) != Answer::kYes) continue;
    EXPECT_EQ(value.Size() % 300, 1U);
    EXPECT_EQ(value.View().find_first_not_of(value.View().front()), std::string_view::npos);
  }
  enough.Announce();
  EXPECT_EQ(writer.Wait(), 0);
}

TEST_F(RecordsOf, APrefix_AreThoseThatBeginWithIt) {
  Open();
  for (const char *key : {"a", "ab", "abc", "b", ""}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, key, "1"), 0);
  EXPECT_EQ(Walk("tb_line", "ab").size(), 2U);
  EXPECT_EQ(Walk("tb_line", "c").size(), 0U);
  EXPECT_EQ(Walk("tb_line", "").size(), 5U);
  EXPECT_EQ(Walk("tb_line", std::string(300, 'a')).size(), 0U);
}

TEST_F(RecordsOf, TheTableThatRunsDown_ComeDownwards) {
  Open();
  for (const char *key : {"", "\x01", "a", "a\x01", "a\x01z", "ab", "a\xff", "b"}) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key, "1"), 0);
  }
  Records expected;
  for (const std::string key : {"b", "a\xff", "ab", "a\x01z", "a\x01", "a", "\x01", ""}) {
    expected.emplace_back(key + '\0', Text("1"));
  }
  EXPECT_EQ(Walk("tb_dm"), expected);
  EXPECT_EQ(Walk("tb_dm", "a").size(), 5U);
  EXPECT_EQ(Walk("tb_dm", "a\x01").size(), 2U);
}

TEST_F(RecordsOf, TheTableThatRunsDown_WithoutTerminators_AreFound) {
  for (const std::string key : {"b", "a\xff\xff", "ab", "a"}) Plant("tb_dm", key, "1");
  Open();
  EXPECT_EQ(Walk("tb_dm"), (Records{{"b", "1"}, {"a\xff\xff", "1"}, {"ab", "1"}, {"a", "1"}}));
}

TEST_F(RecordsOf, AMissingKey_AreNone) {
  Open();
  Bytes value;
  EXPECT_EQ(ReadValue(*FindTable("tb_line"), Text("none"), value), Answer::kNo);
  EXPECT_EQ(ReadValue(*FindTable("tb_line"), std::string(1000, 'k'), value), Answer::kNo);
}

TEST_F(RecordsOf, AWalk_GoOnWhenTheLastOneIsDeleted) {
  Open();
  for (const char *key : {"a", "b", "c"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, key, "1"), 0);
  TableWalk walk(*FindTable("tb_line"), "");
  ASSERT_EQ(walk.Next(), Answer::kYes);
  ASSERT_EQ(BerkDb_Del(g_uDb.tb_line, "a"), 0);
  ASSERT_EQ(BerkDb_Del(g_uDb.tb_line, "b"), 0);
  ASSERT_EQ(walk.Next(), Answer::kYes);
  EXPECT_EQ(walk.Key(), Text("c"));
  EXPECT_EQ(walk.Next(), Answer::kNo);
}

TEST_F(RecordsOf, RandomTables_AreWhatADumpFromOutsideSees) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedHint(seed));
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  Open();
  constexpr std::string_view kLetters = "ab\x01\x7f\x80\xfe\xff";
  for (int i = 0; i < 300; ++i) {
    std::string key(below(5), '\0');
    for (char &c : key) c = kLetters[below(kLetters.size())];
    std::string value(below(below(4) == 0 ? 600 : 4), '\0');
    for (char &c : value) c = kLetters[below(kLetters.size())];
    for (const char *table : {"tb_line", "tb_dm", "tb_pb"}) {
      struct __db *db = FindTable(table)->Handle();
      ASSERT_EQ(BerkDb_Put(db, key.c_str(), value.data(), static_cast<int>(value.size())), 0);
      if (i % 3 != 0) continue;
      ASSERT_EQ(BerkDb_Set(db, key.c_str(), "text"), 0);
    }
  }
  const Records line = Walk("tb_line");
  const Records down = Walk("tb_dm");
  const Records phoneBook = Walk("tb_pb");
  BerkDb_Close();
  EXPECT_EQ(line, Dump("tb_line"));
  EXPECT_EQ(down, Dump("tb_dm"));
  EXPECT_EQ(phoneBook, Dump("tb_pb"));
  EXPECT_GT(line.size(), 100U);
}

}  // namespace
