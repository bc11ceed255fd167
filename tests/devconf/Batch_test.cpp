// SPDX-License-Identifier: MIT
// Several changes in one step: batch, diff that prints input for batch, and imports that are killed.

#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"
#include "tools/devconf/Store.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;

class Batch : public DevconfTest {
 protected:
  CommandResult RunBatch(const std::string &lines) const { return Devconf({"batch"}).InputFrom(File(lines)).Run(); }

  std::string PrintBatch(const std::string &lines) const {
    const CommandResult result = RunBatch(lines);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  std::string JsonLine(const std::string &table, const std::string &key, const std::string &value) const {
    return "{\"table\":\"" + table + "\",\"key\":\"" + key + "\",\"value\":\"" + value + "\"}\n";
  }
};

TEST_F(Batch, OfEveryKindOfLine_IsMade) {
  Init();
  Print({"set", "old", "1"});
  Print({"pb", "set", "Ann", "1"});
  EXPECT_EQ(PrintBatch(R"(# a comment
set a 1

  set --table tb_line "a b"   'c\d "e"'
	set -t tb_dm x "\x41\n\"\\"
pb set "Bob 1" 123;x
pb add Eve 5
pb del Ann
del old
set bytes "\x00\xff\c"
)"),
            "6 added, 0 changed, 0 unchanged, 2 deleted\n");
  EXPECT_EQ(Dump("tb_parameter"), (Records{{Text("a"), Text("1")}, {Text("bytes"), Raw("\0\xff")}}));
  EXPECT_EQ(Dump("tb_line"), (Records{{Text("a b"), Text("c\\d \"e\"")}}));
  EXPECT_EQ(Dump("tb_dm"), (Records{{Text("x"), Text("A\n\"\\")}}));
  EXPECT_EQ(Dump("tb_pb"), (Records{{Text("Bob 1\00026201"), Text("123;x")}, {Text("Eve\000383"), Text("5")}}));
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Batch, IsMadeInItsOrder) {
  Init();
  EXPECT_EQ(PrintBatch("set a 1\nset a 2\nset a 2\ndel a\nset a 3"), "2 added, 1 changed, 1 unchanged, 1 deleted\n");
  EXPECT_EQ(Print({"get", "a"}), "3");
}

TEST_F(Batch, OfAFile_AndAsJson) {
  Init();
  EXPECT_EQ(Print({"batch", "--json", File("set a 1\n")}),
            "{\"added\":1,\"changed\":0,\"unchanged\":0,\"deleted\":0}\n");
}

TEST_F(Batch, OfNothing_ChangesNothing) {
  Init();
  EXPECT_EQ(PrintBatch("\n# nothing\n"), "0 added, 0 changed, 0 unchanged, 0 deleted\n");
}

TEST_F(Batch, WithADeletionOfNothing_Is1AndChangesNothing) {
  Init();
  EXPECT_EQ(RunBatch("set a 1\n\npb del Bob\nset b 2\n"),
            (CommandResult{kNothingFound, "", "devconf: standard input:3: no such record; nothing was changed\n"}));
  EXPECT_EQ(Print({"list"}), "");
}

TEST_F(Batch, WithAMistake_Is5AndNamesTheLine) {
  Init();
  const std::pair<std::string, std::string> mistakes[] = {
      {"put a 1", "a line begins with set, del, pb set or pb del"},
      {"pb find 1", "a line begins with set, del, pb set or pb del"},
      {"pb", "a line begins with set, del, pb set or pb del"},
      {"add a b", "a line begins with set, del, pb set or pb del"},
      {"set a", "missing argument"},
      {"set", "missing argument"},
      {"del", "missing argument"},
      {"set a b c", "unexpected argument"},
      {"del a b", "unexpected argument"},
      {"set a b c d e f g", "unexpected argument"},
      {"set --table", "a table is missing"},
      {"set --table tb_x a b", "unknown table"},
      {"set --table stb_pb a b", "the table is an index, which follows the records of its table by itself"},
      {"set a \"b", "a closing quote is missing"},
      {"set a 'b", "a closing quote is missing"},
      {"set a \"b\\\"", "a closing quote is missing"},
      {"set a \"b\"c", "no blank after a closing quote"},
      {"set a b\"c", "a quote in the middle of a word"},
      {"set a b\\q", "unknown escape (a backslash is written \\\\)"},
      {"set a \\x4", "\\x needs two hexadecimal digits"},
      {"set a \\cb", "something follows \\c"},
      {"set a b\\", "nothing follows a backslash"},
  };
  for (const auto &[line, message] : mistakes) {
    const CommandResult result = RunBatch("set good 1\n" + line + "\n");
    EXPECT_EQ(result.status, kRefused) << line;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "devconf: standard input:2: " + message + "\n") << line;
  }
  EXPECT_EQ(Print({"list"}), "");
}

TEST_F(Batch, WithoutADatabase_Is3) { EXPECT_EQ(RunBatch("set a 1\n").status, kNoDatabase); }

TEST_F(Batch, Diff_PrintsWhatAnImportWouldChange) {
  Init();
  PrintBatch("set same 1\nset old 1\nset gone 1\npb set Bob 1\n");
  const std::string file = File(JsonLine("tb_parameter", "same", "1") + JsonLine("tb_parameter", "old", "2") +
                                JsonLine("tb_parameter", "new", "\\u0022\\n\xc3\xbc") + JsonLine("tb_dm", "x", "1"));
  const std::string sets =
      "set --table tb_parameter \"new\" \"\\\"\\n\xc3\xbc\"\nset --table tb_parameter \"old\" \"2\"\n";
  const std::string other = "set --table tb_dm \"x\" \"1\"\n";
  EXPECT_EQ(Print({"diff", file}), sets + other);
  EXPECT_EQ(Print({"diff", "--replace", file}), "del --table tb_parameter \"gone\"\n" + sets + other);
  EXPECT_EQ(Lines(Print({"diff", "--replace", "--json", file})),
            (std::vector<std::string>{
                R"({"change":"del","table":"tb_parameter","key":"gone"})",
                "{\"change\":\"set\",\"table\":\"tb_parameter\",\"key\":\"new\",\"value\":\"\\\"\\n\xc3\xbc\"}",
                R"({"change":"set","table":"tb_parameter","key":"old","value":"2"})",
                R"({"change":"set","table":"tb_dm","key":"x","value":"1"})"}));
  EXPECT_EQ(Print({"get", "old"}), "1");
}

TEST_F(Batch, Diff_OfAMistakenFile_Is5) {
  Init();
  EXPECT_EQ(Run({"diff", File("x\n")}).status, kRefused);
}

TEST_F(Batch, OfADiff_DoesWhatTheImportDoes) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  const char *const primaries[] = {"tb_parameter", "tb_dm", "tb_pb", "tb_route", "tb_tone"};
  const auto fill = [&] {
    for (int i = 0; i < 200; ++i) {
      constexpr std::string_view kLetters = "ab \x01\"\\\n\xff\xc3\xbc;";
      std::string texts[2];
      for (std::string &text : texts) {
        text.resize(below(6));
        for (char &c : text) c = kLetters[below(kLetters.size())];
      }
      struct __db *db = devconf::HandleOf(*devconf::FindTable(primaries[below(std::size(primaries))]));
      if (below(2) == 0) {
        ASSERT_EQ(BerkDb_Set(db, texts[0].c_str(), texts[1].c_str()), 0);
      } else {
        ASSERT_EQ(BerkDb_Put(db, texts[0].c_str(), texts[1].data(), static_cast<int>(texts[1].size())), 0);
      }
    }
    BerkDb_Close();
  };
  Open();
  fill();
  const std::string exported = Print({"export"});
  std::vector<Records> wanted;
  for (const char *table : primaries) wanted.push_back(Dump(table));
  Open();
  fill();

  TempDir files;
  WriteFile(files / "store", exported);
  WriteFile(files / "lines", Print({"diff", "--replace", files / "store"}));
  Print({"batch", files / "lines"});
  for (std::size_t i = 0; i < std::size(primaries); ++i) EXPECT_EQ(Dump(primaries[i]), wanted[i]) << primaries[i];
  EXPECT_EQ(Print({"diff", "--replace", files / "store"}), "");
  EXPECT_TRUE(IndexesAgree());
}

TEST_F(Batch, OnAMediumThatIsFull_IsMadeOrRefusedAndLosesNothing) {
  const std::string script =
      "home=$1/medium; mkdir -p $home && mount -t tmpfs -o size=1200k none $home || exit 99\n"
      "\"$0\" --home $home init && \"$0\" --home $home set before 1\n"
      "head -c $3k /dev/zero >$home/fill\n"
      "\"$0\" --home $home import $2; echo $?\n"
      "\"$0\" --home $home get before; echo\n"
      "rm $home/fill\n"
      "\"$0\" --home $home list tb_pb | wc -l\n"
      "\"$0\" --home $home set after 1 && \"$0\" --home $home verify\n";
  std::string text;
  for (int i = 0; i < 400; ++i) {
    text += JsonLine("tb_pb", "name " + std::to_string(i), std::to_string(1000 + i) + ";" + std::string(60, 'x'));
  }
  const std::string file = File(text);
  int refused = 0;
  for (int kilobytes = 500; kilobytes <= 1100; kilobytes += 50) {
    const CommandResult result =
        Command({"unshare", "-m", "sh", "-c", script, DEVCONF_PATH, home_, file, std::to_string(kilobytes)}).Run();
    if (result.status == 99) GTEST_SKIP() << "the machine does not let us mount";
    SCOPED_TRACE(kilobytes);
    if (result.out.starts_with("4\n")) {
      ++refused;
      EXPECT_EQ(result.out, "4\n1\n0\nclean\n");
      EXPECT_THAT(result.err, ::testing::HasSubstr("nothing was changed"));
    } else {
      EXPECT_EQ(result.out, "400 added, 0 changed, 0 unchanged, 0 deleted\n0\n1\n400\nclean\n");
    }
  }
  EXPECT_GT(refused, 0);
}

// Imports that do not complete.

class KilledImport : public Batch {
 protected:
  static constexpr int kEntries = 2000;

  std::string FileOf(int generation) const {
    std::string text;
    for (int i = 0; i < kEntries; ++i) {
      text += JsonLine("tb_pb", "name " + std::to_string(i), std::to_string(generation) + ";" + std::to_string(i));
    }
    return File(text);
  }

  /// The generation that the store holds; fails the test when it holds two.
  int Generation() const {
    const std::vector<std::string> lines = Lines(Print({"list", "tb_pb"}));
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(kEntries));
    const auto of = [](const std::string &line) { return std::stoi(line.substr(line.find('\t') + 1)); };
    for (const std::string &line : lines) EXPECT_EQ(of(line), of(lines[0])) << line;
    EXPECT_TRUE(IndexesAgree());
    return of(lines.at(0));
  }
};

TEST_F(KilledImport, HasStoredEverythingOrNothing) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  Init();
  Print({"import", FileOf(0)});
  int generation = 0;
  for (int i = 0; i < std::max(1, 10 * Count("DEVSUPPORT_STORE_ROUNDS", 100) / 100); ++i) {
    const std::string file = FileOf(generation + 1);
    Child program([&] {
      return ::execl(DEVCONF_PATH, DEVCONF_PATH, "--home", home_.c_str(), "import", file.c_str(), nullptr);
    });
    ::usleep(static_cast<useconds_t>(random() % 60000));
    program.Signal(SIGKILL);
    program.Wait();
    const int after = Generation();
    ASSERT_TRUE(after == generation || after == generation + 1);
    generation = after;
  }
  EXPECT_EQ(Print({"verify"}), "clean\n");
}

TEST_F(KilledImport, WhileAnotherHasTheStoreOpen_HasStoredAllOrNothing) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  Init();
  Print({"import", FileOf(0)});
  Open();  // another process with the store open, which continues
  int generation = 0;
  for (int i = 0; i < 14; ++i) {
    const std::string file = FileOf(generation + 1);
    Child program([&] {
      return ::execl(DEVCONF_PATH, DEVCONF_PATH, "--home", home_.c_str(), "import", file.c_str(), nullptr);
    });
    ::usleep(static_cast<useconds_t>(random() % 120000));
    program.Signal(i % 2 == 0 ? SIGTERM : SIGKILL);
    program.Wait();
    const std::string value = Get(g_uDb.tb_pb, "name 0");
    const int after = std::stoi(value);
    for (const int other : {1, 999, kEntries - 1}) {
      EXPECT_EQ(std::stoi(Get(g_uDb.tb_pb, ("name " + std::to_string(other)).c_str())), after);
    }
    ASSERT_TRUE(after == generation || after == generation + 1) << value;
    generation = after;
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_parameter, "still", "works"), 0);
  }
}

}  // namespace
