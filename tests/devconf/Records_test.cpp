// SPDX-License-Identifier: MIT
// Reading records whole, with the library's own operations: any bytes, any size, in every table's order.

#include "tools/devconf/Records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"
#include "tests/support/TestSeed.h"
#include "tools/devconf/Store.h"

namespace {

using namespace devsupport::test;
using devconf::Answer;
using devconf::FindTable;
using devconf::kCatalogue;
using devconf::ReadValue;
using devconf::Table;
using devconf::TableWalk;
using devconf::TextOf;

class RecordsOf : public devconf_test::DevconfTest {
 protected:
  static Records Walk(const char *table, const std::string &prefix = "") {
    Records records;
    TableWalk walk(*FindTable(table), prefix);
    Answer answer = Answer::Failed;
    while ((answer = walk.Next()) == Answer::Yes) {
      records.emplace_back(walk.Key(), walk.Value());
      if (records.size() > 100000) break;
    }
    EXPECT_EQ(answer, Answer::No);
    return records;
  }
};

TEST_F(RecordsOf, TheCatalogue_IsTheLibrarys) {
  for (int i = 0; i < BERKDB_TABLES; ++i) EXPECT_STREQ(kCatalogue[i].Name(), g_auDbTbl[i].pName);
}

TEST_F(RecordsOf, AnEmptyTable_AreNone) {
  Open();
  for (const Table &table : kCatalogue) {
    if (table.IsIndex()) continue;
    EXPECT_TRUE(Walk(table.Name()).empty()) << table.Name();
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

TEST_F(RecordsOf, KeysOfEverySizeAroundTheBuffers_AreRead) {
  for (const char *table : {"tb_line", "tb_dm", "tb_pb"}) {
    Records expected;
    Open();
    struct __db *db = devconf::HandleOf(*FindTable(table));
    for (const std::size_t size : {1UL, 254UL, 255UL, 256UL, 300UL, 511UL, 5000UL}) {
      ASSERT_EQ(BerkDb_Put(db, std::string(size, 'k').c_str(), "1", 1), 0);
      expected.emplace_back(std::string(size, 'k') + '\0', "1");
    }
    if (std::string_view(table) == "tb_dm") std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(Walk(table), expected);
    for (const auto &[key, data] : expected) {
      devconf::GrownBytes value;
      EXPECT_EQ(ReadValue(*FindTable(table), key, value), Answer::Yes);
      EXPECT_EQ(value.View(), data);
    }
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
    devconf::GrownBytes value;
    ASSERT_EQ(ReadValue(*FindTable("tb_line"), Text("k"), value), Answer::Yes);
    EXPECT_EQ(value.View().size() % 300, 1U);
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
  devconf::GrownBytes value;
  EXPECT_EQ(ReadValue(*FindTable("tb_line"), Text("none"), value), Answer::No);
  EXPECT_EQ(ReadValue(*FindTable("tb_line"), std::string(1000, 'k'), value), Answer::No);
}

TEST_F(RecordsOf, MoreThanOneBatch_AreReadOnceEach) {
  Open();
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, std::to_string(i).c_str(), "7", 1), 0);
  for (const char *table : {"tb_pb", "stb_pb"}) {
    const Records records = Walk(table);
    EXPECT_EQ(records.size(), 1000U);
    EXPECT_TRUE(std::is_sorted(records.begin(), records.end()));
    EXPECT_EQ(std::adjacent_find(records.begin(), records.end()), records.end());
  }
}

TEST_F(RecordsOf, AWalkOverSeveralBatches_GoOnWhenWhatWasReadIsDeleted) {
  Open();
  const std::pair<const char *, struct __db *> tables[] = {
      {"tb_line", g_uDb.tb_line}, {"tb_dm", g_uDb.tb_dm}, {"stb_pb", g_uDb.tb_pb}, {"stb_route", g_uDb.tb_route}};
  for (const auto &[name, db] : tables) {
    std::set<std::string> left;
    for (int i = 0; i < 1000; ++i) {
      left.insert(std::to_string(10000 + i));
      ASSERT_EQ(BerkDb_Set(db, std::to_string(10000 + i).c_str(), "7"), 0);
    }
    TableWalk walk(*FindTable(name), "");
    std::vector<std::string> read;
    const auto step = [&] {
      if (walk.Next() != Answer::Yes) return false;
      read.emplace_back(TextOf(walk.Key()));
      EXPECT_EQ(left.erase(read.back()), 1U) << name << " " << read.back();
      return true;
    };
    while (read.size() < 500) ASSERT_TRUE(step());
    for (const std::string &key : read) ASSERT_EQ(BerkDb_Del(db, key.c_str()), 0);
    while (step()) continue;
    EXPECT_TRUE(left.empty()) << name << " " << left.size();
  }
}

TEST_F(RecordsOf, AWalk_GoOnWhenTheLastOneIsDeleted) {
  Open();
  const std::string large(20000, 'v');  // fills a batch
  for (const char *key : {"a", "b", "c"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_line, key, large.c_str()), 0);
  TableWalk walk(*FindTable("tb_line"), "");
  ASSERT_EQ(walk.Next(), Answer::Yes);
  ASSERT_EQ(BerkDb_Del(g_uDb.tb_line, "a"), 0);
  ASSERT_EQ(BerkDb_Del(g_uDb.tb_line, "b"), 0);
  ASSERT_EQ(walk.Next(), Answer::Yes);
  EXPECT_EQ(walk.Key(), Text("c"));
  EXPECT_EQ(walk.Next(), Answer::No);
}

TEST_F(RecordsOf, AnIndex_LeadToTheirRecords) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), 0);
  TableWalk walk(*FindTable("stb_1_pb"), "26");
  ASSERT_EQ(walk.Next(), Answer::Yes);
  EXPECT_EQ(walk.Current().indexKey, Text("26201"));
  EXPECT_EQ(walk.Key(), Text("Bob 1\00026201"));
  EXPECT_EQ(walk.Value(), Text("123;x"));
  EXPECT_EQ(walk.Next(), Answer::No);
}

TEST_F(RecordsOf, RandomTables_AreWhatADumpFromOutsideSees) {
  const TestSeed seed;
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
      struct __db *db = devconf::HandleOf(*FindTable(table));
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
