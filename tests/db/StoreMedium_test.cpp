// SPDX-License-Identifier: MIT
// The store on a medium that becomes full: acknowledged changes are kept, reading works, and writing works when there
// is space again. DEVSUPPORT_STORE_SIZES=1 tries each amount of free space; by default it is each seventh, from a
// random one on.

#include <db.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <iostream>
#include <optional>
#include <string>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/SharedBlock.h"
#include "tests/support/SmallMedium.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devsupport::test;

constexpr std::size_t kMediumBytes = std::size_t{4} << 20;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kMostFree = 90 * kPage;
constexpr int kMostWrites = 600;

// The acknowledged changes, in memory that remains after the writers have ended.
using Acknowledged = SharedBlock<std::array<std::atomic<bool>, kMostWrites>>;

std::string KeyOf(int number) { return "key " + std::to_string(number); }
std::string ValueOf(int number) {
  return std::to_string(number) + std::string(static_cast<std::size_t>(number * 37 % 700), 'v');
}
bool Holds(int number) {
  char value[1024] = "";
  return BerkDb_Get(g_uDb.tb_tone, KeyOf(number).c_str(), value, sizeof value) == BERKDB_OK &&
         value == ValueOf(number);
}

class Medium : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    if (!SmallMedium::CanMake()) GTEST_SKIP() << "needs the right to mount";
  }

  // A store that was used and closed with enough space, on a medium that then has this much space left.
  void Fill(std::size_t freeBytes) {
    medium_.reset();
    medium_.emplace(home_, kMediumBytes);
    Child first([this] {
      Open();
      EXPECT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123;x"), BERKDB_OK);
      BerkDb_Close();
      return 0;
    });
    ASSERT_EQ(first.Wait(), 0);
    medium_->LeaveFree(freeBytes);
  }
  void TearDown() override {
    BerkDb_Close();
    medium_.reset();
    StoreTest::TearDown();
  }

  // The store's messages are shown only when the test fails.
  static int InAProcess(const std::function<void()> &body, bool close) {
    Child process([&] {
      CapturedOutput err(stderr);
      body();
      if (close) BerkDb_Close();
      const std::string said = err.Take();
      if (::testing::Test::HasFailure()) std::cout << said;
      return 0;
    });
    return process.Wait();
  }

  void Read() {
    ASSERT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1);
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob"), "123;x");
  }

  // Writes until writes fail, and then some more. Ends with or without closing.
  void WriteUntilFull(Acknowledged &acknowledged) {
    ASSERT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1);
    int refused = 0;
    for (int i = 0; i < kMostWrites && refused < 8; ++i) {
      const std::string value = ValueOf(i);
      const int code = i % 2 == 0 ? BerkDb_Set(g_uDb.tb_tone, KeyOf(i).c_str(), value.c_str())
                                  : BerkDb_Put(g_uDb.tb_tone, KeyOf(i).c_str(), value.c_str(),
                                               static_cast<std::int32_t>(value.size() + 1));
      ASSERT_TRUE(code == BERKDB_OK || code == BERKDB_ERROR) << code;
      (*acknowledged)[static_cast<std::size_t>(i)] = code == BERKDB_OK;
      ASSERT_TRUE(code != BERKDB_OK || Holds(i)) << i;
      if (code == BERKDB_ERROR) ++refused;
      ASSERT_EQ(Get(g_uDb.tb_pb, "Bob"), "123;x") << "after change " << i << ": " << code;
    }
    ASSERT_NE(refused, 0);
  }

  ::testing::AssertionResult HoldsAll(const Acknowledged &acknowledged) {
    for (int i = 0; i < kMostWrites; ++i) {
      if ((*acknowledged)[static_cast<std::size_t>(i)] && !Holds(i)) {
        return ::testing::AssertionFailure() << KeyOf(i) << " was acknowledged and is gone";
      }
    }
    return ::testing::AssertionSuccess();
  }

  // After a restart: reads on the full medium, then writes when there is room again.
  void GoOnAfterwards(const Acknowledged &acknowledged) {
    ASSERT_EQ(BerkDb_Open(home_.c_str(), nullptr, nullptr), 1);
    EXPECT_TRUE(HoldsAll(acknowledged));
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob"), "123;x");
    medium_->MakeRoom();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "room", "again"), BERKDB_OK);
    Reopen();
    EXPECT_TRUE(HoldsAll(acknowledged));
    EXPECT_EQ(Get(g_uDb.tb_tone, "room"), "again");
  }

  std::optional<SmallMedium> medium_;
};

TEST_F(Medium, OfAnySize_KeepsAcknowledgedChangesAndWorksWhenThereIsSpace) {
  const TestSeed seed;
  const auto every = static_cast<std::size_t>(Count("DEVSUPPORT_STORE_SIZES", 7) * Stride());
  int sizes = 0;
  for (auto pages = static_cast<std::size_t>(seed % every); pages * kPage <= kMostFree; pages += every, ++sizes) {
    SCOPED_TRACE(std::to_string(pages) + " pages free");
    ASSERT_NO_FATAL_FAILURE(Fill(pages * kPage));
    Acknowledged acknowledged;
    // Every second writer ends without closing.
    ASSERT_EQ(InAProcess([&] { WriteUntilFull(acknowledged); }, pages % 2 == 0), 0);
    ASSERT_EQ(InAProcess([this] { Read(); }, true), 0) << "another process cannot read";
    ASSERT_EQ(InAProcess([&] { GoOnAfterwards(acknowledged); }, true), 0);
    EXPECT_TRUE(Verify());
  }
  EXPECT_GT(sizes, 0);
  std::cout << sizes << " amounts of free room\n";
}

TEST_F(Medium, ThatIsFullWhenTheLibraryGivesUp_GetsTheReserve) {
  ASSERT_NO_FATAL_FAILURE(Fill(kMostFree));
  const std::string reserve = home_ + "/store.reserve";
  Open();
  medium_->LeaveFree(2 * kPage);
  EXPECT_EQ(::access(reserve.c_str(), F_OK), 0);
  CapturedOutput err(stderr);
  BerkDb_GetEnv()->set_flags(BerkDb_GetEnv(), DB_PANIC_ENVIRONMENT, 1);
  EXPECT_EQ(Get(g_uDb.tb_pb, "Bob"), "123;x");
  EXPECT_NE(::access(reserve.c_str(), F_OK), 0);
  medium_->MakeRoom();
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "room", "again"), BERKDB_OK);
}

TEST_F(Medium, ThatIsFull_CanBeReadAndCanBeWrittenWhenThereIsSpace) {
  ASSERT_NO_FATAL_FAILURE(Fill(20 * kPage));
  Acknowledged acknowledged;
  Event opened;
  Event full;
  Event room;
  Child other([&] {
    CapturedOutput err(stderr);
    Open();
    opened.Announce();
    full.Wait();
    EXPECT_EQ(Get(g_uDb.tb_pb, "Bob"), "123;x") << err.Take();
    EXPECT_TRUE(HoldsAll(acknowledged)) << err.Take();
    opened.Announce();
    room.Wait();
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "other", "writes"), BERKDB_OK) << err.Take();
    BerkDb_Close();
    return 0;
  });
  opened.Wait();
  ASSERT_EQ(InAProcess([&] { WriteUntilFull(acknowledged); }, true), 0);
  full.Announce();
  opened.Wait();
  medium_->MakeRoom();
  room.Announce();
  EXPECT_EQ(other.Wait(), 0);
  Open();
  EXPECT_TRUE(HoldsAll(acknowledged));
  EXPECT_EQ(Get(g_uDb.tb_tone, "other"), "writes");
}

}  // namespace
