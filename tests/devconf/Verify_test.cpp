// SPDX-License-Identifier: MIT
// verify: the errors that it finds, when it refuses to check, and that it changes nothing.

#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "tests/devconf/Shell.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devconf_test;
using namespace devsupport::test;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class VerifyOf : public DevconfTest {
 protected:
  void Fill() {
    Open();
    for (const char *name : {"Ann", "Bob 1", "Bob-2"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, name, "123;x"), 0);
    ASSERT_EQ(BerkDb_Put(g_uDb.tb_pb, "raw", "99", 2), 0);
    for (const char *key : {"101a", "101b", "1", "102"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, key, "r"), 0);
    for (const char *key : {"a", "b", "c"}) ASSERT_EQ(BerkDb_Set(g_uDb.tb_dm, key, "1"), 0);
    BerkDb_Close();
  }

  void ExpectFinding(const std::string &err, const std::string &json) const {
    EXPECT_EQ(Run({"verify"}), (CommandResult{kDamaged, "", err}));
    EXPECT_EQ(Run({"verify", "--json"}), (CommandResult{kDamaged, json, ""}));
  }
};

TEST_F(VerifyOf, ACleanStore_PrintsClean) {
  Fill();
  EXPECT_EQ(Print({"verify"}), "clean\n");
  EXPECT_EQ(Print({"verify", "--json"}), "{\"errors\":0}\n");
}

TEST_F(VerifyOf, AnEmptyStore_IsClean) {
  Init();
  EXPECT_EQ(Print({"verify"}), "clean\n");
}

TEST_F(VerifyOf, AMissingEntryOfAnIndex_NamesIndexAndKey) {
  Fill();
  Uproot("stb_1_pb", Text("26201"), Text("Bob 1\00026201"));
  ExpectFinding(
      "devconf: stb_1_pb \"Bob 1\": the index does not have this record of its table\n",
      "{\"table\":\"stb_1_pb\",\"key_bytes\":\"Bob 1\\u000026201\\u0000\",\"error\":\"the index does not have "
      "this record of its table\"}\n{\"errors\":1}\n");
}

TEST_F(VerifyOf, AnEntryOfAnIndexWithoutItsRecord_NamesIndexAndKey) {
  Fill();
  Plant("stb_pb", Text("777"), Text("Ghost\00044678"));
  ExpectFinding("devconf: stb_pb \"Ghost\": the index has a record that its table does not have\n",
                "{\"table\":\"stb_pb\",\"key_bytes\":\"Ghost\\u000044678\\u0000\",\"error\":\"the index has a record "
                "that its table does not have\"}\n{\"errors\":1}\n");
}

TEST_F(VerifyOf, AnEntryUnderAWrongKey_NamesIndexAndKey) {
  Fill();
  Plant("stb_route", "109", Text("101a"));
  ExpectFinding("devconf: stb_route \"101a\": the index has this record under another key than its own\n",
                "{\"table\":\"stb_route\",\"key_bytes\":\"101a\\u0000\",\"error\":\"the index has this record under "
                "another key than its own\"}\n{\"errors\":1}\n");
}

TEST_F(VerifyOf, ARecordWithoutAnyIndex_IsFoundInEach) {
  Fill();
  Plant("tb_pb", Text("Eve\000383"), Text("5"));
  const CommandResult result = Run({"verify"});
  EXPECT_EQ(result.status, kDamaged);
  EXPECT_EQ(result.err,
            "devconf: stb_pb \"Eve\": the index does not have this record of its table\n"
            "devconf: stb_1_pb \"Eve\": the index does not have this record of its table\n");
}

TEST_F(VerifyOf, ADamagedPage_IsFound) {
  Fill();
  std::string bytes = FileText(FilePath());
  // The bytes after the header of a leaf page, where the places of its records are.
  for (std::size_t page = 1; page < bytes.size() / 2048; ++page) {
    if (bytes[page * 2048 + 25] != 5) continue;
    for (std::size_t i = 26; i < 40; ++i) bytes[page * 2048 + i] = '\x7f';
  }
  WriteFile(FilePath(), bytes);
  const CommandResult result = Run({"verify"});
  EXPECT_EQ(result.status, kDamaged);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, EndsWith("devconf: (file): the store's checker found damage\n"));
}

TEST_F(VerifyOf, AValueThatWasChangedInTheFile_IsNeverClean) {
  Fill();
  std::string bytes = FileText(FilePath());
  const std::size_t at = bytes.find("123;x");
  ASSERT_NE(at, std::string::npos);
  bytes[at + 4] = 'y';
  WriteFile(FilePath(), bytes);
  EXPECT_EQ(
      Run({"verify"}),
      (CommandResult{kDamaged, "", "devconf: config.db: the file is not as it was when the store was closed\n"}));
  EXPECT_EQ(Run({"verify", "--json"}).out,
            "{\"table\":\"config.db\",\"error\":\"the file is not as it was when the store was closed\"}\n"
            "{\"errors\":1}\n");
}

TEST_F(VerifyOf, ALogFileThatWasChanged_IsNeverClean) {
  Fill();
  std::string log;
  for (const auto &entry : std::filesystem::directory_iterator(home_)) {
    if (entry.path().filename().string().starts_with("log.")) log = entry.path();
  }
  std::string bytes = FileText(log);
  bytes[bytes.size() / 2] ^= 1;
  WriteFile(log, bytes);
  const CommandResult result = Run({"verify"});
  EXPECT_EQ(result.status, kDamaged);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "devconf: " + log.substr(home_.size() + 1) + ": the file is not as it was when the store was closed\n");
}

TEST_F(VerifyOf, AStoreThatCannotBeOpened_IsNeverClean) {
  Fill();
  std::filesystem::remove(FilePath() + ".seal");
  const std::string script =
      "mount --bind \"$1\" \"$1\" && mount -o remount,ro,bind \"$1\" && \"$0\" --home \"$1\" verify $2";
  for (const char *json : {"", "--json"}) {
    const CommandResult result = Command({"unshare", "-m", "sh", "-c", script, DEVCONF_PATH, home_, json}).Run();
    if (result.err.find("mount:") != std::string::npos) GTEST_SKIP() << "the machine does not let us mount";
    EXPECT_EQ(result.status, kNoDatabase);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, EndsWith("devconf: the store cannot be opened, so that not all of it can be verified\n"));
  }
}

TEST_F(VerifyOf, AFileThatIsNoDatabase_IsDamagedAndStaysAsItIs) {
  const std::string text(10000, 'x');
  WriteFile(FilePath(), text);
  const CommandResult result = Run({"verify"});
  EXPECT_EQ(result.status, kDamaged);
  EXPECT_THAT(result.err, EndsWith("devconf: (file): the store's checker found damage\n"));
  EXPECT_EQ(FileText(FilePath()), text);
}

TEST_F(VerifyOf, AStoreThatOthersHaveOpen_Is7AndChecksNothing) {
  Fill();
  Open();
  EXPECT_EQ(Run({"verify"}),
            (CommandResult{kInUse, "", "devconf: others are using the store; verify needs it alone\n"}));
  EXPECT_EQ(Get(g_uDb.tb_pb, "Ann"), "123;x");
}

TEST_F(VerifyOf, AStoreWhoseLastUserWasKilled_RecoversItBefore) {
  Fill();
  Child victim([this] {
    Open();
    if (BerkDb_Set(g_uDb.tb_pb, "Late", "1") != 0) return 1;
    ::raise(SIGKILL);
    return 1;
  });
  ASSERT_EQ(victim.Wait(), 1000 + SIGKILL);
  EXPECT_EQ(Print({"verify"}), "clean\n");
  EXPECT_EQ(Print({"pb", "find", "5283"}), "5283\tLate\t1\n");
}

TEST_F(VerifyOf, AStoreAndThenAProgram_GoesOnAsBefore) {
  Fill();
  const Records before = Dump("tb_pb");
  Print({"verify"});
  EXPECT_EQ(Dump("tb_pb"), before);
  Open();
  EXPECT_EQ(Get(g_uDb.tb_pb, "Ann"), "123;x");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Ann", "5"), 0);
}

}  // namespace
