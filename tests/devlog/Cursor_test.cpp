// SPDX-License-Identifier: MIT
// devlog --cursor: the next run continues where the last one stopped.

#include <sched.h>
#include <sys/shm.h>

#include <csignal>

#include "tests/devlog/Devlog.h"
#include "tests/support/TempDir.h"

namespace {

using namespace devlog_test;
using namespace devsupport::test;

class WithCursor : public RecordedRings {
 protected:
  std::vector<std::string> Show(Words words = {}) {
    words.insert(words.begin(), {"--cursor", path_});
    const CommandResult result = Devlog(words).Run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return Lines(result.out);
  }
  void WriteUpTo(unsigned end) {
    for (; next_ < end; ++next_) Log().Write({.text = std::to_string(next_), .sequence = next_});
  }
  static std::string LineOf(unsigned number) { return "12:34:56.789 log    0  " + std::to_string(number); }
  std::string Saved() const { return FileText(path_); }

  TempDir dir_;
  std::string path_ = (dir_ / "cursor").string();
  unsigned next_ = 0;
};

TEST_F(WithCursor, EachRunShowsWhatTheLastOneDidNot) {
  WriteUpTo(2);
  EXPECT_EQ(Show(), (Words{LineOf(0), LineOf(1)}));
  EXPECT_EQ(Show(), Words{});
  WriteUpTo(3);
  Event().Write({.text = "event"});
  EXPECT_EQ(Show(), (Words{LineOf(2), "12:34:56.789 event  0  event"}));
  EXPECT_EQ(Show(), Words{});
}

TEST_F(WithCursor, WhatWasFilteredOutIsNotShownLater) {
  WriteUpTo(2);
  EXPECT_EQ(Show({"-e", "1"}), Words{LineOf(1)});
  EXPECT_EQ(Show(), Words{});
}

TEST_F(WithCursor, ARunOverOneRing_KeepsThePlaceInTheOther) {
  WriteUpTo(1);
  Event().Write({.text = "event"});
  EXPECT_EQ(Show().size(), 2U);
  WriteUpTo(2);
  EXPECT_EQ(Show({"--ring", "log"}), Words{LineOf(1)});
  EXPECT_EQ(Show(), Words{});
}

TEST_F(WithCursor, WhatWasOverwrittenMeanwhileIsCounted) {
  WriteUpTo(10);
  EXPECT_EQ(Show().size(), 10U);
  WriteUpTo(10 + 1074);
  const Words lines = Show();
  ASSERT_EQ(lines.size(), 1025U);
  EXPECT_EQ(lines.front(), "12:34:56.789 log    -  (50 or more records lost)");
}

TEST_F(WithCursor, ANewRingIsShownFromItsBeginning) {
  WriteUpTo(5);
  EXPECT_EQ(Show().size(), 5U);
  ::shmctl(Log().Queue().shm.shmid, IPC_RMID, nullptr);
  log_.emplace(kLogRing);
  Log().Write({.text = "later", .sequence = 2});
  EXPECT_EQ(Show(), (Words{"12:34:56.789 log    -  (2 records lost)", "12:34:56.789 log    0  later"}));
}

TEST_F(WithCursor, AfterARestartOfTheSystem_RingsAreNewOnes) {
  WriteUpTo(2);
  EXPECT_EQ(Show().size(), 2U);
  std::string text = Saved();
  const std::size_t boot = text.find("boot ") + 5;
  text.replace(boot, text.find('\n', boot) - boot, "another");
  WriteFile(path_, text);
  EXPECT_EQ(Show(), (Words{LineOf(0), LineOf(1)}));
}

TEST_F(WithCursor, AfterAKilledFollower_TheNextOneContinues) {
  unsigned shown = 0;
  for (int round = 0; round < 5; ++round) {
    RunningDevlog devlog({"--cursor", path_, "-f"});
    WriteUpTo(shown + 20);
    for (; shown < next_; ++shown) ASSERT_EQ(devlog.NextLine(), LineOf(shown));
    devlog.Process().Signal(SIGTERM);  // waits until the cursor is written
    EXPECT_EQ(devlog.Wait(), 1000 + SIGTERM);
  }
}

TEST_F(WithCursor, WhatCouldNotBeWrittenIsShownNextTime) {
  WriteUpTo(2);
  EXPECT_EQ(Devlog({"--cursor", path_}).OutputTo("/dev/full").Run().status, 4);
  EXPECT_EQ(Show().size(), 2U);
}

TEST_F(WithCursor, ADamagedFileIsRefusedAndKept) {
  WriteUpTo(2);
  Show();
  const std::string sound = Saved();
  const std::string ring = sound.substr(sound.find("log "));
  for (const std::string &text :
       Words{"x", "devlog cursor 2\n", "devlog cursor 1\n", "devlog cursor 1\nboot x\nring" + ring.substr(3),
             sound.substr(0, sound.size() - 12), "devlog cursor 1\nboot x\nlog 0 0 ffff 0 0 0 0 0 0 0\n",
             "devlog cursor 1\nboot x\nlog 0 0 0 0 0 0 0 0 0 0 0\n"}) {
    WriteFile(path_, text);
    const CommandResult result = Devlog({"--cursor", path_}).Run();
    EXPECT_EQ(result.status, 4) << text;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "devlog: the cursor '" + path_ + "' is damaged; remove it to begin anew\n");
    EXPECT_EQ(Saved(), text);
  }
}

TEST_F(WithCursor, ThatCannotBeWritten_EndsWith4) {
  WriteUpTo(1);
  const CommandResult result = Devlog({"--cursor", (dir_ / "none/cursor").string()}).Run();
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(result.err, "devlog: the cursor '" + (dir_ / "none/cursor").string() +
                            "' cannot be written: No such file or directory\n");
}

}  // namespace
