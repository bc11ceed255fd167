// SPDX-License-Identifier: MIT
// devconf get, set and del: bytes of values on a pipe and on a terminal, raw and escaped.

#include <string>
#include <vector>

#include "tests/devconf/Shell.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;

class Settings : public DevconfTest {};

TEST_F(Settings, Set_StoresWhatTheLibraryReads) {
  Init();
  EXPECT_EQ(Print({"set", "dbl", "a,b;c"}), "");
  EXPECT_EQ(Print({"set", "vlan", "-1"}), "");
  EXPECT_EQ(Print({"get", "vlan"}), "-1");
  EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("dbl"), Text("a,b;c")}, {Text("vlan"), Text("-1")}}));
  Open();
  EXPECT_EQ(Get(g_uDb.tb_parameter, "dbl"), "a,b;c");
}

TEST_F(Settings, Get_AsJson_HasTheSchemaOfAnExport) {
  Init();
  Print({"set", "n\"", "J\xc3\xbcrgen\n"});
  EXPECT_EQ(Print({"get", "n\"", "--json"}),
            "{\"table\":\"tb_parameter\",\"key\":\"n\\\"\",\"value\":\"J\xc3\xbcrgen\\n\"}\n");
}

TEST_F(Settings, Get_IntoAPipe_AreTheBytes) {
  Init();
  const std::string value = "a\x1b[2J\n\xff\xc2\x9b\\ \xc3\xbc\n";
  Print({"set", "n", value});
  EXPECT_EQ(Print({"get", "n"}), value);
  EXPECT_EQ(Print({"get", "--raw", "n"}), value);
}

TEST_F(Settings, Get_OnATerminal_ShowsWhatATerminalWouldObey) {
  Init();
  Print({"set", "n", "a\x1b[2J\xff\xc2\x9b\\ \xc3\xbc"});
  const std::string shown = "a\\x1b[2J\\xff\\xc2\\x9b\\\\ \xc3\xbc\n";
  EXPECT_EQ(Print({"get", "n", "--escape"}), shown);
  const CommandResult result =
      Command({"script", "-qec", std::string(DEVCONF_PATH) + " --home " + home_ + " get n", "/dev/null"}).Run();
  EXPECT_EQ(result.out, shown.substr(0, shown.size() - 1) + "\r\n");
}

TEST_F(Settings, AnyValue_ComesBackFromItsEscape) {
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

TEST_F(Settings, AnEscapeThatIsMistaken_Is2) {
  Init();
  Expect({"set", "--escape", "a", "\\q"}, kMistake, "",
         "devconf: unknown escape (a backslash is written \\\\) \"\\\\q\"\n");
  for (const char *word : {"\\", "\\x4", "\\xg0", "\\cx"}) {
    EXPECT_EQ(Run({"set", "--escape", "a", word}).status, kMistake) << word;
    EXPECT_EQ(Run({"get", "--escape", word}).status, kMistake) << word;
  }
  EXPECT_EQ(Print({"list"}), "");
}

TEST_F(Settings, SetAndGet_ThroughAPipe_KeepEveryByte) {
  Init();
  const std::string value = "-----BEGIN\nline\\n\n\n-----END\n\n";
  Print({"set", "cert", value});
  const CommandResult result =
      Command({"bash", "-c", "\"$0\" --home \"$1\" get cert | \"$0\" --home \"$1\" set copy -", DEVCONF_PATH, home_})
          .Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("cert"), value + '\0'}, {Text("copy"), value + '\0'}}));
}

TEST_F(Settings, Set_FromAFile_StoresItsBytes) {
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

TEST_F(Settings, EveryTable_TakesGetSetAndDel) {
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

TEST_F(Settings, AKeyThatTheLibraryDoesNotMake_IsReachedByItsEscape) {
  Init();
  Plant("tb_line", "raw", Text("1"));
  EXPECT_EQ(Print({"list", "tb_line"}), "raw\\c\t1\n");
  EXPECT_EQ(Print({"get", "--table", "tb_line", "--escape", "raw\\c"}), "1\n");
  EXPECT_EQ(Run({"get", "--table", "tb_line", "raw"}).status, kNothingFound);
  Print({"set", "--table", "tb_line", "--escape", "raw\\x00x\\c", "2"});
  Print({"del", "--table", "tb_line", "--escape", "raw\\c"});
  EXPECT_EQ(Dump("tb_line"), (Records{{Raw("raw\0x"), Text("2")}}));
}

TEST_F(Settings, AMissingRecord_Is1AndNamed) {
  Init();
  for (const char *command : {"get", "del"}) {
    Expect({command, "none"}, kNothingFound, "", "devconf: tb_parameter \"none\": no such record\n");
  }
}

TEST_F(Settings, Del_DeletesIt) {
  Init();
  Print({"set", "a", "1"});
  EXPECT_EQ(Print({"del", "a"}), "");
  EXPECT_EQ(Dump("tb_parameter"), Records{});
}

TEST_F(Settings, NamesAndValues_OfAnySize_AreStored) {
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

TEST_F(Settings, AValueThatIsFarTooLarge_IsRefused) {
  Init();
  const CommandResult result =
      Command({"bash", "-c", "head -c 16777216 /dev/zero | tr '\\0' x | \"$0\" --home \"$1\" set n -", DEVCONF_PATH,
               home_})
          .Run();
  EXPECT_EQ(result.status, kMistake);
  EXPECT_EQ(result.err, "devconf: tb_parameter \"n\": the value is too long\n");
}

}  // namespace
