// SPDX-License-Identifier: MIT
// devlog with recorded rings: its output and its exit status.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <random>

#include "tests/devlog/Devlog.h"
#include "tests/support/IpcKey.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devlog_test;
using namespace devsupport::test;

constexpr char kNoRings[] =
    "devlog: there are no rings: no program has opened the log channel since the system started\n";

// Missing and unusable rings.

TEST_F(DevlogTest, WithoutRings_SaysSoEndsWith1AndCreatesNothing) {
  for (const Words &words : {Words{}, Words{"--json"}, Words{"--stats"}, Words{"--consume"}}) {
    EXPECT_EQ(Devlog(words).Run(), (CommandResult{1, "", kNoRings}));
  }
  EXPECT_EQ(CountIpcObjects(), 0);
}

TEST_F(DevlogTest, WithOneRing_ShowsItAndSaysThatTheOtherIsMissing) {
  WritableRing log(kLogRing);
  log.Write({.text = "hello"});
  EXPECT_EQ(Devlog({}).Run(),
            (CommandResult{0, "12:34:56.789 log    0  hello\n", "devlog: there is no event ring\n"}));
}

TEST_F(DevlogTest, WithoutTheOneRingAskedFor_EndsWith1) {
  const WritableRing log(kLogRing);
  EXPECT_EQ(Devlog({"--ring", "event"}).Run(), (CommandResult{1, "", "devlog: there is no event ring\n"}));
}

TEST_F(DevlogTest, OfASegmentThatNobodyHasFinishedMaking_SaysThatThereIsNone) {
  ASSERT_NE(::shmget(kLogRing.shareKey, 292 + 1025 * 140, IPC_CREAT | 0666), -1);
  EXPECT_EQ(Devlog({}).Run().status, 1);
}

TEST_F(DevlogTest, OfASegmentThatIsTooSmall_SaysSoAndEndsWith5) {
  for (const std::size_t bytes : {16U, 4096U, 292U + 1025U * 140U - 1U}) {
    const int id = ::shmget(kLogRing.shareKey, bytes, IPC_CREAT | 0666);
    ASSERT_NE(id, -1);
    for (const Words &words : {Words{}, Words{"-f", "--ring", "log"}}) {
      const CommandResult result = Devlog(words).Run();
      EXPECT_EQ(result.status, 5);
      EXPECT_EQ(result.out, "");
      EXPECT_TRUE(result.err.starts_with("devlog: the log ring has " + std::to_string(bytes) +
                                         " bytes; this devlog knows rings of 143792\n"))
          << result.err;
    }
    ::shmctl(id, IPC_RMID, nullptr);
  }
}

TEST_F(DevlogTest, OfARingOfOtherMeasures_SaysSoAndEndsWith5) {
  TShmQueue other{};
  TShmQueueOpt opt{36, 0, 0};
  ASSERT_EQ(TShmQueue_Create(kLogRing.shareKey, kLogRing.semKey, 2000, 136, &opt, &other), 1);
  const WritableRing event(kEventRing);
  const CommandResult result = Devlog({}).Run();
  EXPECT_EQ(result.status, 5);
  EXPECT_EQ(
      result.err,
      "devlog: the log ring has 2000 cells of 136 bytes and a user area of 36; this devlog knows rings of 1024, "
      "136 and 36\n");
  TShmQueue_Close(&other, 0);
}

TEST_F(DevlogTest, OfARingThatIsTooSmall_SaysSoAndShowsTheOther) {
  ASSERT_NE(::shmget(kLogRing.shareKey, 16, IPC_CREAT | 0666), -1);
  WritableRing event(kEventRing);
  event.Write({.text = "hello"});
  EXPECT_EQ(Devlog({}).Run(),
            (CommandResult{5, "12:34:56.789 event  0  hello\n",
                           "devlog: the log ring has 16 bytes; this devlog knows rings of 143792\n"}));
}

// Records of the rings.

TEST_F(RecordedRings, ThatAreEmpty_ShowNothing) { EXPECT_EQ(Shown({}), ""); }

TEST_F(RecordedRings, AreShownInTheOrderOfTime) {
  Log().Write({{.text = "first", .sequence = 0, .type = 3, .hour = 1},
               {.text = "third", .sequence = 1, .type = 15, .hour = 3}});
  Event().Write({.text = "second", .sequence = 9, .hour = 2});
  EXPECT_EQ(Shown({}),
            "01:34:56.789 log    3  first\n"
            "02:34:56.789 event  0  second\n"
            "03:34:56.789 log   15  third\n");
}

// The local time is 20:00.
TEST_F(RecordedRings, LaterThanNow_AreThoseOfYesterday) {
  Log().Write({.text = "yesterday", .hour = 21});
  Event().Write({.text = "today", .hour = 3});
  EXPECT_EQ(Shown({}),
            "21:34:56.789 log    0  yesterday\n"
            "03:34:56.789 event  0  today\n");
}

TEST_F(RecordedRings, AsJson_AreOneObjectALine) {
  Log().Write({{.text = "say \"hi\" \\a.c 7", .sequence = 4095, .type = 3}, {.text = "\033\xff", .sequence = 2}});
  EXPECT_EQ(
      Shown({"--json"}),
      R"({"time":"12:34:56.789","ring":"log","type":3,"type_name":"","sequence":4095,"records":1,"status":"ok",)"
      R"("detail":"","process":"",)"
      R"("text":"say \"hi\" \\a.c 7"})"
      "\n"
      R"({"time":"12:34:56.789","ring":"log","type":null,"type_name":"","sequence":0,"records":2,"status":"lost",)"
      R"("detail":"2 records lost","process":"","text":""})"
      "\n"
      R"({"time":"12:34:56.789","ring":"log","type":0,"type_name":"","sequence":2,"records":1,"status":"ok",)"
      R"("detail":"","process":"",)"
      R"("text_bytes":"\u001b\u00ff"})"
      "\n");
}

TEST_F(RecordedRings, WhoseBeginningIsOverwritten_ShowWhatIsLeft) {
  for (unsigned number = 0; number < 1030; ++number) {
    Log().Write({.text = std::to_string(number), .sequence = number, .fragment = number % 2});
  }
  Log().Write({.text = "last", .sequence = 1030});
  const std::vector<std::string> lines = Lines(Shown({}));
  ASSERT_EQ(lines.size(), 513U);
  EXPECT_EQ(lines.front(), "12:34:56.789 log    0  (its beginning is lost) 7");
  EXPECT_EQ(lines[1], "12:34:56.789 log    0  89");
  EXPECT_EQ(lines.back(), "12:34:56.789 log    0  last");
}

TEST_F(RecordedRings, WithDamagedCells_ShowThemAsDamaged) {
  devlog::Cell cell = CellOf({.text = "length", .sequence = 1});
  cell.length = 4711;
  Log().Write({.text = "before", .sequence = 0});
  Log().Write(cell);
  cell = CellOf({.text = "no end", .sequence = 2});
  cell.length = 12;
  Log().Write(cell);
  Log().Write({.text = "no time", .sequence = 3, .ms = 1000});
  Log().Write({.text = "behind", .sequence = 4});
  Log().Write({.text = "order", .sequence = 5, .fragment = 7});
  EXPECT_EQ(Shown({}),
            "12:34:56.789 log    0  before\n"
            "--:--:--.--- log    -  (damaged: the length is 4711)\n"
            "12:34:56.789 log    0  (damaged: the text has no end) no \n"
            "--:--:--.--- log    0  (damaged: invalid time) no time\n"
            "12:34:56.789 log    0  behind\n"
            "12:34:56.789 log    0  (damaged: fragment 7 follows no other) order\n");
}

TEST_F(RecordedRings, WhoseIndicesAreNoSlots_AreDamaged) {
  Log().Write({.text = "hello"});
  Event().Write({.text = "event"});
  for (const std::size_t index : {12U, 16U}) {
    const RawRing raw(kLogRing);
    const std::uint32_t before = raw.Word(index);
    const std::uint32_t wrong = 0xFFFFFFFF;
    std::memcpy(raw.Bytes() + index, &wrong, sizeof wrong);
    const CommandResult result = Devlog({}).Run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "12:34:56.789 event  0  event\n");
    EXPECT_EQ(
        result.err,
        "devlog: the log ring is damaged: where it begins or ends is no slot; the next record begins it anew\n");
    std::memcpy(raw.Bytes() + index, &before, sizeof before);
  }
}

TEST_F(RecordedRings, OfRandomBytes_NeverStopIt) {
  const TestSeed seed;
  std::mt19937_64 random(seed);
  const RawRing raw(kLogRing);
  for (int round = 0; round < 8; ++round) {
    for (std::size_t byte = RawRing::kFirstSlot; byte < raw.Size(); ++byte) {
      raw.Bytes()[byte] = static_cast<std::uint8_t>(random());
    }
    for (std::uint32_t slot = 0; slot < 1025; ++slot) {
      const auto length = static_cast<std::uint32_t>(random() % 150);
      if (random() % 4 != 0) std::memcpy(raw.Slot(slot), &length, sizeof length);
    }
    const auto begin = static_cast<std::uint32_t>(random() % 1025);
    const auto end = static_cast<std::uint32_t>(random() % 1025);
    std::memcpy(raw.Bytes() + 12, &begin, sizeof begin);
    std::memcpy(raw.Bytes() + 16, &end, sizeof end);
    for (const Words &words : {Words{}, Words{"--json"}, Words{"--stats"}}) Shown(words);
  }
}

// Selecting messages.

class ChosenMessages : public RecordedRings {
 protected:
  void SetUp() override {
    RecordedRings::SetUp();
    if (IsSkipped()) return;
    Log().Write({{.text = "one", .sequence = 0, .type = 1, .hour = 1},
                 {.text = "two", .sequence = 1, .type = 2, .hour = 2},
                 {.text = "th", .sequence = 2, .type = 3, .hour = 3},
                 {.text = "ree", .sequence = 3, .type = 3, .fragment = 1, .hour = 3},
                 {.text = "five", .sequence = 6, .type = 5, .hour = 5}});
    Event().Write({.text = "four", .sequence = 0, .type = 4, .hour = 4});
  }
  static constexpr std::size_t kBeforeText = 23;
  static std::string Texts(const Words &words) {
    std::string texts;
    for (const std::string &line : Lines(Shown(words))) texts += line.substr(kBeforeText) + ' ';
    return texts;
  }
};

TEST_F(ChosenMessages, WithoutAChoice_AreAll) { EXPECT_EQ(Texts({}), "one two three four (2 records lost) five "); }
TEST_F(ChosenMessages, ByRing_AreThoseOfThatRing) {
  EXPECT_EQ(Texts({"--ring", "event"}), "four ");
  EXPECT_EQ(Texts({"--ring", "log"}), "one two three (2 records lost) five ");
}
TEST_F(ChosenMessages, ByType_AreThoseOfTheseTypes) { EXPECT_EQ(Texts({"-t", "1,4"}), "one four (2 records lost) "); }
TEST_F(ChosenMessages, ByExpression_AreThoseWhoseWholeTextMatches) {
  EXPECT_EQ(Texts({"-e", "^(three|four)$", "--ring", "event"}), "four ");
  EXPECT_EQ(Texts({"-e", "thr"}), "three (2 records lost) ");
}
TEST_F(ChosenMessages, ByNumber_AreTheLastOnes) {
  EXPECT_EQ(Texts({"-n", "0"}), "");
  EXPECT_EQ(Texts({"-n", "1"}), "five ");
  EXPECT_EQ(Texts({"-n", "2"}), "four (2 records lost) five ");
  EXPECT_EQ(Texts({"-n", "99"}), "one two three four (2 records lost) five ");
  EXPECT_EQ(Texts({"-n", "1", "-t", "2"}), "two (2 records lost) ");
}
TEST_F(ChosenMessages, ByProcess_AreThoseOfTheseProcesses) {
  EXPECT_EQ(Texts({"-p", "th,f"}), "th: ree f: our (2 records lost) f: ive ");
  EXPECT_EQ(Texts({"-p", "fi", "--ring", "event"}), "");
}
TEST_F(ChosenMessages, ByNameOfTheirType_AreThoseOfThatType) {
  const TempDir dir;
  const std::string path = (dir / "names").string();
  WriteFile(path, "type 4 call\nprocess fo\n");
  EXPECT_EQ(Shown({"--names", path, "-t", "call", "--ring", "event"}), "04:34:56.789 event call  fo: ur\n");
}
TEST_F(ChosenMessages, ByTime_AreThoseInBetween) {
  EXPECT_EQ(Texts({"--since", "02:00", "--until", "04:34:56"}), "two three four (2 records lost) ");
  EXPECT_EQ(Texts({"--since", "05:00", "--until", "01:59:59"}), "one (2 records lost) five ");
}

// Figures.

TEST_F(RecordedRings, WithStats_TellHowFullTheyAre) {
  Log().Write({{.text = "one", .sequence = 0}, {.text = "two", .sequence = 5}, {.text = "x", .ms = 1000}});
  RawRing(kLogRing).SetHalf(RawRing::kUserArea, 0xF007);
  devsupport::test::Event isThere;
  devsupport::test::Event isDone;
  const Child second([&] {
    const WritableRing again(kEventRing);
    isThere.Announce();
    isDone.Wait();
    return 0;
  });
  isThere.Wait();
  EXPECT_EQ(Shown({"--stats"}),
            "ring   capacity  used  sequence  lost  damaged  attached\n"
            "log        1024     3         7     4        1         2\n"
            "event       256     0         0     0        0         3\n");
  EXPECT_EQ(Shown({"--stats", "--json", "--ring", "log"}),
            "{\"ring\":\"log\",\"capacity\":1024,\"used\":3,\"sequence\":7,\"lost\":4,\"lost_is_exact\":true,"
            "\"damaged\":1,\"attached\":2}\n");
  isDone.Announce();
}

TEST_F(DevlogTest, WithStats_CountWhatALapOverwrote) {
  const auto lostAfter = [](unsigned records) {
    TLogInfoShm_Open(0, 0, nullptr);
    const int ring = ::shmget(kLogRing.shareKey, 0, 0);
    for (unsigned number = 0; number < records; ++number) TLogInfoShm_Write("x", 0, 0);
    const std::string json = Shown({"--stats", "--json", "--ring", "log"});
    TLogInfoShm_Close();
    ::shmctl(ring, IPC_RMID, nullptr);
    const std::size_t first = json.find("\"lost\":");
    return json.substr(first, json.find(",\"damaged\"") - first);
  };
  EXPECT_EQ(lostAfter(1024), "\"lost\":0,\"lost_is_exact\":true");
  EXPECT_EQ(lostAfter(1025), "\"lost\":1,\"lost_is_exact\":false");
  EXPECT_EQ(lostAfter(5120), "\"lost\":4096,\"lost_is_exact\":false");
  EXPECT_EQ(lostAfter(9000), "\"lost\":3880,\"lost_is_exact\":false");
}

TEST_F(DevlogTest, WithStats_MarkACountThatMayBeHigher) {
  TLogInfoShm_Open(0, 0, nullptr);
  for (unsigned number = 0; number < 1030; ++number) TLogInfoShm_Write("x", 0, 0);
  EXPECT_EQ(Shown({"--stats", "--ring", "log"}),
            "ring   capacity  used  sequence  lost  damaged  attached\n"
            "log        1024  1024      1030    6+        0         1\n");
  EXPECT_EQ(Lines(Shown({"--consume", "--ring", "log"})).size(), 1024U);
  EXPECT_EQ(Shown({"--stats", "--ring", "log"}),
            "ring   capacity  used  sequence  lost  damaged  attached\n"
            "log        1024     0      1030 1030+        0         1\n");
}

// Output.

TEST_F(RecordedRings, ThatCannotBeWrittenOut_EndIt) {
  Log().Write({.text = "hello"});
  const CommandResult full = Devlog({}).OutputTo("/dev/full").Run();
  EXPECT_EQ(full.status, 4);
  EXPECT_EQ(full.err, "devlog: the output cannot be written: No space left on device\n");
  const CommandResult closed = Devlog({}).CloseOutput().Run();
  EXPECT_EQ(closed.status, 4);
  EXPECT_EQ(closed.err, "devlog: the output cannot be written: Bad file descriptor\n");
}

/// A terminal for a program, and the bytes written to it.
class Terminal {
 public:
  Terminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY)) {
    ::grantpt(master_);
    ::unlockpt(master_);
    keptOpen_ = ::open(::ptsname(master_), O_RDWR | O_NOCTTY);
  }
  ~Terminal() {
    ::close(keptOpen_);
    ::close(master_);
  }
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  std::string Path() const { return ::ptsname(master_); }
  std::string Line() const {
    char bytes[1024];
    const ssize_t got = ::read(master_, bytes, sizeof bytes);
    return {bytes, static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
  }

 private:
  int master_;
  int keptOpen_;
};

TEST_F(RecordedRings, OnATerminal_HaveColoursUnlessTheUserWantsNone) {
  Log().Write({.text = "hello"});
  const Terminal terminal;
  EXPECT_EQ(Devlog({}).OutputTo(terminal.Path()).Run().status, 0);
  EXPECT_EQ(terminal.Line(), "\033[2m12:34:56.789\033[0m log    0  hello\r\n");
  Devlog({}).OutputTo(terminal.Path()).Environment("NO_COLOR", "1").Run();
  EXPECT_EQ(terminal.Line(), "12:34:56.789 log    0  hello\r\n");
  Devlog({}).OutputTo(terminal.Path()).Environment("TERM", "dumb").Run();
  EXPECT_EQ(terminal.Line(), "12:34:56.789 log    0  hello\r\n");
  Devlog({"--color=never"}).OutputTo(terminal.Path()).Run();
  EXPECT_EQ(terminal.Line(), "12:34:56.789 log    0  hello\r\n");
}

TEST_F(RecordedRings, WithColours_HaveThemInAPipeToo) {
  Log().Write({.text = "hello"});
  EXPECT_EQ(Shown({"--color=always"}), "\033[2m12:34:56.789\033[0m log    0  hello\n");
  EXPECT_EQ(Shown({"--color=auto"}), "12:34:56.789 log    0  hello\n");
}

// Wrong command lines.

TEST_F(DevlogTest, OfAMistakenExpression_SaysWhatIsWrongAndEndsWith2) {
  const CommandResult result = Devlog({"-e", "("}).Run();
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(result.err.starts_with("devlog: invalid regular expression '(': ")) << result.err;
}

TEST_F(DevlogTest, OfMistakenOptions_EndsWith2) {
  EXPECT_EQ(Devlog({"--bogus"}).Run().status, 2);
  EXPECT_EQ(Devlog({"--help"}).Run().status, 0);
  EXPECT_EQ(Devlog({"--help"}).OutputTo("/dev/full").Run().status, 4);
}

}  // namespace
