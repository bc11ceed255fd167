// SPDX-License-Identifier: MIT
// The command line of devconf.

#include "tools/devconf/Options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using devconf::Mistake;
using devconf::Options;
using devconf::ReadOptions;

struct Reading {
  bool ok = false;
  Options options;
  std::string mistake;  // "what|word"
};

Reading Read(std::vector<const char *> words) {
  words.insert(words.begin(), "devconf");
  Reading reading;
  Mistake mistake;
  reading.ok = ReadOptions(words, reading.options, mistake);
  if (!reading.ok) reading.mistake = std::string(mistake.what) + "|" + mistake.word;
  return reading;
}

TEST(Options, WithoutAny_AreTheDevices) {
  const Reading reading = Read({"tables"});
  ASSERT_TRUE(reading.ok);
  EXPECT_EQ(reading.options.command, devconf::Command::Tables);
  EXPECT_STREQ(reading.options.home, "/config_fs/DB/");
  EXPECT_STREQ(reading.options.file, "config.db");
  EXPECT_FALSE(reading.options.json);
  EXPECT_FALSE(reading.options.replace);
}

TEST(Options, KnowEveryCommand) {
  const std::pair<std::vector<const char *>, devconf::Command> commands[] = {
      {{"init"}, devconf::Command::Init},
      {{"get", "a"}, devconf::Command::Get},
      {{"set", "a", "b"}, devconf::Command::Set},
      {{"list"}, devconf::Command::List},
      {{"list", "a", "b"}, devconf::Command::List},
      {{"find", "a", "b"}, devconf::Command::Find},
      {{"pb", "add", "a", "b"}, devconf::Command::PhoneBookSet},
      {{"pb", "set", "a", "b"}, devconf::Command::PhoneBookSet},
      {{"pb", "del", "a"}, devconf::Command::PhoneBookDelete},
      {{"pb", "find", "1"}, devconf::Command::PhoneBookFind},
      {{"pb", "number", "1"}, devconf::Command::PhoneBookNumber},
      {{"export"}, devconf::Command::Export},
      {{"export", "a"}, devconf::Command::Export},
      {{"import", "a"}, devconf::Command::Import},
      {{"diff", "a"}, devconf::Command::Diff},
      {{"batch"}, devconf::Command::Batch},
      {{"batch", "a"}, devconf::Command::Batch},
      {{"salvage"}, devconf::Command::Salvage},
      {{"watch"}, devconf::Command::Watch},
      {{"watch", "a", "b"}, devconf::Command::Watch},
      {{"del", "a"}, devconf::Command::Delete},
      {{"tables"}, devconf::Command::Tables},
      {{"verify"}, devconf::Command::Verify},
  };
  for (const auto &[words, command] : commands) {
    const Reading reading = Read(words);
    EXPECT_TRUE(reading.ok) << words[0] << ": " << reading.mistake;
    EXPECT_EQ(reading.options.command, command) << words[0];
  }
}

TEST(Options, GiveTheWordsAfterTheCommand) {
  const Reading reading = Read({"pb", "add", "Bob", "1;x"});
  EXPECT_STREQ(reading.options.words[0], "Bob");
  EXPECT_STREQ(reading.options.words[1], "1;x");
  EXPECT_EQ(Read({"list", "tb_pb"}).options.words[1], nullptr);
}

TEST(Options, MayBeAnywhere) {
  const Reading reading = Read({"--home", "/h", "import", "--json", "x", "--file=f", "--replace"});
  ASSERT_TRUE(reading.ok) << reading.mistake;
  EXPECT_STREQ(reading.options.home, "/h");
  EXPECT_STREQ(reading.options.file, "f");
  EXPECT_TRUE(reading.options.json);
  EXPECT_TRUE(reading.options.replace);
  EXPECT_STREQ(reading.options.words[0], "x");
}

TEST(Options, NumbersWithASign_AreNoOptions) {
  EXPECT_STREQ(Read({"set", "vlan", "-1"}).options.words[1], "-1");
  EXPECT_STREQ(Read({"--json", "set", "-12", "-34x"}).options.words[0], "-12");
  EXPECT_STREQ(Read({"import", "-"}).options.words[0], "-");
}

TEST(Options, ARowOfDashes_IsNoOption) {
  EXPECT_STREQ(Read({"set", "cert", "-----BEGIN CERTIFICATE-----\n"}).options.words[1],
               "-----BEGIN CERTIFICATE-----\n");
  EXPECT_STREQ(Read({"get", "---"}).options.words[0], "---");
}

TEST(Options, AfterTwoDashes_ThereAreNone) {
  const Reading reading = Read({"set", "--", "--json", "--home"});
  ASSERT_TRUE(reading.ok) << reading.mistake;
  EXPECT_FALSE(reading.options.json);
  EXPECT_STREQ(reading.options.words[0], "--json");
  EXPECT_STREQ(reading.options.words[1], "--home");
}

TEST(Options, HelpAndVersion_NeedNoCommand) {
  EXPECT_EQ(Read({"--help"}).options.command, devconf::Command::Help);
  EXPECT_EQ(Read({"get", "-h", "--nonsense"}).options.command, devconf::Command::Help);
  EXPECT_EQ(Read({"-V"}).options.command, devconf::Command::Version);
}

TEST(Options, ThatAreMistaken_AreNamed) {
  EXPECT_EQ(Read({}).mistake, "no command|");
  EXPECT_EQ(Read({"put"}).mistake, "unknown command|put");
  EXPECT_EQ(Read({"pb"}).mistake, "pb needs one of the words set, del, find and number|");
  EXPECT_EQ(Read({"pb", "put", "x"}).mistake, "pb needs one of the words set, del, find and number|");
  EXPECT_EQ(Read({"get"}).mistake, "missing argument after|get");
  EXPECT_EQ(Read({"set", "a"}).mistake, "missing argument after|set");
  EXPECT_EQ(Read({"pb", "add", "Bob"}).mistake, "missing argument after|add");
  EXPECT_EQ(Read({"get", "a", "b"}).mistake, "unexpected argument:|b");
  EXPECT_EQ(Read({"pb", "add", "a", "b", "c"}).mistake, "unexpected argument:|c");
  EXPECT_EQ(Read({"--jsn", "get"}).mistake, "unknown option|--jsn");
  EXPECT_EQ(Read({"-x"}).mistake, "unknown option|-x");
  EXPECT_EQ(Read({"--homes=x", "get", "a"}).mistake, "unknown option|--homes=x");
  EXPECT_EQ(Read({"--json=x", "get", "a"}).mistake, "unknown option|--json=x");
  EXPECT_EQ(Read({"get", "a", "--home"}).mistake, "missing argument after|--home");
  EXPECT_EQ(Read({"get", "a", "--home="}).mistake, "missing argument after|--home=");
  EXPECT_EQ(Read({"import", "a", "--merge", "--replace"}).mistake, "--merge and --replace exclude each other|");
  EXPECT_EQ(Read({"get", "a", "--raw", "--escape"}).mistake, "--raw and --escape exclude each other|");
  EXPECT_EQ(Read({"set", "a", "b", "--from", "f"}).mistake, "--from and a value exclude each other|");
}

TEST(Options, OfOtherCommands_AreNamed) {
  EXPECT_EQ(Read({"get", "a", "--merge"}).mistake, "only import and diff know|--merge");
  EXPECT_EQ(Read({"export", "--replace"}).mistake, "only import and diff know|--replace");
  EXPECT_EQ(Read({"list", "--table", "tb_pb"}).mistake, "only get, set and del know|--table");
  EXPECT_EQ(Read({"get", "a", "--from", "f"}).mistake, "only set knows|--from");
  EXPECT_EQ(Read({"set", "a", "b", "--raw"}).mistake, "only get knows|--raw");
  EXPECT_EQ(Read({"list", "--escape"}).mistake, "only get, set and del know|--escape");
  EXPECT_EQ(Read({"--offline", "f", "set", "a", "b"}).mistake, "only commands that read know|--offline");
}

TEST(Options, OfRecords_AreRead) {
  const Reading reading = Read({"set", "-t", "tb_line", "--from", "f", "--escape", "a"});
  ASSERT_TRUE(reading.ok) << reading.mistake;
  EXPECT_STREQ(reading.options.table, "tb_line");
  EXPECT_STREQ(reading.options.from, "f");
  EXPECT_EQ(reading.options.writing, devconf::Writing::Escaped);
  EXPECT_EQ(Read({"get", "a", "--raw"}).options.writing, devconf::Writing::Raw);
  EXPECT_STREQ(Read({"--offline=f", "get", "a"}).options.offline, "f");
}

TEST(Options, TheHelp_FitsATerminal) {
  std::size_t length = 0;
  for (const char *c = devconf::kHelp; *c != '\0'; ++c) {
    length = *c == '\n' ? 0 : length + 1;
    EXPECT_LE(length, 110U);
  }
}

}  // namespace
