// SPDX-License-Identifier: MIT
// salvage: it prints the records that can be read of a damaged file, and nothing else; and it always ends.

#include <db.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <set>

#include "tests/devconf/Shell.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"
#include "tools/devconf/Rescue.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;
using ::testing::HasSubstr;
using ::testing::IsSubsetOf;

constexpr std::size_t kPageBytes = 2048;

class Salvage : public DevconfTest {
 protected:
  void Fill() {
    Open();
    for (int i = 0; i < 120; ++i) {
      const std::string name = "name " + std::to_string(i);
      ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, name.c_str(), (std::to_string(1000 + i) + ";x").c_str()), 0);
      ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, name.c_str(), std::string(static_cast<std::size_t>(i), 'v').c_str()),
                0);
    }
    for (const char *key : {"a", "b", "c"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key, "1"), 0);
    for (const char *key : {"101a", "101b", "102"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, key, "r"), 0);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "large", std::string(6000, 'l').c_str()), 0);
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_line, "bytes", "\0\xff", 2), 0);
    BerkDb_Close();
    exported_ = RecordLines(Print({"export"}));
    bytes_ = FileText(FilePath());
  }

  static std::vector<std::string> RecordLines(const std::string &text) {
    std::vector<std::string> lines;
    for (std::string &line : Lines(text)) {
      if (line.find("\"key") != std::string::npos) lines.push_back(std::move(line));
    }
    return lines;
  }

  CommandResult SalvageBytes(const std::string &bytes) const {
    WriteFile(home_ + "/copy.db", bytes);
    return Run({"salvage", "--offline", home_ + "/copy.db"});
  }

  /// The lines of known tables, and the number of lines without a table.
  std::vector<std::string> Known(const std::string &out, std::size_t &unknown) const {
    std::vector<std::string> lines = RecordLines(out);
    unknown = static_cast<std::size_t>(std::erase_if(
        lines, [](const std::string &line) { return line.find("\"table\":\"?\"") != std::string::npos; }));
    return lines;
  }

  std::vector<std::string> exported_;
  std::string bytes_;
};

TEST_F(Salvage, OfAWholeFile_IsAnExport) {
  Fill();
  const std::string out = Print({"salvage"});
  EXPECT_THAT(RecordLines(out), ::testing::UnorderedElementsAreArray(exported_));
  std::filesystem::remove_all(home_ + "/new");
  std::filesystem::create_directory(home_ + "/new");
  WriteFile(home_ + "/salvaged", out);
  EXPECT_EQ(Command({DEVCONF_PATH, "--home", home_ + "/new", "init"}).Run().status, 0);
  EXPECT_EQ(Command({DEVCONF_PATH, "--home", home_ + "/new", "import", home_ + "/salvaged"}).Run().status, 0);
  EXPECT_THAT(RecordLines(Command({DEVCONF_PATH, "--home", home_ + "/new", "export"}).Run().out),
              ::testing::UnorderedElementsAreArray(exported_));
}

TEST_F(Salvage, OfAFileWithOnePageLost_IsWhatTheOthersHold) {
  Fill();
  std::size_t whole = 0;
  for (std::size_t page = 0; page * kPageBytes < bytes_.size(); ++page) {
    std::string damaged = bytes_;
    damaged.replace(page * kPageBytes, kPageBytes, std::string(kPageBytes, '\0'));
    const CommandResult result = SalvageBytes(damaged);
    SCOPED_TRACE(page);
    EXPECT_EQ(result.status, kDamaged);
    EXPECT_LE(Lines(result.err).size(), 10U);
    std::size_t unknown = 0;
    const std::vector<std::string> known = Known(result.out, unknown);
    EXPECT_THAT(known, IsSubsetOf(exported_));
    // The highest number of these records that a page can hold.
    EXPECT_GE(known.size() + unknown + 80, exported_.size());
    if (known.size() == exported_.size()) ++whole;
  }
  EXPECT_GT(whole, 10U) << "pages of indexes and of empty tables cost nothing";
}

TEST_F(Salvage, OfAFileWithoutItsListOfTables_StillKnowsThePhoneBook) {
  Fill();
  std::string damaged = bytes_;
  damaged.replace(0, 2 * kPageBytes, std::string(2 * kPageBytes, '\0'));
  const CommandResult result = SalvageBytes(damaged);
  EXPECT_EQ(result.status, kDamaged);
  std::size_t unknown = 0;
  const std::vector<std::string> known = Known(result.out, unknown);
  EXPECT_EQ(known.size(), 120U);
  EXPECT_THAT(known, IsSubsetOf(exported_));
  EXPECT_EQ(unknown, exported_.size() - 120U);
  EXPECT_THAT(result.err, HasSubstr("devconf: 128 records have the table \"?\""));
  // Import refuses them until their table is named.
  EXPECT_EQ(Run({"import", File(result.out)}).status, 5);
}

TEST_F(Salvage, OfAWholeFileWithAnUnknownTable_Is6) {
  const std::string path = home_ + "/foreign.db";
  DB *table = nullptr;
  ASSERT_EQ(::db_create(&table, nullptr, 0), 0);
  ASSERT_EQ(table->open(table, nullptr, path.c_str(), "foreign", DB_BTREE, DB_CREATE, 0600), 0);
  DBT key{};
  key.data = const_cast<char *>("k");
  key.size = 2;
  EXPECT_EQ(table->put(table, nullptr, &key, &key, 0), 0);
  EXPECT_EQ(table->close(table, 0), 0);
  const CommandResult result = Run({"salvage", "--offline", path});
  EXPECT_EQ(result.out, "{\"table\":\"?\",\"key\":\"k\",\"value\":\"k\"}\n");
  EXPECT_THAT(result.err, HasSubstr("1 records have the table \"?\""));
  EXPECT_EQ(result.status, kDamaged);
}

TEST_F(Salvage, OfAStoreThatCannotBeOpened_CanBeImported) {
  Fill();
  std::string damaged = bytes_;
  // The bytes after the header of every leaf page of the phone book's index, where the places of its records are.
  for (std::size_t page = 1; page < damaged.size() / kPageBytes; ++page) {
    if (damaged.find("name 7\x00", page * kPageBytes) == std::string::npos) continue;
    for (std::size_t i = 26; i < 40; ++i) damaged[page * kPageBytes + i] = '\x7f';
    break;
  }
  WriteFile(FilePath(), damaged);
  EXPECT_NE(Run({"get", "name 1"}).status, 0);
  const CommandResult result = Run({"salvage"});
  EXPECT_EQ(result.status, kDamaged);
  std::size_t unknown = 0;
  const std::vector<std::string> known = Known(result.out, unknown);
  EXPECT_THAT(known, IsSubsetOf(exported_));
  EXPECT_GE(known.size() + unknown + 80, exported_.size());
  std::string text;
  for (const std::string &line : known) text += line + "\n";
  TempDir folder;
  WriteFile(folder / "salvaged", text);
  EXPECT_EQ(Command({DEVCONF_PATH, "--home", folder / "new", "init"}).Run().status, 0);
  EXPECT_EQ(Command({DEVCONF_PATH, "--home", folder / "new", "import", folder / "salvaged"}).Run().status, 0);
}

TEST_F(Salvage, OfGarbage_PrintsNothingAndEnds) {
  for (const std::string &text : {std::string(10000, 'x'), std::string(100, 'x'), std::string()}) {
    const CommandResult result = SalvageBytes(text);
    EXPECT_EQ(result.status, kDamaged);
    EXPECT_EQ(result.out, "");
    EXPECT_LE(Lines(result.err).size(), 10U);
  }
}

TEST_F(Salvage, OfAFileThatIsNotThere_Is3) { EXPECT_EQ(Run({"salvage"}).status, kNoDatabase); }

TEST_F(Salvage, OfScribbledFiles_EndsAndPrintsWhatImportTakes) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  Fill();
  for (int i = 0; i < std::max(1, Count("DEVSUPPORT_STORE_ROUNDS", 100) / 3); ++i) {
    std::string damaged = bytes_;
    for (std::size_t n = 1 + static_cast<std::size_t>(random() % 30); n > 0; --n) {
      damaged[static_cast<std::size_t>(random() % damaged.size())] = static_cast<char>(random());
    }
    const CommandResult result = SalvageBytes(damaged);
    ASSERT_TRUE(result.status == 0 || result.status == kDamaged) << result.status;
    EXPECT_LE(Lines(result.err).size(), 10U);
    std::size_t unknown = 0;
    std::string text;
    for (const std::string &line : Known(result.out, unknown)) text += line + "\n";
    EXPECT_EQ(Run({"diff", "--offline", FilePath(), File(text)}).status, 0) << "a file that import would refuse";
  }
}

TEST_F(Salvage, ThatDoesNotComeToItsEnd_IsStopped) {
  const std::string path = home_ + "/fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  devconf::Bytes dump;
  EXPECT_EQ(devconf::RunRescue(path.c_str(), 100, dump), devconf::RescueEnd::Broken);
}

// The dump format.

TEST(Dump, GivesTheRecordsOfEachTable) {
  devconf::DumpReader reader(
      "VERSION=3\nformat=bytevalue\ndatabase=tb_line\ntype=btree\nHEADER=END\n 6100\n 00ff\n \n \nDATA=END\n"
      "VERSION=3\ntype=btree\nHEADER=END\n 62\n 63\nDATA=END\n");
  ASSERT_TRUE(reader.Next());
  EXPECT_EQ(reader.Table(), "tb_line");
  EXPECT_EQ(reader.Key(), Text("a"));
  EXPECT_EQ(reader.Value(), Raw("\0\xff"));
  ASSERT_TRUE(reader.Next());
  EXPECT_EQ(reader.Key().size() + reader.Value().size(), 0U);
  ASSERT_TRUE(reader.Next());
  EXPECT_EQ(reader.Table(), "");
  EXPECT_EQ(reader.Key(), "b");
  EXPECT_FALSE(reader.Next());
}

TEST(Dump, ThatBreaksOff_GivesNoHalfRecord) {
  const std::string dump = "VERSION=3\ndatabase=tb_line\nHEADER=END\n 6100\n 6200\n 6300\n 64";
  for (std::size_t size = 0; size <= dump.size(); ++size) {
    devconf::DumpReader reader(std::string_view(dump).substr(0, size));
    const bool hasFirst = reader.Next();
    EXPECT_EQ(hasFirst, size >= dump.find(" 6300")) << size;
    if (hasFirst) {
      EXPECT_EQ(reader.Value(), Text("b"));
    }
    EXPECT_FALSE(hasFirst && reader.Next()) << size;
  }
}

}  // namespace
