// SPDX-License-Identifier: MIT
// The configuration store while its calls fail: what was acknowledged is there afterwards, and the file is clean.
#include <db.h>
#include <devsupport/db/DbParam.h>
#include <devsupport/detail/db/BerkeleyDB.h>
#include <devsupport/logmgr/LogFilter.h>
#include <devsupport/net/WanInterface.h>

#include <filesystem>
#include <functional>
#include <string>

#include "tests/db/Store.h"
#include "tests/faults/Sweep.h"

namespace {

using devsupport::test::AllKinds;
using devsupport::test::FaultKind;
using devsupport::test::Faults;
using devsupport::test::Get;
using devsupport::test::Leftovers;
using devsupport::test::Sweep;
using devsupport::test::SystemCalls;

class StoreFaults : public devsupport::test::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_NO_FATAL_FAILURE(Open());
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob 1", "123;x"), BERKDB_OK);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_route, "123456", "route"), BERKDB_OK);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_parameter, "number", "47"), BERKDB_OK);
    BerkDb_Close();
  }

  /// In an open store: the operation returns whether it worked; then all data must be there, in memory and in the
  /// file.
  void SweepOperation(const std::function<bool()> &operation, const std::function<void(bool worked)> &check) {
    SweepHome([&](Faults &faults) {
      ASSERT_EQ(BerkDb_Open(copy_.c_str(), nullptr, nullptr), 1);
      bool worked = false;
      faults.Strike([&] { worked = operation(); });
      faults.Worked(worked);
      check(worked);
      BerkDb_Close();
      ASSERT_EQ(BerkDb_Open(copy_.c_str(), nullptr, nullptr), 1);
      check(worked);
      ExpectRest();
      BerkDb_Close();
    });
  }

  /// Each time with a copy of the home.
  void SweepHome(const std::function<void(Faults &)> &scenario, const std::vector<FaultKind> &kinds = AllKinds()) {
    Sweep(
        [&](Faults &faults) {
          copy_ = home_ + "/copy";
          std::filesystem::create_directory(copy_);
          for (const auto &entry : std::filesystem::directory_iterator(home_))
            if (entry.is_regular_file()) std::filesystem::copy(entry.path(), copy_);
          scenario(faults);
          std::swap(copy_, home_);
          if (faults.Struck()) {
            EXPECT_TRUE(Verify());
          }
          std::swap(copy_, home_);
          std::filesystem::remove_all(copy_);
        },
        Leftovers::AfterHealing, kinds);  // a store that was made anew keeps the old handles
                                          // (docs/decisions/store-healing.md)
  }

  static void ExpectRest() {
    char name[64] = "";
    char text[64] = "";
    EXPECT_EQ(BerkDb_PGet(g_uDb.stb_pb, "123", 3, name, sizeof name, text, sizeof text), BERKDB_OK);
    EXPECT_STREQ(name, "Bob 1");
    EXPECT_STREQ(text, "123;x");
    EXPECT_EQ(Get(g_uDb.tb_route, "123456"), "route");
  }

  std::string copy_;
};

TEST_F(StoreFaults, Opening_FailsInTurn) {
  SweepHome([&](Faults &faults) {
    std::int32_t code = -4711;
    int opened = -1;
    faults.Strike([&] { opened = BerkDb_Open(copy_.c_str(), nullptr, &code); });
    EXPECT_EQ(opened == 1, code == 0);
    // An index that could not be bound finds nothing; the result of binding is ignored.
    if (faults.Worked(opened == 1)) {
      EXPECT_EQ(Get(g_uDb.tb_pb, "Bob 1"), "123;x");
    }
    faults.Strike([] { BerkDb_Close(); });
    ASSERT_EQ(BerkDb_Open(copy_.c_str(), nullptr, nullptr), 1);
    ExpectRest();
    BerkDb_Close();
  });
}

TEST_F(StoreFaults, OpeningWithoutTables_FailsInTurn) {
  SweepHome(
      [&](Faults &faults) {
        int opened = -1;
        faults.Strike([&] { opened = _BerkDb_CreateEnvir(copy_.c_str()); });
        faults.Worked(opened == 1);
        BerkDb_Close();
        ASSERT_EQ(BerkDb_Open(copy_.c_str(), nullptr, nullptr), 1);
        ExpectRest();
        BerkDb_Close();
      },
      {{devsupport::test::CallKind::Memory, false}});  // the other kinds are tested where tables are opened
}

TEST_F(StoreFaults, Making_FailsInTurn) {
  SweepHome([&](Faults &faults) {
    for (const auto &entry : std::filesystem::directory_iterator(copy_)) std::filesystem::remove(entry);
    std::int32_t code = -4711;
    int opened = -1;
    int set = -1;
    faults.Strike([&] {
      opened = BerkDb_Open(copy_.c_str(), nullptr, &code);
      if (opened == 1) set = BerkDb_Set(g_uDb.tb_tone, "k", "v");
      BerkDb_Close();
    });
    EXPECT_EQ(opened == 1, code == 0);
    ASSERT_EQ(BerkDb_Open(copy_.c_str(), nullptr, nullptr), 1);
    if (faults.Worked(set == BERKDB_OK)) {
      EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "v");
    }
    BerkDb_Close();
  });
}

TEST_F(StoreFaults, Storing_FailsInTurn) {
  SweepOperation([] { return BerkDb_Set(g_uDb.tb_pb, "Ann", "7;y") == BERKDB_OK; },
                 [](bool worked) {
                   const std::string found = Get(g_uDb.tb_pb, "Ann");
                   EXPECT_TRUE(found == "7;y" || (!worked && found == "<7>")) << found;
                 });
}

TEST_F(StoreFaults, Putting_FailsInTurn) {
  SweepOperation(
      [] {
        return BerkDb_PutStr(g_uDb.tb_line, "1", "a") == 1 && BerkDb_Put(g_uDb.tb_line, "2", "b", 2) == BERKDB_OK;
      },
      [](bool worked) {
        char text[8] = "";
        if (worked) {
          EXPECT_EQ(BerkDb_GetStr(g_uDb.tb_line, "1", text, sizeof text), 1);
          EXPECT_STREQ(text, "a");
          EXPECT_EQ(Get(g_uDb.tb_line, "2"), "b");
        }
      });
}

TEST_F(StoreFaults, Deleting_FailsInTurn) {
  SweepOperation([] { return BerkDb_Del(g_uDb.tb_parameter, "number") == BERKDB_OK; },
                 [](bool worked) {
                   const std::string found = Get(g_uDb.tb_parameter, "number");
                   EXPECT_TRUE(found == "<7>" || (!worked && found == "47")) << found;
                 });
}

TEST_F(StoreFaults, Reading_FailsInTurn) {
  SweepOperation(
      [] {
        char primary[64] = "";
        char text[64] = "";
        const int byName = BerkDb_Get(g_uDb.tb_pb, "Bob 1", text, sizeof text);
        EXPECT_TRUE(byName != BERKDB_OK || std::string(text) == "123;x") << text;
        const int byNumber = BerkDb_PGet(g_uDb.stb_pb, "123", 3, primary, sizeof primary, text, sizeof text);
        EXPECT_TRUE(byNumber != BERKDB_OK || std::string(primary) == "Bob 1") << primary;
        const int byBytes = BerkDb_Read(g_uDb.tb_parameter, "number", text, sizeof text);
        EXPECT_NE(byName, BERKDB_NOT_FOUND);
        EXPECT_NE(byNumber, BERKDB_NOT_FOUND);
        EXPECT_NE(byBytes, BERKDB_NOT_FOUND);
        return byName == BERKDB_OK && byNumber == BERKDB_OK && byBytes == BERKDB_OK;
      },
      [](bool) {});
}

TEST_F(StoreFaults, Searching_FailsInTurn) {
  SweepOperation(
      [] {
        TDbFindRec records[4];
        std::int32_t count = 4;
        const int code = BerkDb_FindPrefix(g_uDb.stb_pb, "1", records, &count);
        const bool found = code == BERKDB_OK && count == 1;
        EXPECT_TRUE(!found || std::string(records[0].szData) == "123;x");
        return found;  // a failed step ends the walk without an error; that is the contract
      },
      [](bool) {});
}

TEST_F(StoreFaults, WalkingWithACursor_FailsInTurn) {
  SweepOperation(
      [] {
        DBC *cursor = nullptr;
        char key[64] = "";
        char text[64] = "";
        int result = -4711;
        const int code =
            BerkDb_CursorGet(g_uDb.tb_parameter, &cursor, key, sizeof key, text, sizeof text, DB_FIRST, &result);
        const bool read = code == BERKDB_OK && result == 0;
        EXPECT_TRUE(!read || (std::string(key) == "number" && std::string(text) == "47"));
        const bool closed = cursor != nullptr && BerkDb_CursorClose(cursor) == 1;
        return read && closed;
      },
      [](bool) {});
}

TEST_F(StoreFaults, ReadingParameters_FailsInTurn) {
  SweepOperation(
      [] {
        char text[8] = "";
        GetDbParamToStr("number", text, sizeof text, "none");
        const int number = GetDbParamToInt("number", 11);
        const int level = GetDbLogParam("dbl", "x", 5);
        int filterLevel = -1;
        std::uint32_t filterMask = 0;
        LogInfo_LoadFilter("x", &filterLevel, &filterMask);
        char address[16] = "";
        char interface[16] = "";
        GetWanIp(address, interface);
        EXPECT_TRUE(std::string(text) == "47" || std::string(text) == "none") << text;
        EXPECT_TRUE(number == 47 || number == 11) << number;
        EXPECT_EQ(level, 5);
        return std::string(text) == "47" && number == 47;
      },
      [](bool) {});
}

TEST_F(StoreFaults, AFileByItself_FailsInTurn) {
  SweepHome(
      [&](Faults &faults) {
        const std::string path = copy_ + "/alone.db";
        bool opened = false;
        bool stored = false;
        bool closed = false;
        faults.Strike([&] {
          DB *db = BerkDb_OpenFile(path.c_str(), 0);
          opened = db != nullptr;
          if (!opened) return;
          stored = BerkDb_Put(db, "k", "v", 2) == BERKDB_OK;
          closed = BerkDb_CloseFile(&db) == 1;
        });
        if (!faults.Worked(opened && stored && closed)) return;
        DB *db = BerkDb_OpenFile(path.c_str(), 0);
        ASSERT_NE(db, nullptr);
        EXPECT_EQ(Get(db, "k"), "v");
        BerkDb_CloseFile(&db);
      },
      SystemCalls());  // Berkeley DB ends a process that has no memory for such a file
}

}  // namespace
