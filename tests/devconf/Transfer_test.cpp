// SPDX-License-Identifier: MIT
// Export and import: nothing is lost, nothing is half done.

#include <gmock/gmock.h>

#include <csignal>

#include "tests/devconf/Shell.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;

const std::string kPrimaries[] = {"tb_parameter", "tb_dm",   "tb_pb",    "tb_speedd", "tb_dialp",
                                  "tb_fkey",      "tb_line", "tb_siptk", "tb_route",  "tb_tone"};

class Transfer : public DevconfTest {
 protected:
  std::string Import(const std::string &text, const Words &options = {}) const {
    Words words{"import", File(text)};
    words.insert(words.end(), options.begin(), options.end());
    return Print(words);
  }

  void Fill() {
    Open();
    for (const TDbTbl &row : g_auDbTbl) {
      if (row.pName[0] == 's') continue;
      ASSERT_EQ(BerkDb_Set(*row.ppDb, "101 Bob", "1;x"), 0);
      ASSERT_EQ(BerkDb_Set(*row.ppDb, "J\xc3\xbcrgen \"q\"", "\\ \xe2\x82\xac"), 0);
      ASSERT_EQ(BerkDb_Set(*row.ppDb, "latin\xfc", "\xfc"), 0);
      ASSERT_EQ(BerkDb_Put(*row.ppDb, "bytes", "\0\x01\xff\0", 4), 0);
      ASSERT_EQ(BerkDb_Put(*row.ppDb, "no terminator", "text", 4), 0);
      ASSERT_EQ(BerkDb_Put(*row.ppDb, "nothing", "", 0), 0);
      ASSERT_EQ(BerkDb_Set(*row.ppDb, "", "empty key"), 0);
      ASSERT_EQ(BerkDb_Set(*row.ppDb, "large", std::string(3000, 'l').c_str()), 0);
    }
    BerkDb_Close();
  }

  std::vector<Records> DumpAll() const {
    std::vector<Records> dumps;
    for (const std::string &table : kPrimaries) dumps.push_back(Dump(table));
    return dumps;
  }

  /// Expects that the import of a text is refused and changes nothing.
  void ExpectRefusal(const std::string &text, const std::string &message) {
    const std::string before = FileText(FilePath());
    const std::string path = File(text);
    const CommandResult result = Run({"import", "--replace", path});
    SCOPED_TRACE(text.substr(0, 200));
    EXPECT_EQ(result.status, kRefused);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "devconf: " + path + message + "\n");
    EXPECT_TRUE(FileText(FilePath()) == before);
  }
};

TEST_F(Transfer, Export_HasALineForEachTableAndForEachRecord) {
  Init();
  Print({"set", "a", "1"});
  const std::vector<std::string> lines = Lines(Print({"export"}));
  ASSERT_EQ(lines.size(), 11U);
  EXPECT_EQ(lines[0], R"({"table":"tb_parameter"})");
  EXPECT_EQ(lines[1], R"({"table":"tb_parameter","key":"a","value":"1"})");
  EXPECT_EQ(lines[10], R"({"table":"tb_tone"})");
}

TEST_F(Transfer, Export_OfOneTable_HasOnlyThat) {
  Init();
  Print({"pb", "add", "Bob", "1"});
  EXPECT_EQ(Print({"export", "tb_pb"}),
            "{\"table\":\"tb_pb\"}\n{\"table\":\"tb_pb\",\"key\":\"Bob\",\"value\":\"1\"}\n");
}

TEST_F(Transfer, Export_OfAnIndex_Is2AndNamesItsTable) {
  Init();
  EXPECT_EQ(
      Run({"export", "stb_pb"}),
      (CommandResult{kMistake, "", "devconf: an index has no records of its own; export its table, \"tb_pb\"\n"}));
}

TEST_F(Transfer, Export_OfBytes_NamesTheForm) {
  Fill();
  EXPECT_THAT(Lines(Print({"export", "tb_pb"})),
              ::testing::IsSupersetOf(
                  {R"({"table":"tb_pb","key":"101 Bob","value":"1;x"})",
                   "{\"table\":\"tb_pb\",\"key\":\"J\xc3\xbcrgen \\\"q\\\"\",\"value\":\"\\\\ \xe2\x82\xac\"}",
                   R"({"table":"tb_pb","key_bytes":"latin\u00fc\u000052846\u0000","value_bytes":"\u00fc\u0000"})",
                   R"({"table":"tb_pb","key_bytes":"bytes\u0000","value_bytes":"\u0000\u0001\u00ff\u0000"})",
                   R"({"table":"tb_pb","key_bytes":"nothing\u0000","value_bytes":""})"}));
}

TEST_F(Transfer, RoundTrip_KeepsEveryByteOfEveryTable) {
  Fill();
  const std::string exported = Print({"export"});
  const std::vector<Records> before = DumpAll();
  EXPECT_EQ(Import(exported, {"--replace"}), "0 added, 0 changed, 80 unchanged, 0 deleted\n");

  for (const char *name : {"config.db", "open.lock", "__db.001"}) std::filesystem::remove(home_ + "/" + name);
  for (int i = 1; i < 10; ++i) std::filesystem::remove(home_ + "/log.000000000" + std::to_string(i));
  Init();
  EXPECT_EQ(Import(exported), "80 added, 0 changed, 0 unchanged, 0 deleted\n");
  EXPECT_EQ(DumpAll(), before);
  EXPECT_EQ(Print({"export"}), exported);
  ExpectSoundFile();
}

TEST_F(Transfer, Merge_AddsAndOverwritesAndKeeps) {
  Init();
  Print({"set", "a", "1"});
  Print({"set", "b", "2"});
  EXPECT_EQ(Import(R"({"table":"tb_parameter","key":"b","value":"3"}
{"table":"tb_parameter","key":"c","value":"4"}
{"table":"tb_line"})"),
            "1 added, 1 changed, 0 unchanged, 0 deleted\n");
  EXPECT_EQ(Print({"list"}), "a\t1\nb\t3\nc\t4\n");
}

TEST_F(Transfer, Replace_MakesTheTablesOfTheFileHoldWhatItHas) {
  Init();
  Print({"set", "a", "1"});
  Print({"set", "b", "2"});
  Print({"pb", "add", "Ann", "1"});
  Print({"pb", "add", "Bob", "2"});
  Import(R"({"table":"tb_line","key":"x","value":"y"})");
  EXPECT_EQ(Import(R"({"table":"tb_parameter","key":"b","value":"3"}
{"table":"tb_pb","key":"Bob","value":"2"})",
                   {"--replace", "--json"}),
            "{\"added\":0,\"changed\":1,\"unchanged\":1,\"deleted\":2}\n");
  EXPECT_EQ(Print({"list"}), "b\t3\n");
  EXPECT_EQ(Print({"list", "tb_pb"}), "Bob\t2\n");
  EXPECT_EQ(Print({"list", "tb_line"}), "x\ty\n");
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Transfer, Replace_WithALineThatNamesATableOnly_EmptiesIt) {
  Init();
  Print({"set", "a", "1"});
  EXPECT_EQ(Import(R"({"table":"tb_parameter"})", {"--replace"}), "0 added, 0 changed, 0 unchanged, 1 deleted\n");
  EXPECT_EQ(Print({"list"}), "");
}

TEST_F(Transfer, KeysThatTheLibraryDoesNotMake_AreStoredAndDeleted) {
  Init();
  Plant("tb_line", "raw", "1");
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "raw", "1", 1), 0);
  BerkDb_Close();
  const std::string exported = Print({"export"});
  const std::vector<Records> before = DumpAll();
  EXPECT_EQ(Import("{\"table\":\"tb_pb\"}\n{\"table\":\"tb_line\"}", {"--replace"}),
            "0 added, 0 changed, 0 unchanged, 2 deleted\n");
  EXPECT_EQ(Dump("tb_pb").size() + Dump("tb_line").size(), 0U);
  EXPECT_EQ(Import(exported), "2 added, 0 changed, 0 unchanged, 0 deleted\n");
  EXPECT_EQ(DumpAll(), before);
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Transfer, Import_ReadsStandardInputAndBlankLinesAndCarriageReturns) {
  Init();
  const CommandResult result =
      Command({"sh", "-c",
               "printf '\\n{\"key\":\"\\\\u0061\",\"value\":\"1\",\"table\":\"tb_line\"}\\r\\n \\n' | "
               "\"$0\" --home \"$1\" import -",
               DEVCONF_PATH, home_})
          .Run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(Print({"list", "tb_line"}), "a\t1\n");
}

TEST_F(Transfer, Import_OfAnEmptyFile_DoesNothing) {
  Init();
  EXPECT_EQ(Import("", {"--replace"}), "0 added, 0 changed, 0 unchanged, 0 deleted\n");
}

TEST_F(Transfer, Import_OfAFileThatIsNotThere_Is5AndNamesIt) {
  Init();
  const CommandResult result = Run({"import", "/no/such"});
  EXPECT_EQ(result.status, kRefused);
  EXPECT_EQ(result.err, "devconf: No such file or directory \"/no/such\"\n");
}

TEST_F(Transfer, AFileWithAMistake_IsRefusedWithItsLineAndChangesNothing) {
  Fill();
  const std::string good = R"({"table":"tb_line","key":"new","value":"1"})"
                           "\n\n";
  const std::pair<std::string, std::string> mistakes[] = {
      {"x", "no '{' at the start"},
      {R"({"table":"tb_line","key":"a","value":1})",
       "a member's value is no string, or its closing quote is missing"},
      {R"({"table":"tb_line","key":"a","value":"1"}{)", "something after the closing '}'"},
      {R"({})", "no table"},
      {R"({"key":"a","value":"1"})", "no table"},
      {R"({"table":"tb_x","key":"a","value":"1"})", "unknown table"},
      {R"({"table":"stb_pb","key":"a","value":"1"})",
       "the table is an index, which follows the records of its table by itself"},
      {R"({"table":"tb_line","key":"a"})", "a key without a value"},
      {R"({"table":"tb_line","value":"a"})", "a value without a key"},
      {R"({"table":"tb_line","key":"a","kind":"1"})",
       "a member other than table, key, key_bytes, value and value_bytes"},
      {R"({"table":"tb_line","key":"a","key_bytes":"1"})", "a member that is there twice, or in both forms"},
      {R"({"table":"tb_line","key":"a","value":"\q"})", "unknown escape"},
      {R"({"table":"tb_line","key":"a\u0000","value":"1"})", "a NUL in a text"},
      {"{\"table\":\"tb_line\",\"key\":\"a\",\"value\":\"\xff\"}", "not UTF-8"},
      {R"({"table":"tb_line","key":"a","value_bytes":"\u0100"})", "a character above U+00FF in bytes"},
  };
  for (const auto &[line, message] : mistakes) ExpectRefusal(good + line, ":3: " + message);
}

TEST_F(Transfer, ARecordThatIsThereTwice_IsRefusedAtTheSecond) {
  Fill();
  const std::string a = R"({"table":"tb_pb","key":"a","value":"1"})";
  const std::string b = R"({"table":"tb_line","key":"a","value":"1"})";
  const std::string sameInBytes = R"({"table":"tb_pb","key_bytes":"a\u00002\u0000","value":"2"})";
  ExpectRefusal(a + "\n" + b + "\n" + a + "\n", ":3: the record is in the file twice");
  ExpectRefusal(a + "\n" + b + "\n" + sameInBytes + "\n", ":3: the record is in the file twice");
  EXPECT_EQ(Import(a + "\n" + b + "\n" + R"({"table":"tb_pb","key_bytes":"a\u0000","value":"2"})"),
            "3 added, 0 changed, 0 unchanged, 0 deleted\n");
}

TEST_F(Transfer, KeysAndValuesThatAreFarTooLong_AreRefused) {
  Init();
  const std::string large(std::size_t{16} << 20U, 'x');
  ExpectRefusal(R"({"table":"tb_line","key":")" + large + R"(","value":"1"})", ":1: the key is too long");
  ExpectRefusal(R"({"table":"tb_line","key":"a","value":")" + large + R"("})", ":1: the value is too long");
}

TEST_F(Transfer, KeysAndValuesOfManySizes_AreStored) {
  Init();
  EXPECT_EQ(
      Import(R"({"table":"tb_line","key":")" + std::string(254, 'k') + R"(","value":")" + std::string(65535, 'v') +
             "\"}\n" + R"({"table":"tb_pb","key":")" + std::string(126, 'k') + R"(","value":"1"})"),
      "2 added, 0 changed, 0 unchanged, 0 deleted\n");
}

TEST_F(Transfer, RoundTrip_OfKeysLongerThanTheStoresOwnBuffers_KeepsThem) {
  Open();
  for (const std::size_t size : {254UL, 255UL, 256UL, 300UL, 3000UL}) {
    for (struct __db *db : {g_uDb.tb_line, g_uDb.tb_dm, g_uDb.tb_pb, g_uDb.tb_route}) {
      ASSERT_EQ(BerkDb_Set(db, std::string(size, 'k').c_str(), "1"), 0);
      ASSERT_EQ(BerkDb_Set(db, (std::string(size, 'k') + "a").c_str(), "2"), 0);
    }
  }
  BerkDb_Close();
  const std::string exported = Print({"export"});
  EXPECT_EQ(Lines(exported).size(), 10U + 40U);
  const std::vector<Records> before = DumpAll();
  EXPECT_EQ(Import(R"({"table":"tb_line"}
{"table":"tb_dm"}
{"table":"tb_pb"}
{"table":"tb_route"})",
                   {"--replace"}),
            "0 added, 0 changed, 0 unchanged, 40 deleted\n");
  EXPECT_EQ(Import(exported), "40 added, 0 changed, 0 unchanged, 0 deleted\n");
  EXPECT_EQ(DumpAll(), before);
}

TEST_F(Transfer, TwoImportsAtOnce_BothStoreEverything) {
  Init();
  std::vector<std::string> paths;
  for (const std::string name : {"a", "b"}) {
    std::string text;
    for (int i = 0; i < 100; ++i) {
      text += R"({"table":"tb_pb","key":")" + name + std::to_string(i) + R"(","value":"1;x"})" + "\n";
    }
    paths.push_back(home_ + "/" + name);
    WriteFile(paths.back(), text);
  }
  const CommandResult result =
      Command({"sh", "-c", "\"$0\" --home \"$1\" import \"$2\" & \"$0\" --home \"$1\" import \"$3\" && wait $!",
               DEVCONF_PATH, home_, paths[0], paths[1]})
          .Run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(Lines(Print({"list", "tb_pb"})).size(), 200U);
  EXPECT_TRUE(IndexesAgree());
}

}  // namespace
