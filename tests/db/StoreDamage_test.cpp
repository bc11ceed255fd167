// SPDX-License-Identifier: MIT
// Damaged files: each page of the tables' file and each part of each log file is damaged in turn. Damage is detected
// or harmless, and a store that is refused is not changed. DEVSUPPORT_STORE_ROUNDS=10 tries each tenth.

#include <db.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devsupport::test;
namespace fs = std::filesystem;

constexpr std::size_t kPageBytes = 2048;

using Tables = std::map<std::string, Records>;

// The result of opening a damaged store.
enum Outcome : int {
  kAsBefore = 0,  // all records are there and nothing was printed
  kSaid = 1,      // opened with a message
  kRefused = 2,   // not opened, with a message
  kChangedInSilence = 3,
  kRefusedInSilence = 4,
  kWorked = 5,  // changed files although it refused
};

std::map<std::string, std::string> Files(const std::string &home) {
  std::map<std::string, std::string> files;
  for (const auto &entry : fs::directory_iterator(home)) {
    const std::string name = entry.path().filename();
    if (name == "config.db" || name.starts_with("log.")) files[name] = FileText(entry.path());
  }
  return files;
}

class Damage : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (IsSkipped()) return;
    original_ = home_ + "/original";
    damaged_ = home_ + "/damaged";
    ASSERT_EQ(::mkdir(original_.c_str(), 0700), 0);
  }

  void TearDown() override {
    if (copies_ != 0) std::cout << copies_ << " damaged copies\n";
    StoreTest::TearDown();
  }

  /// Makes the store whose copies are damaged. It is closed in order when it is to be sealed; otherwise its process is
  /// killed.
  void Make(bool sealed) {
    Child maker([&] {
      if (BerkDb_Open(original_.c_str(), nullptr, nullptr) != 1) return 2;
      Write(1);
      BerkDb_Close();
      if (BerkDb_Open(original_.c_str(), nullptr, nullptr) != 1) return 3;
      Write(2);
      if (sealed) BerkDb_Close();
      return sealed ? 0 : ::raise(SIGKILL);
    });
    ASSERT_EQ(maker.Wait(), sealed ? 0 : 1000 + SIGKILL);
    // Reads the records from a copy, since the original must not be opened again.
    Copy();
    ASSERT_EQ(BerkDb_Open(damaged_.c_str(), nullptr, nullptr), 1);
    expected_ = ReadAllTables();
    BerkDb_Close();
    ASSERT_GT(fs::file_size(original_ + "/config.db") / kPageBytes, 40U);
  }

  /// Opens a copy with some damage in a process that may use 20 s of the processor and 16 MiB of a file.
  Outcome OpenWith(const std::function<void(const std::string &home)> &damage) {
    Copy();
    damage(damaged_);
    ++copies_;
    const auto before = Files(damaged_);
    Child opener([&] {
      const rlimit processor = {20, 20};
      const rlimit file = {16 << 20, 16 << 20};
      ::setrlimit(RLIMIT_CPU, &processor);
      ::setrlimit(RLIMIT_FSIZE, &file);
      return Judge();
    });
    const int status = opener.Wait();
    EXPECT_LE(status, kRefusedInSilence) << "did not end by itself";
    if (status == kRefused && Files(damaged_) != before) return kWorked;
    return static_cast<Outcome>(status);
  }

  std::vector<std::string> Logs() const {
    std::vector<std::string> logs;
    for (const auto &[name, text] : Files(original_)) {
      if (name.starts_with("log.")) logs.push_back(name);
    }
    return logs;
  }

  std::string original_;
  std::string damaged_;

 private:
  static void Write(int round) {
    for (int i = 0; i < 120; ++i) {
      const std::string number = std::to_string(i);
      const std::string value = std::to_string(i * round) + ";" + std::string(200, 'v');
      BerkDb_Set(g_uDb.tb_parameter, ("name " + number).c_str(), value.c_str());
      if (i % 3 == 0) BerkDb_Set(g_uDb.tb_pb, ("Bob " + number).c_str(), value.c_str());
      if (i % 4 == 0) BerkDb_Put(g_uDb.tb_route, (number + "0 route").c_str(), value.c_str(), 20);
      if (i % 5 == 0) BerkDb_Put(g_uDb.tb_dm, number.c_str(), value.c_str(), 100);
    }
    BerkDb_Del(g_uDb.tb_parameter, "name 7");
  }

  void Copy() const {
    fs::remove_all(damaged_);
    fs::copy(original_, damaged_, fs::copy_options::recursive);
  }

  int Judge() const {
    CapturedOutput err(stderr);
    const bool opened = BerkDb_Open(damaged_.c_str(), nullptr, nullptr) == 1;
    const bool silent = err.Take().empty();
    if (!opened) return silent ? kRefusedInSilence : kRefused;
    const bool same = ReadAllTables() == expected_;
    BerkDb_Close();
    if (!silent) return kSaid;
    return same ? kAsBefore : kChangedInSilence;
  }

  Tables expected_;
  int copies_ = 0;
};

void Overwrite(const std::string &path, std::size_t at, const std::string &bytes) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(at));
  file << bytes;
}

void FlipAt(const std::string &path, std::size_t at) {
  const std::string text = FileText(path);
  Overwrite(path, at, std::string(1, static_cast<char>(text[at] ^ 0x10)));
}

std::size_t SizeOf(const std::string &path) { return static_cast<std::size_t>(fs::file_size(path)); }

std::size_t Pages(const std::string &home) { return SizeOf(home + "/config.db") / kPageBytes; }

void ZeroPage(const std::string &home, std::size_t page) {
  Overwrite(home + "/config.db", page * kPageBytes, std::string(kPageBytes, '\0'));
}

std::size_t Every() { return static_cast<std::size_t>(Stride()); }

bool IsNoticed(Outcome outcome) { return outcome == kSaid || outcome == kRefused; }

TEST_F(Damage, AnyPageOfASealedStore_IsNoticed) {
  ASSERT_NO_FATAL_FAILURE(Make(true));
  for (std::size_t page = 0; page < Pages(original_); page += Every()) {
    const Outcome zeroed = OpenWith([page](const std::string &home) { ZeroPage(home, page); });
    const bool wasZero =
        FileText(original_ + "/config.db").substr(page * kPageBytes, kPageBytes) == std::string(kPageBytes, '\0');
    EXPECT_TRUE(IsNoticed(zeroed) || wasZero) << "page " << page << ": " << zeroed;
    const Outcome flipped = OpenWith(
        [page](const std::string &home) { FlipAt(home + "/config.db", page * kPageBytes + page * 37 % kPageBytes); });
    EXPECT_TRUE(IsNoticed(flipped)) << "a byte of page " << page << ": " << flipped;
  }
}

TEST_F(Damage, AnyPartOfASealedLog_IsRefused) {
  ASSERT_NO_FATAL_FAILURE(Make(true));
  const std::vector<std::string> logs = Logs();
  ASSERT_GE(logs.size(), 1U);
  for (const std::string &log : logs) {
    const std::size_t bytes = SizeOf(original_ + "/" + log);
    for (std::size_t at = 0; at < bytes; at += Every() * (bytes / 16 + 1)) {
      EXPECT_EQ(OpenWith([&](const std::string &home) { FlipAt(home + "/" + log, at); }), kRefused)
          << log << ", " << at;
      EXPECT_EQ(OpenWith([&](const std::string &home) { fs::resize_file(home + "/" + log, at); }), kRefused)
          << log << " cut at " << at;
    }
    EXPECT_EQ(OpenWith([&](const std::string &home) { fs::remove(home + "/" + log); }), kRefused)
        << log << " is gone";
  }
}

TEST_F(Damage, AnyZeroedPageOfAStoreThatWasNotClosed_IsDetectedOrHarmless) {
  ASSERT_NO_FATAL_FAILURE(Make(false));
  int harmless = 0;
  const std::size_t pages = Pages(original_);
  for (std::size_t page = 0; page < pages; page += Every()) {
    const Outcome outcome = OpenWith([page](const std::string &home) { ZeroPage(home, page); });
    EXPECT_TRUE(IsNoticed(outcome) || outcome == kAsBefore) << "page " << page << ": " << outcome;
    if (outcome == kAsBefore) ++harmless;
  }
  std::cout << harmless << " of " << pages << " pages came back from the log\n";
}

TEST_F(Damage, OfTheSealAlone_IsHarmless) {
  ASSERT_NO_FATAL_FAILURE(Make(true));
  const std::string seal = "/config.db.seal";
  ASSERT_TRUE(fs::exists(original_ + seal));
  const std::size_t bytes = SizeOf(original_ + seal);
  for (std::size_t at = 0; at < bytes; at += 5 * Every()) {
    const Outcome outcome = OpenWith([&](const std::string &home) { FlipAt(home + seal, at); });
    EXPECT_TRUE(outcome == kAsBefore || outcome == kRefused || outcome == kSaid) << at << ": " << outcome;
  }
  EXPECT_EQ(OpenWith([&](const std::string &home) { fs::remove(home + seal); }), kAsBefore);
  EXPECT_EQ(OpenWith([&](const std::string &home) { fs::resize_file(home + seal, 0); }), kAsBefore);
}

TEST_F(Damage, AnUndamagedCopy_OpensInSilence) {
  ASSERT_NO_FATAL_FAILURE(Make(true));
  EXPECT_EQ(OpenWith([](const std::string &) {}), kAsBefore);
  fs::remove_all(original_);
  ASSERT_EQ(::mkdir(original_.c_str(), 0700), 0);
  ASSERT_NO_FATAL_FAILURE(Make(false));
  EXPECT_EQ(OpenWith([](const std::string &) {}), kAsBefore);
}

TEST_F(Damage, ASeal_ExistsWhileTheStoreIsClosed) {
  ASSERT_EQ(BerkDb_Open(original_.c_str(), nullptr, nullptr), 1);
  const std::string seal = original_ + "/config.db.seal";
  EXPECT_FALSE(fs::exists(seal));
  BerkDb_Close();
  EXPECT_TRUE(fs::exists(seal));
  ASSERT_EQ(BerkDb_Open(original_.c_str(), nullptr, nullptr), 1);
  EXPECT_FALSE(fs::exists(seal));
}

}  // namespace
