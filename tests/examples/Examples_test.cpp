// SPDX-License-Identifier: MIT
// The programs of examples/, run as users run them. Their whole output is compared.
#include <devsupport/devsupport.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/Child.h"
#include "tests/support/Command.h"
#include "tests/support/TempDir.h"

namespace devsupport::test {
namespace {

/// Runs the body in a private IPC namespace, since the keys of the store, the log channel and the ring are fixed.
/// Failed expectations of the body make the test fail.
void ExpectInPrivateIpc(const std::function<void()> &body) {
  if (!CanMakeNamespaces()) {
    GTEST_SKIP() << "no right to make namespaces";
  }
  EXPECT_EQ(RunInPrivateIpc([&body] {
              body();
              return ::testing::Test::HasFailure() ? 1 : 0;
            }),
            0);
}

void ExpectRun(const std::vector<std::string> &words, int status, const std::string &out,
               const std::string &err = "") {
  EXPECT_EQ(Command(words).Run(), (CommandResult{status, out, err}));
}

TEST(Cache, Full_DropsTheEntryUnusedForTheLongestTime) {
  ExpectRun({CACHE_PATH, "2", "3", "2", "4", "5", "3"}, 0,
            "2: 4, new\n3: 9, new\n2: 4, known\n4: 16, new\n3 makes room\n5: 25, new\n2 makes room\n3: 9, new\n");
}

TEST(Settings, List_IsTakenApartIntoNumbersAndTexts) {
  ExpectRun({SETTINGS_PATH, "name= Bob ;port=5060; empty=; offset = -7;"}, 0,
            "name is the text 'Bob'\nport is the number 5060\nempty is empty\noffset is the number -7\n");
}

TEST(Settings, FieldWithoutNameOrValue_IsReportedAndTheRestIsRead) {
  ExpectRun({SETTINGS_PATH, "=3;junk;a=1"}, 1, "a is the number 1\n",
            "settings: '=3' is not name=value\nsettings: 'junk' is not name=value\n");
}

TEST(PeriodicTimer, ThreeExpiries_AreWorkedOffThreeTimes) {
  ExpectRun({PERIODIC_TIMER_PATH, "3"}, 0, "work 1\nwork 2\nwork 3\n");
}

TEST(SharedRing, WhatOneProcessPuts_AnotherOneSeesAndTakes) {
  ExpectInPrivateIpc([] {
    ExpectRun({SHARED_RING_PATH, "produce", "one", "two"}, 0, "");
    ExpectRun({SHARED_RING_PATH, "produce", "three"}, 0, "");
    ExpectRun({SHARED_RING_PATH, "consume"}, 0, "waiting: 3\nnewest: three\ntook: one\ntook: two\ntook: three\n");
    ExpectRun({SHARED_RING_PATH, "consume"}, 0, "waiting: 0\nnewest: \n");
  });
}

TEST(SharedRing, ProducerForAFullRing_ReportsWhatIsNotStored) {
  ExpectInPrivateIpc([] {
    ExpectRun({SHARED_RING_PATH, "produce", "one", "two", "three", "four", "five"}, 1, "",
              "shared_ring: the ring is full, 'five' is not stored\n");
  });
}

TEST(PhoneBook, Digits_FindTheNamesThatBeginWithTheirLetters) {
  const TempDir home;
  const std::string folder = home.Path().string();
  ExpectInPrivateIpc([&folder] {
    ExpectRun({PHONE_BOOK_PATH, folder, "add", "Bob", "1234;home"}, 0, "");
    ExpectRun({PHONE_BOOK_PATH, folder, "add", "Ann", "77;work"}, 0, "");
    ExpectRun({PHONE_BOOK_PATH, folder, "add", "Dora", "5678;home"}, 0, "");
    ExpectRun({PHONE_BOOK_PATH, folder, "find", "26"}, 0, "262  Bob  1234;home\n266  Ann  77;work\n");
    ExpectRun({PHONE_BOOK_PATH, folder, "find", "9"}, 0, "");
  });
}

/// Waits until the program has printed exactly that; false when it ends instead.
bool Prints(const Child &program, const std::filesystem::path &path, const std::string &text) {
  while (FileText(path) != text) {
    siginfo_t ended{};
    if (waitid(P_PID, static_cast<id_t>(program.Pid()), &ended, WEXITED | WNOHANG | WNOWAIT) != 0) return false;
    if (ended.si_pid != 0) return false;
    usleep(2000);
  }
  return true;
}

void ChangeSetting(const std::string &folder, const char *name, const char *value) {
  ASSERT_EQ(BerkDb_Open(folder.c_str(), nullptr, nullptr), 1);
  EXPECT_EQ(BerkDb_Set(g_uDb.tb_parameter, name, value), BERKDB_OK);
  BerkDb_Close();
}

/// What devlog shows, without the time.
std::vector<std::string> LogRecords() {
  std::vector<std::string> records = Lines(Command({DEVLOG_PATH}).Run().out);
  for (std::string &record : records) record.erase(0, record.find(' ') + 1);
  return records;
}

TEST(LogDaemon, Hangup_ReadsTheFilterAgain) {
  const TempDir home;
  ExpectInPrivateIpc([&home] {
    const std::string folder = home.Path().string();
    const std::string out = home / "out";
    const std::string pidFile = home / "pid";
    WriteFile(out, "");
    Child daemon([&] { return Command({LOG_DAEMON_PATH, folder, pidFile}).OutputTo(out).Run().status; });
    ASSERT_TRUE(Prints(daemon, out, "level 4, mask 0x7\n"));
    const pid_t pid = std::stoi(FileText(pidFile));
    ChangeSetting(folder, "dbl", "other=3,lined=5");
    kill(pid, SIGHUP);
    ASSERT_TRUE(Prints(daemon, out, "level 4, mask 0x7\nlevel 5, mask 0x7\n"));
    ChangeSetting(folder, "dbm", "lined=6");
    kill(pid, SIGHUP);
    ASSERT_TRUE(Prints(daemon, out, "level 4, mask 0x7\nlevel 5, mask 0x7\nlevel 5, mask 0x6\n"));
    kill(pid, SIGTERM);
    EXPECT_EQ(daemon.Wait(), 0);
    EXPECT_EQ(LogRecords(),
              (std::vector<std::string>{"log    3  lined: line 1 registered", "log    3  lined: line 1 registered",
                                        "log    3  lined: line 1 has its codec \\lines.c 12"}));
  });
}

}  // namespace
}  // namespace devsupport::test
