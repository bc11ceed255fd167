// SPDX-License-Identifier: MIT
// The real devconf on real stores: every command, what it prints, how it ends.

#include <gmock/gmock.h>

#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "db/for_project/StoreGate.h"
#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class Shell : public devconf_test::DevconfTest {
 protected:
  void Expect(const devconf_test::Words &words, int status, const std::string &out, const std::string &err) const {
    const CommandResult result = Run(words);
    SCOPED_TRACE(::testing::PrintToString(words));
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, err);
  }
};

// The program itself.

TEST_F(Shell, Help_GoesToStandardOutput) {
  const std::string help = Print({"--help"});
  EXPECT_THAT(help, StartsWith("Usage: devconf [OPTIONS] COMMAND\n"));
  EXPECT_THAT(help, HasSubstr("Exit status: 0 done;"));
}

TEST_F(Shell, Version_IsOneLine) { EXPECT_THAT(Print({"--version"}), ::testing::MatchesRegex("devconf [0-9.]+\n")); }

TEST_F(Shell, AMistakenCommandLine_Is2AndSaysSo) {
  Expect({"put"}, kMistake, "", "devconf: unknown command \"put\"\ndevconf --help lists the commands.\n");
  Expect({"set", "a"}, kMistake, "", "devconf: missing argument after \"set\"\ndevconf --help lists the commands.\n");
}

TEST_F(Shell, AnUnknownTable_Is2AndOpensNothing) {
  for (const char *command : {"list", "export"}) {
    Expect({command, "tb_x\x1b"}, kMistake, "", "devconf: unknown table \"tb_x\\x1b\"\n");
  }
  Expect({"find", "tb_x", ""}, kMistake, "", "devconf: unknown table \"tb_x\"\n");
  EXPECT_TRUE(std::filesystem::is_empty(home_));
}

TEST_F(Shell, OutputThatCannotBeWritten_Is4AndSaysSo) {
  Init();
  const CommandResult result = Devconf({"tables"}).OutputTo("/dev/full").Run();
  EXPECT_EQ(result.status, kFailed);
  EXPECT_EQ(result.err, "devconf: standard output: No space left on device\n");
}

TEST_F(Shell, WithoutAStandardOutput_Is4AndPrintsNothingIntoTheDatabase) {
  Init();
  Print({"set", "a", "1"});
  const CommandResult result = Devconf({"list"}).CloseOutput().Run();
  EXPECT_EQ(result.status, kFailed);
  EXPECT_EQ(result.err, "devconf: standard output: Bad file descriptor\n");
  EXPECT_EQ(Print({"verify"}), "clean\n");
  EXPECT_EQ(Print({"list"}), "a\t1\n");
}

// No database.

TEST_F(Shell, WithoutADatabase_EveryCommandIs3AndMakesNothing) {
  const std::string message = "devconf: no database (devconf init makes one) \"" + FilePath() + "\"\n";
  TempDir elsewhere;
  const std::string file = elsewhere / "import";
  WriteFile(file, "{\"table\":\"tb_line\"}\n");
  const std::vector<devconf_test::Words> commands = {{"get", "a"},        {"set", "a", "b"},
                                                     {"del", "a"},        {"list"},
                                                     {"tables"},          {"find", "tb_pb", ""},
                                                     {"pb", "find", "1"}, {"pb", "add", "a", "b"},
                                                     {"export"},          {"verify"},
                                                     {"import", file},    {"pb", "number", "1"}};
  for (const devconf_test::Words &words : commands) {
    Expect(words, kNoDatabase, "", message);
    EXPECT_TRUE(std::filesystem::is_empty(home_)) << words[0];
  }
}

TEST_F(Shell, AHomeThatIsNotThere_Is3AndMakesNothing) {
  const CommandResult result = Command({DEVCONF_PATH, "--home", home_ + "/none", "tables"}).Run();
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.err, "devconf: no database (devconf init makes one) \"" + home_ + "/none/config.db\"\n");
  EXPECT_TRUE(std::filesystem::is_empty(home_));
}

TEST_F(Shell, AFileThatIsNoDatabase_Is3AndStaysAsItIs) {
  const std::string text(10000, 'x');
  WriteFile(FilePath(), text);
  const CommandResult result = Run({"tables"});
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, EndsWith("devconf: a table cannot be opened \"" + FilePath() + "\"\n"));
  EXPECT_EQ(FileText(FilePath()), text);
}

TEST_F(Shell, Init_MakesHomeAndDatabase) {
  const std::string home = home_ + "/new";
  const CommandResult result = Command({DEVCONF_PATH, "--home", home, "init"}).Run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_TRUE(std::filesystem::exists(home + "/config.db"));
}

TEST_F(Shell, Init_OfADatabaseThatIsThere_ChangesNothing) {
  Init();
  Print({"set", "a", "1"});
  Init();
  EXPECT_EQ(Print({"get", "a"}), "1");
}

TEST_F(Shell, Init_WhereNoFolderCanBeMade_Is3AndSaysSo) {
  const CommandResult result = Command({DEVCONF_PATH, "--home", home_ + "/no/folder", "init"}).Run();
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_EQ(result.err, "devconf: No such file or directory \"" + home_ + "/no/folder\"\n");
}

TEST_F(Shell, AnotherFile_IsAnotherDatabase) {
  EXPECT_EQ(Print({"--file", "other.db", "init"}), "");
  EXPECT_TRUE(std::filesystem::exists(home_ + "/other.db"));
  EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

// Settings.

TEST_F(Shell, Set_StoresWhatTheLibraryReads) {
  Init();
  EXPECT_EQ(Print({"set", "dbl", "a,b;c"}), "");
  EXPECT_EQ(Print({"set", "vlan", "-1"}), "");
  EXPECT_EQ(Print({"get", "vlan"}), "-1");
  EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("dbl"), Text("a,b;c")}, {Text("vlan"), Text("-1")}}));
  Open();
  EXPECT_EQ(Get(g_uDb.tb_parameter, "dbl"), "a,b;c");
}

TEST_F(Shell, Get_AsJson_HasTheSchemaOfAnExport) {
  Init();
  Print({"set", "n\"", "J\xc3\xbcrgen\n"});
  EXPECT_EQ(Print({"get", "n\"", "--json"}),
            "{\"table\":\"tb_parameter\",\"key\":\"n\\\"\",\"value\":\"J\xc3\xbcrgen\\n\"}\n");
}

TEST_F(Shell, Get_IntoAPipe_AreTheBytes) {
  Init();
  const std::string value = "a\x1b[2J\n\xff\xc2\x9b\\ \xc3\xbc\n";
  Print({"set", "n", value});
  EXPECT_EQ(Print({"get", "n"}), value);
  EXPECT_EQ(Print({"get", "--raw", "n"}), value);
}

TEST_F(Shell, Get_OnATerminal_ShowsWhatATerminalWouldObey) {
  Init();
  Print({"set", "n", "a\x1b[2J\xff\xc2\x9b\\ \xc3\xbc"});
  const std::string shown = "a\\x1b[2J\\xff\\xc2\\x9b\\\\ \xc3\xbc\n";
  EXPECT_EQ(Print({"get", "n", "--escape"}), shown);
  const CommandResult result =
      Command({"script", "-qec", std::string(DEVCONF_PATH) + " --home " + home_ + " get n", "/dev/null"}).Run();
  EXPECT_EQ(result.out, shown.substr(0, shown.size() - 1) + "\r\n");
}

TEST_F(Shell, AnyValue_ComesBackFromItsEscape) {
  Init();
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  const std::string values[] = {Text(""), Text("\\x41"),   Text("a\\c"), Text("'\"\n\t\r"),
                                all,      "no terminator", Raw("")};
  for (const std::string &value : values) {
    Plant("tb_parameter", Text("from"), value);
    std::string shown = Print({"get", "from", "--escape"});
    shown.pop_back();
    Print({"set", "--escape", "to", shown});
    EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("from"), value}, {Text("to"), value}})) << shown;
  }
}

TEST_F(Shell, AnEscapeThatIsMistaken_Is2) {
  Init();
  Expect({"set", "--escape", "a", "\\q"}, kMistake, "",
         "devconf: unknown escape (a backslash is written \\\\) \"\\\\q\"\n");
  for (const char *word : {"\\", "\\x4", "\\xg0", "\\cx"}) {
    EXPECT_EQ(Run({"set", "--escape", "a", word}).status, kMistake) << word;
    EXPECT_EQ(Run({"get", "--escape", word}).status, kMistake) << word;
  }
  EXPECT_EQ(Print({"list"}), "");
}

TEST_F(Shell, SetAndGet_ThroughAPipe_KeepEveryByte) {
  Init();
  const std::string value = "-----BEGIN\nline\\n\n\n-----END\n\n";
  Print({"set", "cert", value});
  const CommandResult result =
      Command({"bash", "-c", "\"$0\" --home \"$1\" get cert | \"$0\" --home \"$1\" set copy -", DEVCONF_PATH, home_})
          .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("cert"), value + '\0'}, {Text("copy"), value + '\0'}}));
}

TEST_F(Shell, Set_FromAFile_StoresItsBytes) {
  Init();
  Print({"set", "text", "--from", File("two\nlines\n")});
  Print({"set", "bytes", "--from", File(Raw("a\0\xff"))});
  Print({"pb", "set", "Bob", "--from", File("123;x")});
  EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("bytes"), Raw("a\0\xff")}, {Text("text"), Text("two\nlines\n")}}));
  EXPECT_EQ(Print({"pb", "number", "123"}), "123\tBob\t123;x\n");
  const CommandResult result = Run({"set", "a", "--from", "/no/such"});
  EXPECT_EQ(result.status, kRefused);
  EXPECT_EQ(result.err, "devconf: No such file or directory \"/no/such\"\n");
}

TEST_F(Shell, EveryTable_TakesGetSetAndDel) {
  Init();
  for (const TDbTbl &row : g_auDbTbl) {
    const std::string table = row.pName;
    if (table[0] == 's') continue;
    EXPECT_EQ(Print({"set", "--table", table, "101 Bob", "1;" + table}), "");
    EXPECT_EQ(Print({"get", "-t", table, "101 Bob"}), "1;" + table);
    EXPECT_EQ(Print({"list", table}), "101 Bob\t1;" + table + "\n");
    EXPECT_TRUE(IndexesAgree());
    EXPECT_EQ(Print({"del", "--table=" + table, "101 Bob"}), "");
    EXPECT_EQ(Print({"list", table}), "");
  }
  EXPECT_TRUE(IndexesAgree());
  for (const char *command : {"get", "del"}) {
    Expect({command, "--table", "stb_pb", "1"}, kMistake, "",
           "devconf: an index has no records of its own; use its table, \"tb_pb\"\n");
  }
}

TEST_F(Shell, AKeyThatTheLibraryDoesNotMake_IsReachedByItsEscape) {
  Init();
  Plant("tb_line", "raw", Text("1"));
  EXPECT_EQ(Print({"list", "tb_line"}), "raw\\c\t1\n");
  EXPECT_EQ(Print({"get", "--table", "tb_line", "--escape", "raw\\c"}), "1\n");
  EXPECT_EQ(Run({"get", "--table", "tb_line", "raw"}).status, kNothingFound);
  Print({"set", "--table", "tb_line", "--escape", "raw\\x00x\\c", "2"});
  Print({"del", "--table", "tb_line", "--escape", "raw\\c"});
  EXPECT_EQ(Dump("tb_line"), (Records{{Raw("raw\0x"), Text("2")}}));
}

TEST_F(Shell, AMissingRecord_Is1AndNamed) {
  Init();
  for (const char *command : {"get", "del"}) {
    Expect({command, "none"}, kNothingFound, "", "devconf: tb_parameter \"none\": no such record\n");
  }
}

TEST_F(Shell, Del_DeletesIt) {
  Init();
  Print({"set", "a", "1"});
  EXPECT_EQ(Print({"del", "a"}), "");
  EXPECT_EQ(Dump("tb_parameter"), Records{});
}

TEST_F(Shell, NamesAndValues_OfAnySize_AreStored) {
  Init();
  for (const std::size_t size : {253UL, 254UL, 255UL, 256UL, 600UL, 5000UL}) {
    const std::string name(size, 'n');
    const std::string value(size * 20, 'v');
    Print({"set", name, value});
    EXPECT_EQ(Print({"get", name}), value);
    EXPECT_EQ(Print({"list"}), name + "\t" + value + "\n");
    Print({"pb", "set", name, "1"});
    EXPECT_EQ(Print({"pb", "find", std::string(size, '6')}), std::string(size, '6') + "\t" + name + "\t1\n");
    Print({"pb", "del", name});
    Print({"del", name});
    EXPECT_EQ(Print({"list"}), "");
  }
}

TEST_F(Shell, AValueThatIsFarTooLarge_IsRefused) {
  Init();
  const CommandResult result =
      Command({"bash", "-c", "head -c 16777216 /dev/zero | tr '\\0' x | \"$0\" --home \"$1\" set n -", DEVCONF_PATH,
               home_})
          .Run();
  EXPECT_EQ(result.status, kMistake);
  EXPECT_EQ(result.err, "devconf: tb_parameter \"n\": the value is too long\n");
}

// Phone book.

TEST_F(Shell, PhoneBook_IsFoundByDigitsInTheOrderOfTheIndex) {
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

TEST_F(Shell, PhoneBook_EntriesTooLargeForTheSearchOfTheIndex_AreFound) {
  Init();
  const std::string large(1000, 'x');
  Print({"pb", "add", "Ann", "1"});
  Print({"pb", "add", "Bartholomew Longname Jones", "2"});
  Print({"pb", "add", "Bo", large});
  Print({"pb", "add", "Cod", "3"});
  EXPECT_EQ(Print({"pb", "find", "2"}), "22784656639056646263056637\tBartholomew Longname Jones\t2\n26\tBo\t" +
                                            large + "\n263\tCod\t3\n266\tAnn\t1\n");
}

TEST_F(Shell, PhoneBook_MoreEntriesThanOneSearchHolds_AreFound) {
  Open();
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, ("Bob " + std::to_string(i)).c_str(), "1"), 0);
  }
  BerkDb_Close();
  EXPECT_EQ(Lines(Print({"pb", "find", "262"})).size(), 200U);
}

TEST_F(Shell, PhoneBook_AnEntry_IsReplacedAndDeleted) {
  Init();
  Print({"pb", "set", "Bob 1", "123;x"});
  Print({"pb", "set", "Bob 1", "456"});
  EXPECT_EQ(Print({"list", "tb_pb"}), "Bob 1\t456\n");
  EXPECT_EQ(Run({"pb", "number", "123"}).status, kNothingFound);
  EXPECT_EQ(Print({"pb", "del", "Bob 1"}), "");
  EXPECT_EQ(Print({"list", "stb_pb"}), "");
  Expect({"pb", "del", "Bob 1"}, kNothingFound, "", "devconf: tb_pb \"Bob 1\": no such record\n");
}

TEST_F(Shell, PhoneBook_WhatIsNoDigits_Is2) {
  Init();
  for (const char *word : {"", "2a", "Bob"}) {
    EXPECT_EQ(Run({"pb", "find", word}).status, kMistake) << word;
  }
}

TEST_F(Shell, PhoneBook_IsFoundByNumber_AllOfThem) {
  Init();
  Print({"pb", "add", "Bob", "123;x"});
  Print({"pb", "add", "Bea", "123;y"});
  Print({"pb", "add", "Ann", "123"});
  Print({"pb", "add", "Eve", "1234"});
  EXPECT_EQ(Print({"pb", "number", "123"}), "123\tAnn\t123\n123\tBea\t123;y\n123\tBob\t123;x\n");
  Expect({"pb", "number", "12"}, kNothingFound, "", "devconf: stb_pb \"12\": no such entry\n");
}

TEST_F(Shell, PhoneBook_ABareKeyWithoutDigits_IsFoundByNumber) {
  Open();
  ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "raw", "99", 2), 0);
  BerkDb_Close();
  EXPECT_EQ(Print({"pb", "number", "99"}), "99\traw\\x00\\c\t99\\c\n");
  EXPECT_EQ(
      Print({"pb", "number", "99", "--json"}),
      "{\"table\":\"tb_pb\",\"key_bytes\":\"raw\\u0000\",\"value_bytes\":\"99\",\"index\":\"stb_pb\",\"index_key\":"
      "\"99\"}\n");
}

// Tables.

TEST_F(Shell, Tables_AreTheCatalogue) {
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

TEST_F(Shell, Tables_AsJson_AreOneObjectEach) {
  Init();
  const std::vector<std::string> lines = Lines(Print({"tables", "-j"}));
  ASSERT_EQ(lines.size(), 13U);
  EXPECT_EQ(lines[0], R"({"table":"tb_parameter","role":"named settings","records":0,"index_of":null})");
  EXPECT_EQ(lines[3], R"({"table":"stb_pb","role":"phone book, by number","records":0,"index_of":"tb_pb"})");
}

TEST_F(Shell, List_IsTheSettingsUnlessToldOtherwise) {
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

TEST_F(Shell, List_OfThePhoneBook_ShowsTheNames) {
  Init();
  Print({"pb", "add", "Bob", "1"});
  EXPECT_EQ(Print({"list", "tb_pb"}), "Bob\t1\n");
  EXPECT_EQ(Print({"list", "stb_1_pb"}), "262\tBob\t1\n");
  EXPECT_EQ(Print({"list", "stb_pb", "2"}), "");
}

TEST_F(Shell, Find_SaysWhetherThereWereAny) {
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

// Beside others.

TEST_F(Shell, WhileAProcessHasTheStoreOpen_SharesItsData) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "1"), 0);
  EXPECT_EQ(Print({"get", "a"}), "1");
  EXPECT_EQ(Print({"set", "a", "2"}), "");
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "2");
}

TEST_F(Shell, AnotherHomeWhileOneIsInUse_Is3AndHarmsNeither) {
  Open();
  ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "a", "1"), 0);
  TempDir other;
  std::filesystem::copy(FilePath(), other / "config.db");
  const std::string before = FileText(other / "config.db");
  const CommandResult result = Command({DEVCONF_PATH, "--home", other.Path(), "set", "a", "2"}).Run();
  EXPECT_EQ(result.status, kNoDatabase);
  EXPECT_THAT(result.err, HasSubstr("devconf: the environment cannot be opened"));
  EXPECT_EQ(FileText(other / "config.db"), before);
  EXPECT_EQ(Get(g_uDb.tb_parameter, "a"), "1");
}

TEST_F(Shell, TwoAtOnce_StoreEverything) {
  Init();
  std::vector<Child> writers;
  for (const std::string name : {"a", "b"}) {
    writers.emplace_back([this, name] {
      for (int i = 0; i < 10; ++i) {
        if (Run({"set", name + std::to_string(i), "1"}).status != 0) return 1;
        if (Run({"pb", "add", name + std::to_string(i), "1"}).status != 0) return 2;
      }
      return 0;
    });
  }
  for (Child &writer : writers) EXPECT_EQ(writer.Wait(), 0);
  EXPECT_EQ(Lines(Print({"list"})).size(), 20U);
  EXPECT_EQ(Lines(Print({"list", "stb_1_pb"})).size(), 20U);
  EXPECT_TRUE(Verify());
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Shell, WithAReaderThatGoesAway_EndsAndLeavesTheStoreInOrder) {
  Open();
  const std::string value(3000, 'v');
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, std::to_string(i).c_str(), value.data(), 3000), 0);
  }
  const CommandResult result =
      Command({"bash", "-c", "\"$0\" --home \"$1\" export | head -n 1; echo ${PIPESTATUS[0]}", DEVCONF_PATH, home_})
          .Run();
  EXPECT_EQ(result.out, "{\"table\":\"tb_parameter\"}\n" + std::to_string(128 + SIGPIPE) + "\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_line, "0", "still works"), 0);
}

TEST_F(Shell, ThatIsInterrupted_EndsBetweenTwoRecordsAndLeavesTheStoreInOrder) {
  Open();
  const std::string value(3000, 'v');
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, std::to_string(i).c_str(), value.data(), 3000), 0);
  }
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  Child program([&] {
    ::dup2(ends[1], STDOUT_FILENO);
    ::close(ends[0]);
    ::close(ends[1]);
    return ::execl(DEVCONF_PATH, DEVCONF_PATH, "--home", home_.c_str(), "export", nullptr);
  });
  ::close(ends[1]);
  // What comes first is printed with the store open; most of it does not fit into the pipe.
  char buffer[4096];
  ssize_t got = ::read(ends[0], buffer, 1);
  ASSERT_EQ(got, 1);
  program.Signal(SIGINT);
  std::size_t all = 1;
  while ((got = ::read(ends[0], buffer, sizeof buffer)) > 0) all += static_cast<std::size_t>(got);
  ::close(ends[0]);
  EXPECT_EQ(program.Wait(), 1000 + SIGINT);
  EXPECT_LT(all, 100U * 3000U);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_line, "0", "still works"), 0);
}

TEST_F(Shell, WhenAProcessDiedInsideTheStore_HealsIt) {
  Init();
  Print({"set", "a", "1"});
  Event opened;
  Event done;
  Child survivor([&] {
    Open();
    opened.Announce();
    done.Wait();
    return 0;
  });
  opened.Wait();
  Child victim([this] {
    Open();
    devsupport::store::Deadline deadline;
    if (devsupport::store::g_gate.Enter(deadline) != 0) return 1;
    ::raise(SIGKILL);
    return 1;
  });
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  EXPECT_EQ(Print({"get", "a"}), "1") << "opening heals the store";
  done.Announce();
  EXPECT_EQ(survivor.Wait(), 0);
  EXPECT_EQ(Print({"get", "a"}), "1");
}

}  // namespace
