// SPDX-License-Identifier: MIT
// The files of a home in unusual forms: seals with a right checksum that the store never writes, other things at the
// names of its files, a tables' file in the other byte order, and the bounds of what the system gives.

#include <db.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <utility>

#include "db/for_project/LibraryHooks.h"
#include "db/for_project/Processes.h"
#include "db/for_project/StoreReserve.h"
#include "db/for_project/StoreSeal.h"
#include "tests/db/Deaths.h"
#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devsupport::test;
namespace fs = std::filesystem;
namespace store = devsupport::store;

const std::string kFirstLine = "devsupport store seal 1\n";

std::uint32_t Crc32(const std::string &text) {
  std::uint32_t crc = ~0U;
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
  }
  return ~crc;
}

/// A seal of this text, with the right last line.
std::string Sealed(const std::string &text) {
  char end[16];
  std::snprintf(end, sizeof end, "end %08x\n", Crc32(text));
  return text + end;
}

/// The line of a file in a seal.
std::string LineOf(const std::string &home, const std::string &name) {
  const std::string text = FileText(home + "/" + name);
  char line[64];
  std::snprintf(line, sizeof line, "%zu %08x ", text.size(), Crc32(text));
  return line + name + "\n";
}

void WriteText(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

class StoreFiles : public StoreTest {
 protected:
  /// A store that was closed in order, with one value.
  void Make() {
    Open();
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_tone, "k", "kept"), BERKDB_OK);
    ASSERT_EQ(BerkDb_Set(g_uDb.tb_pb, "Bob", "123;x"), BERKDB_OK);
    BerkDb_Close();
    ASSERT_TRUE(fs::exists(Path("config.db.seal")));
  }

  /// Opens the store and expects this text, the value and a change that is kept.
  void ExpectWorks(const std::string &printed = "") {
    EXPECT_EQ(TryToOpen(home_), (Opening{1, 0, printed}));
    EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "kept");
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "new", "v"), BERKDB_OK);
    Reopen();
    EXPECT_EQ(Get(g_uDb.tb_tone, "new"), "v");
    BerkDb_Close();
    ExpectSoundFile();
  }

  void ExpectRefused(const std::string &damaged) {
    const Opening opening = TryToOpen(home_);
    EXPECT_EQ(opening.opened, 0);
    EXPECT_EQ(opening.code, BERKDB_OPEN_ENVIRONMENT);
    EXPECT_EQ(opening.printed.find(damaged + " in " + home_ + " is damaged"), 0U) << opening.printed;
    BerkDb_Close();
  }

  std::string Path(const std::string &name) const { return home_ + "/" + name; }

  std::string Changed() const {
    return "config.db in " + home_ + " was changed since the store was closed; its pages are whole" + kSourceLine;
  }

  /// The name of the only log file.
  std::string Log() const {
    for (const auto &entry : fs::directory_iterator(home_)) {
      if (entry.path().filename().string().starts_with("log.")) return entry.path().filename();
    }
    return "no log";
  }
};

// --- seals in other forms

struct Form {
  const char *name;
  std::string (*text)(const std::string &tables, const std::string &log);
  friend void PrintTo(const Form &form, std::ostream *out) { *out << form.name; }
};

/// Each names the log with a wrong checksum, so that the store is refused when the seal is taken for one.
const Form kForms[] = {
    {"WithAnotherFirstLine",
     [](const auto &tables, const auto &log) { return Sealed("devsupport store seal 2\n" + tables + log); }},
    {"WithALineWithoutNumbers",
     [](const auto &tables, const auto &log) { return Sealed(kFirstLine + tables + log + "size checksum name\n"); }},
    {"WithALineWithoutAChecksum",
     [](const auto &tables, const auto &log) { return Sealed(kFirstLine + tables + log + "7\n"); }},
    {"WithANul", [](const auto &tables,
                    const auto &log) { return Sealed(kFirstLine + tables + log + std::string(1, '\0') + tables); }},
    {"WithoutALineFeedBeforeItsEnd",
     [](const auto &tables, const auto &log) { return Sealed(kFirstLine + tables + log.substr(0, log.size() - 1)); }},
    {"OfAFileWithoutAName", [](const auto &, const auto &log) { return Sealed(kFirstLine + log + "0 00000000\n"); }},
};

class SealForm : public StoreFiles, public ::testing::WithParamInterface<Form> {};

TEST_P(SealForm, ThatTheStoreNeverWrites_IsNoSeal) {
  ASSERT_NO_FATAL_FAILURE(Make());
  const std::string tables = LineOf(home_, "config.db");
  const std::string log = "5 00000000 " + Log() + "\n";
  WriteText(Path("config.db.seal"), Sealed(kFirstLine + tables + log));
  ExpectRefused(Log());
  WriteText(Path("config.db.seal"), GetParam().text(tables, log));
  ExpectWorks();
}

INSTANTIATE_TEST_SUITE_P(Seal, SealForm, ::testing::ValuesIn(kForms),
                         [](const auto &form) { return form.param.name; });

TEST_F(StoreFiles, ASealOfAnotherFileWithAVeryLongName_HasThePagesChecked) {
  ASSERT_NO_FATAL_FAILURE(Make());
  WriteText(Path("config.db.seal"),
            Sealed(kFirstLine + LineOf(home_, Log()) + "7 00000000 " + std::string(PATH_MAX + 100, 'x') + "\n"));
  ExpectWorks(Changed());
}

TEST_F(StoreFiles, AFolderInPlaceOfTheSeal_IsRefusedAndNamed) {
  ASSERT_NO_FATAL_FAILURE(Make());
  fs::remove(Path("config.db.seal"));
  ASSERT_EQ(::mkdir(Path("config.db.seal").c_str(), 0700), 0);
  EXPECT_EQ(TryToOpen(home_), RefusedOpening(home_, "Is a directory"));
  BerkDb_Close();
  fs::remove(Path("config.db.seal"));
  ExpectWorks();
}

TEST_F(StoreFiles, AFolderInPlaceOfASealedLog_IsDamage) {
  ASSERT_NO_FATAL_FAILURE(Make());
  const std::string log = Log();
  fs::rename(Path(log), Path("moved"));
  ASSERT_EQ(::mkdir(Path(log).c_str(), 0700), 0);
  ExpectRefused(log);
  fs::remove(Path(log));
  fs::rename(Path("moved"), Path(log));
  ExpectWorks();
}

TEST_F(StoreFiles, AFileWithNearlyTheNameOfALog_IsNoLog) {
  ASSERT_NO_FATAL_FAILURE(Make());
  for (const char *const name : {"log.00000x0001", "log.1", "lot.0000000002"}) WriteText(Path(name), "a user's");
  ExpectWorks();
  EXPECT_EQ(FileText(Path("config.db.seal")).find("x0001"), std::string::npos);
}

TEST_F(StoreFiles, ALogThatIsLongerThanSealed_IsRecovered) {
  ASSERT_NO_FATAL_FAILURE(Make());
  fs::resize_file(Path(Log()), fs::file_size(Path(Log())) + 100);
  ExpectWorks();
}

TEST_F(StoreFiles, LogsAfterTheLastSealedOne_AreRecovered) {
  ASSERT_NO_FATAL_FAILURE(Make());
  WriteText(Path("config.db.seal"), Sealed(kFirstLine + LineOf(home_, "config.db") + "5 00000000 log.0000000001\n"));
  ExpectWorks();
}

TEST_F(StoreFiles, ATablesFileThatIsLongerThanSealed_IsDamage) {
  ASSERT_NO_FATAL_FAILURE(Make());
  const auto bytes = fs::file_size(FilePath());
  fs::resize_file(FilePath(), bytes + 2048);
  ExpectRefused("config.db");
  fs::resize_file(FilePath(), bytes);
  ExpectWorks();
}

TEST_F(StoreFiles, OtherThingsNamedAsSeals_Stay) {
  ASSERT_NO_FATAL_FAILURE(Make());
  WriteText(Path("notes.seal"), "a user's");
  ASSERT_EQ(::mkdir(Path("folder.seal").c_str(), 0700), 0);
  fs::create_symlink("nowhere", Path("link.seal"));
  ExpectWorks();
  EXPECT_EQ(FileText(Path("notes.seal")), "a user's");
  EXPECT_TRUE(fs::exists(Path("folder.seal")));
  EXPECT_TRUE(fs::is_symlink(Path("link.seal")));
}

// --- closing without a seal

TEST_F(StoreFiles, WithVeryManyLogs_IsClosedUnsealedAndOpens) {
  ASSERT_NO_FATAL_FAILURE(Make());
  Open();
  const auto nameOf = [this](int number) { return Path("log.900000" + std::to_string(number)); };
  for (int i = 1000; i < 2200; ++i) WriteText(nameOf(i), "");
  BerkDb_Close();
  EXPECT_FALSE(fs::exists(Path("config.db.seal")));
  for (int i = 1000; i < 2200; ++i) fs::remove(nameOf(i));
  ExpectWorks();
  EXPECT_TRUE(fs::exists(Path("config.db.seal")));
}

TEST_F(StoreFiles, WithAFolderNamedAsALog_IsClosedUnsealedAndOpens) {
  ASSERT_NO_FATAL_FAILURE(Make());
  Open();
  ASSERT_EQ(::mkdir(Path("log.9000000000").c_str(), 0700), 0);
  BerkDb_Close();
  EXPECT_FALSE(fs::exists(Path("config.db.seal")));
  fs::remove(Path("log.9000000000"));
  ExpectWorks();
}

TEST_F(StoreFiles, ASealThatCannotBeWrittenWhole_LeavesNothing) {
  ASSERT_NO_FATAL_FAILURE(Make());
  fs::remove(Path("config.db.seal"));
  Child writer([this] {
    ::signal(SIGXFSZ, SIG_IGN);
    const int home = ::open(home_.c_str(), O_RDONLY | O_DIRECTORY);
    for (const auto &[bytes, error] : {std::pair{rlim_t{10}, ENOSPC}, {rlim_t{0}, EFBIG}}) {
      const rlimit limit = {bytes, RLIM_INFINITY};
      ::setrlimit(RLIMIT_FSIZE, &limit);
      EXPECT_EQ(store::WriteSeal(home, "config.db"), error) << bytes;
      EXPECT_FALSE(fs::exists(Path("config.db.seal")) || fs::exists(Path("config.db.seal.new")));
    }
    EXPECT_EQ(store::WriteSeal(home, "missing.db"), ENOENT);
    const rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return 0;
  });
  EXPECT_EQ(writer.Wait(), 0);
  ExpectWorks();
}

TEST_F(StoreFiles, APathOfNearlyThePossibleLength_WorksWithoutASeal) {
  ASSERT_NO_FATAL_FAILURE(Make());
  std::string file = home_ + "/";
  while (file.size() + 12 < PATH_MAX) file += "./";
  file += "config.db";
  fs::remove(Path("config.db.seal"));
  ASSERT_EQ(BerkDb_Open(home_.c_str(), file.c_str(), nullptr), 1);
  EXPECT_EQ(Get(g_uDb.tb_tone, "k"), "kept");
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "long", "v"), BERKDB_OK);
  BerkDb_Close();
  EXPECT_FALSE(fs::exists(Path("config.db.seal")));
  ExpectWorks();
}

// --- other things at the names of the files

TEST_F(StoreFiles, ALinkOrAnUnfinishedFileInPlaceOfTheReserve_IsReplaced) {
  ASSERT_NO_FATAL_FAILURE(Make());
  WriteText(Path("foreign"), "a user's");
  const std::string reserve = Path("store.reserve");
  for (const bool link : {true, false}) {
    fs::remove(reserve);
    if (link) {
      fs::create_symlink(Path("foreign"), reserve);
    } else {
      WriteText(reserve, "unfinished");
    }
    ExpectWorks();
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(reserve)));
    EXPECT_EQ(fs::file_size(reserve), 128U * 1024);
  }
  EXPECT_EQ(FileText(Path("foreign")), "a user's");
}

TEST_F(StoreFiles, InTheOtherByteOrder_AreCheckedAndRead) {
  ASSERT_NO_FATAL_FAILURE(Make());
  // In a folder without an environment, which the programs would join.
  ASSERT_EQ(::mkdir(Path("swapped").c_str(), 0700), 0);
  const std::string convert = "cd " + Path("swapped") +
                              " && for table in $(db5.3_dump -l ../config.db); do db5.3_dump -s $table ../config.db |"
                              " db5.3_load -c db_lorder=4321 -c database=$table config.db || exit 1; done";
  ASSERT_EQ(std::system(convert.c_str()), 0);  // NOLINT(cert-env33-c)
  const std::string swapped = FileText(Path("swapped/config.db"));
  ASSERT_EQ(swapped.substr(12, 4), Raw("\x00\x05\x31\x62"));
  WriteText(FilePath(), swapped.substr(0, swapped.size() - 2048) + std::string(2048, 'x'));
  ExpectRefused("config.db");
  WriteText(FilePath(), swapped);
  ExpectWorks(Changed());
}

// --- the bounds of what the system gives

TEST_F(StoreFiles, AtTheLargestSizeOfAFile_LoseNothingAndWorkWhenThatIsRaised) {
  ASSERT_NO_FATAL_FAILURE(Make());
  Child limited([this] {
    ::signal(SIGXFSZ, SIG_IGN);
    Open();
    const rlimit limit = {80 << 10, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const std::string value(200, 'v');
    int stored = 0;
    CapturedOutput err(stderr);
    while (stored < 600 && BerkDb_Set(g_uDb.tb_tone, std::to_string(stored).c_str(), value.c_str()) == BERKDB_OK) {
      ++stored;
    }
    EXPECT_LT(stored, 600);
    const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &none);
    EXPECT_EQ(BerkDb_Set(g_uDb.tb_tone, "raised", "v"), BERKDB_OK);
    for (int i = 0; i < stored; ++i) EXPECT_EQ(Get(g_uDb.tb_tone, std::to_string(i).c_str()), value) << i;
    BerkDb_Close();
    return 0;
  });
  EXPECT_EQ(limited.Wait(), 0);
  ExpectWorks();
}

TEST(StoreReserve, IsUsedWhenAMediumAQuotaOrAFileIsFull) {
  for (const int error : {ENOSPC, EDQUOT, EFBIG}) EXPECT_TRUE(store::IsMediumFull(error)) << error;
  for (const int error : {0, EIO, ENOMEM}) EXPECT_FALSE(store::IsMediumFull(error)) << error;
}

TEST(StoreProcesses, AnotherProcessWithTheSameNumber_IsNotTheOneThatIsMeant) {
  const std::uint64_t start = store::StartOf(::getpid());
  ASSERT_NE(start, 0U);
  EXPECT_TRUE(store::IsAlive(::getpid(), start));
  EXPECT_TRUE(store::IsAlive(::getpid(), 0)) << "the start is unknown";
  EXPECT_FALSE(store::IsAlive(::getpid(), start + 1));
  Child ended([] { return 0; });
  while (!HasEnded(ended)) ::usleep(1000);
  EXPECT_FALSE(store::IsAlive(ended.Pid(), 0)) << "only its status is left";
}

TEST_F(StoreFiles, AFileWithoutAPathInAFolderThatCannotBeRead_IsMade) {
  ASSERT_EQ(::chmod(home_.c_str(), 0333), 0);
  Child maker([this] {
    const bool root = ::geteuid() == 0;
    if (::chdir(home_.c_str()) != 0 || (root && ::seteuid(65534) != 0)) return 1;
    const int file = store::OpenAboveStandard("new", O_CREAT | O_EXCL | O_WRONLY, 0600);
    EXPECT_GE(file, 3);
    EXPECT_LT(::open(".", O_RDONLY), 0);
    return fs::exists(Path("new")) && (!root || ::seteuid(0) == 0) ? 0 : 2;
  });
  EXPECT_EQ(maker.Wait(), 0);
  ::chmod(home_.c_str(), 0700);
}

}  // namespace
