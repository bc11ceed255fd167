// SPDX-License-Identifier: MIT
// devconf pb, tables, list and find: searches in the tables and their indexes.

#include <string>
#include <vector>

#include "tests/devconf/Shell.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;

class PhoneBook : public DevconfTest {};
class Lookup : public DevconfTest {};

TEST_F(PhoneBook, IsFoundByDigitsInTheOrderOfTheIndex) {
  Init();
  Print({"pb", "add", "Bob 1", "123;x"});
  Print({"pb", "add", "Anna", "555"});
  Print({"pb", "add", "Bob-2", "123"});
  EXPECT_EQ(Print({"pb", "find", "26"}), "262\tBob-2\t123\n26201\tBob 1\t123;x\n2662\tAnna\t555\n");
  EXPECT_EQ(Print({"pb", "find", "2620"}), "26201\tBob 1\t123;x\n");
  EXPECT_EQ(
      Print({"--json", "pb", "find", "2662"}),
      "{\"table\":\"tb_pb\",\"key\":\"Anna\",\"value\":\"555\",\"index\":\"stb_1_pb\",\"index_key\":\"2662\"}\n");
  Expect({"pb", "find", "9"}, kNothingFound, "", "devconf: stb_1_pb \"9\": no such entry\n");
}

TEST_F(PhoneBook, EntriesTooLargeForTheSearchOfTheIndex_AreFound) {
  Init();
  const std::string large(1000, 'x');
  Print({"pb", "add", "Ann", "1"});
  Print({"pb", "add", "Bartholomew Longname Jones", "2"});
  Print({"pb", "add", "Bo", large});
  Print({"pb", "add", "Cod", "3"});
  EXPECT_EQ(Print({"pb", "find", "2"}), "22784656639056646263056637\tBartholomew Longname Jones\t2\n26\tBo\t" +
                                            large + "\n263\tCod\t3\n266\tAnn\t1\n");
}

TEST_F(PhoneBook, MoreEntriesThanOneSearchHolds_AreFound) {
  Open();
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, ("Bob " + std::to_string(i)).c_str(), "1"), 0);
  }
  BerkDb_Close();
  EXPECT_EQ(Lines(Print({"pb", "find", "262"})).size(), 200U);
}

TEST_F(PhoneBook, AnEntry_IsReplacedAndDeleted) {
  Init();
  Print({"pb", "set", "Bob 1", "123;x"});
  Print({"pb", "set", "Bob 1", "456"});
  EXPECT_EQ(Print({"list", "tb_pb"}), "Bob 1\t456\n");
  EXPECT_EQ(Run({"pb", "number", "123"}).status, kNothingFound);
  EXPECT_EQ(Print({"pb", "del", "Bob 1"}), "");
  EXPECT_EQ(Print({"list", "stb_pb"}), "");
  Expect({"pb", "del", "Bob 1"}, kNothingFound, "", "devconf: tb_pb \"Bob 1\": no such record\n");
}

TEST_F(PhoneBook, WhatIsNoDigits_Is2) {
  Init();
  for (const char *word : {"", "2a", "Bob"}) {
    EXPECT_EQ(Run({"pb", "find", word}).status, kMistake) << word;
  }
}

TEST_F(PhoneBook, IsFoundByNumber_AllOfThem) {
  Init();
  Print({"pb", "add", "Bob", "123;x"});
  Print({"pb", "add", "Bea", "123;y"});
  Print({"pb", "add", "Ann", "123"});
  Print({"pb", "add", "Eve", "1234"});
  EXPECT_EQ(Print({"pb", "number", "123"}), "123\tAnn\t123\n123\tBea\t123;y\n123\tBob\t123;x\n");
  Expect({"pb", "number", "12"}, kNothingFound, "", "devconf: stb_pb \"12\": no such entry\n");
}

TEST_F(PhoneBook, ABareKeyWithoutDigits_IsFoundByNumber) {
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "raw", "99", 2), 0);
  BerkDb_Close();
  EXPECT_EQ(Print({"pb", "number", "99"}), "99\traw\\x00\\c\t99\\c\n");
  EXPECT_EQ(
      Print({"pb", "number", "99", "--json"}),
      "{\"table\":\"tb_pb\",\"key_bytes\":\"raw\\u0000\",\"value_bytes\":\"99\",\"index\":\"stb_pb\",\"index_key\":"
      "\"99\"}\n");
}

TEST_F(Lookup, Tables_AreTheCatalogue) {
  Init();
  Print({"set", "a", "1"});
  Print({"pb", "add", "Bob", "1"});
  const std::vector<std::string> lines = Lines(Print({"tables"}));
  ASSERT_EQ(lines.size(), 14U);
  EXPECT_EQ(lines[0], "TABLE          RECORDS  INDEX OF   ROLE");
  EXPECT_EQ(lines[1], "tb_parameter         1  -          named settings");
  EXPECT_EQ(lines[4], "stb_pb               1  tb_pb      phone book, by number");
  EXPECT_EQ(lines[12], "stb_route            0  tb_route   routes, by the first three bytes of the key");
}

TEST_F(Lookup, Tables_AsJson_AreOneObjectEach) {
  Init();
  const std::vector<std::string> lines = Lines(Print({"tables", "-j"}));
  ASSERT_EQ(lines.size(), 13U);
  EXPECT_EQ(lines[0], R"({"table":"tb_parameter","role":"named settings","records":0,"index_of":null})");
  EXPECT_EQ(lines[3], R"({"table":"stb_pb","role":"phone book, by number","records":0,"index_of":"tb_pb"})");
}

TEST_F(Lookup, List_IsTheSettingsUnlessToldOtherwise) {
  Init();
  EXPECT_EQ(Print({"list"}), "");
  Print({"set", "b", "2"});
  Print({"set", "a", "1\t"});
  EXPECT_EQ(Print({"list"}), "a\t1\\t\nb\t2\n");
  EXPECT_EQ(Print({"list", "tb_parameter", "b"}), "b\t2\n");
  EXPECT_EQ(Print({"list", "--json", "tb_parameter", "b"}),
            "{\"table\":\"tb_parameter\",\"key\":\"b\",\"value\":\"2\"}\n");
  EXPECT_EQ(Print({"list", "tb_line"}), "");
}

TEST_F(Lookup, List_OfThePhoneBook_ShowsTheNames) {
  Init();
  Print({"pb", "add", "Bob", "1"});
  EXPECT_EQ(Print({"list", "tb_pb"}), "Bob\t1\n");
  EXPECT_EQ(Print({"list", "stb_1_pb"}), "262\tBob\t1\n");
  EXPECT_EQ(Print({"list", "stb_pb", "2"}), "");
}

TEST_F(Lookup, Find_SaysWhetherThereWereAny) {
  Open();
  for (const char *key : {"101a", "101b", "102", "1"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, key, "r"), 0);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "aa", "1"), 0);
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, "ab", "2"), 0);
  BerkDb_Close();
  EXPECT_EQ(Print({"find", "tb_route", "101"}), "101a\tr\n101b\tr\n");
  EXPECT_EQ(Print({"find", "stb_route", "10"}), "101\t101a\tr\n101\t101b\tr\n102\t102\tr\n");
  EXPECT_EQ(Print({"find", "tb_dm", "a"}), "ab\t2\naa\t1\n");
  Expect({"find", "tb_route", "2"}, kNothingFound, "", "devconf: tb_route \"2\": nothing begins like this\n");
}

}  // namespace
