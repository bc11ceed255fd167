// SPDX-License-Identifier: MIT
// The command line of devlog, and the numbers and times in it.

#include "tools/devlog/Options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/CapturedOutput.h"
#include "tests/support/TempDir.h"
#include "tools/devlog/Numbers.h"

namespace {

using namespace devlog;
using devsupport::test::CapturedOutput;
using Words = std::vector<std::string>;

/// A command line as main() gets it.
class Arguments {
 public:
  explicit Arguments(Words words) : words_(std::move(words)) {
    words_.insert(words_.begin(), "devlog");
    for (std::string &word : words_) pointers_.push_back(word.data());
    pointers_.push_back(nullptr);
  }
  Options Read() { return ReadOptions(static_cast<int>(words_.size()), pointers_.data()); }

 private:
  Words words_;
  std::vector<char *> pointers_;
};

/// Reads a correct command line.
Options Read(const Words &words) {
  CapturedOutput err(stderr);
  const Options options = Arguments(words).Read();
  EXPECT_EQ(err.Take(), "");
  EXPECT_NE(options.action, Action::Nothing);
  return options;
}

/// The error message for a wrong command line.
std::string Complaint(const Words &words) {
  CapturedOutput err(stderr);
  const Options options = Arguments(words).Read();
  EXPECT_EQ(options.action, Action::Nothing);
  EXPECT_EQ(options.status, kUsage);
  return err.Take();
}

constexpr char kHint[] = "devlog --help lists the options.\n";

TEST(Options, WithoutAny_ShowBothRings) {
  const Options options = Read({});
  EXPECT_EQ(options.action, Action::Show);
  EXPECT_TRUE(options.log);
  EXPECT_TRUE(options.event);
  EXPECT_FALSE(options.json || options.follow || options.consume || options.syslog || options.isLimited);
  EXPECT_EQ(options.wanted.types, 0xFFFF);
  EXPECT_EQ(options.wanted.since, kUnknownTime);
  EXPECT_EQ(options.wanted.until, kUnknownTime);
  EXPECT_EQ(options.wanted.patternCount, 0U);
}

TEST(Options, SetWhatTheyName) {
  Arguments arguments({"-f", "-n", "0x10", "-e", "a b", "-t", "3,0xF", "--ring", "event", "--since", "1:02",
                       "--until", "23:59:58", "--json", "--consume"});
  const Options options = arguments.Read();
  EXPECT_EQ(options.action, Action::Show);
  EXPECT_TRUE(options.follow);
  EXPECT_TRUE(options.isLimited);
  EXPECT_EQ(options.lines, 16U);
  EXPECT_STREQ(options.wanted.patterns[0], "a b");
  EXPECT_EQ(options.wanted.types, 1U << 3 | 1U << 15);
  EXPECT_FALSE(options.log);
  EXPECT_TRUE(options.event);
  EXPECT_EQ(options.wanted.since, 62 * 60 * 1000);
  EXPECT_EQ(options.wanted.until, kDay - 2000 + 999);
  EXPECT_TRUE(options.json);
  EXPECT_TRUE(options.consume);
}

TEST(Options, HaveLongNames) {
  Arguments arguments({"--follow", "--lines=7", "--regex=x", "--type=1", "--syslog"});
  const Options options = arguments.Read();
  EXPECT_TRUE(options.follow);
  EXPECT_EQ(options.lines, 7U);
  EXPECT_STREQ(options.wanted.patterns[0], "x");
  EXPECT_EQ(options.wanted.types, 2);
  EXPECT_TRUE(options.syslog);
}

TEST(OptionsRing, NamesOneOrBoth) {
  EXPECT_FALSE(Read({"--ring", "log"}).event);
  EXPECT_TRUE(Read({"--ring", "log"}).log);
  EXPECT_TRUE(Read({"--ring", "both"}).log);
  EXPECT_TRUE(Read({"--ring", "both"}).event);
}

TEST(OptionsMistake, IsToldAndEndsWith2) {
  EXPECT_EQ(Complaint({"--bogus"}), std::string("devlog: unrecognized option '--bogus'\n") + kHint);
  EXPECT_EQ(Complaint({"-n"}), std::string("devlog: option requires an argument -- 'n'\n") + kHint);
  EXPECT_EQ(Complaint({"bogus"}), std::string("devlog: unexpected argument 'bogus'\n") + kHint);
  EXPECT_EQ(Complaint({"-n", "x"}), std::string("devlog: invalid number of lines 'x'\n") + kHint);
  EXPECT_EQ(Complaint({"-t", "16"}), std::string("devlog: invalid types '16'\n") + kHint);
  EXPECT_EQ(Complaint({"--ring", "x"}), std::string("devlog: unknown ring 'x'\n") + kHint);
  EXPECT_EQ(Complaint({"--since", "24:00"}), std::string("devlog: invalid time '24:00'\n") + kHint);
  EXPECT_EQ(Complaint({"--stats", "-f"}), std::string("devlog: --stats goes with --ring and --json only\n") + kHint);
}

TEST(OptionsStats, GoWithRingAndJson) {
  const Options options = Read({"--stats", "--ring", "log", "--json"});
  EXPECT_EQ(options.action, Action::Stats);
  EXPECT_TRUE(options.json);
}

TEST(OptionsHelp, GoesToStandardOutputAndEndsWith0) {
  CapturedOutput out(stdout);
  const Options options = Arguments({"--help"}).Read();
  const std::string text = out.Take();
  EXPECT_EQ(options.action, Action::Nothing);
  EXPECT_EQ(options.status, kShown);
  EXPECT_TRUE(text.starts_with("Usage: devlog "));
  EXPECT_NE(text.find("no date"), std::string::npos);
}

TEST(OptionsVersion, GoesToStandardOutputAndEndsWith0) {
  CapturedOutput out(stdout);
  EXPECT_EQ(Arguments({"-V"}).Read().status, kShown);
  EXPECT_TRUE(out.Take().starts_with("devlog "));
}

TEST(OptionsWrite, TakesTypeRingAndText) {
  Arguments arguments({"write", "-t", "0xA", "--event", "some", "text", "-x"});
  const Options options = arguments.Read();
  EXPECT_EQ(options.action, Action::Write);
  EXPECT_EQ(options.type, 10);
  EXPECT_TRUE(options.event);
  EXPECT_FALSE(options.log);
  EXPECT_STREQ(options.words[0], "some");
  EXPECT_STREQ(options.words[1], "text");
  EXPECT_STREQ(options.words[2], "-x");
  EXPECT_EQ(options.words[3], nullptr);
}

TEST(OptionsWrite, WithoutOptions_MeansTheLogRingAndType0) {
  Arguments arguments({"write", "text"});
  const Options options = arguments.Read();
  EXPECT_EQ(options.type, 0);
  EXPECT_TRUE(options.log);
  EXPECT_FALSE(options.event);
}

TEST(OptionsWrite, RefusesUnknownTypes) {
  EXPECT_EQ(Complaint({"write", "-t", "16", "x"}), std::string("devlog: invalid type '16'\n") + kHint);
  EXPECT_EQ(Complaint({"write", "--ring", "log", "x"}),
            std::string("devlog: unrecognized option '--ring'\n") + kHint);
}

TEST(OptionsView, SeveralExpressions_AreAllKept) {
  Arguments arguments({"-i", "-v", "-e", "a", "--regex", "b"});
  const Options options = arguments.Read();
  EXPECT_EQ(options.action, Action::Show);
  ASSERT_EQ(options.wanted.patternCount, 2U);
  EXPECT_STREQ(options.wanted.patterns[0], "a");
  EXPECT_STREQ(options.wanted.patterns[1], "b");
  EXPECT_TRUE(options.wanted.ignoreCase);
  EXPECT_TRUE(options.wanted.invert);
}

TEST(OptionsView, RefusesWhatHasNoMeaningAlone) {
  EXPECT_EQ(Complaint({"-v"}), std::string("devlog: option '-v' needs an option '-e'\n") + kHint);
  EXPECT_EQ(Complaint({"-i"}), std::string("devlog: option '-i' needs an option '-e'\n") + kHint);
  EXPECT_EQ(Complaint({"--color", "red"}), std::string("devlog: invalid argument of '--color' 'red'\n") + kHint);
  EXPECT_EQ(Complaint({"-p", "a,,b"}), std::string("devlog: invalid processes 'a,,b'\n") + kHint);
  EXPECT_EQ(Complaint({"--stats", "--cursor", "x"}),
            std::string("devlog: --stats goes with --ring and --json only\n") + kHint);
}

TEST(ToTypes, TakesRangesAndNames) {
  const devsupport::test::TempDir dir;
  const std::string path = (dir / "names").string();
  devsupport::test::WriteFile(path, "type 3 call\ntype 9 alarm-call\n");
  Names names{};
  ASSERT_TRUE(names.Load(path.c_str(), false));
  std::uint16_t types = 4711;
  EXPECT_TRUE(ToTypes("call,alarm-call", names, types));
  EXPECT_EQ(types, 1 << 3 | 1 << 9);
  EXPECT_TRUE(ToTypes("0-2,15-15", names, types));
  EXPECT_EQ(types, 0x8007);
  EXPECT_TRUE(ToTypes("0-15", names, types));
  EXPECT_EQ(types, 0xFFFF);
  for (const char *text : {"2-1", "-1", "1-", "1-16", "cal", "call-5", "1-2-3"}) {
    EXPECT_FALSE(ToTypes(text, names, types)) << text;
  }
}

TEST(ToTypes, TakesAListOfNumbers) {
  const Names names{};
  std::uint16_t types = 4711;
  EXPECT_TRUE(ToTypes("0", names, types));
  EXPECT_EQ(types, 1U);
  EXPECT_TRUE(ToTypes("15,0x1,1", names, types));
  EXPECT_EQ(types, 1U << 15 | 1U << 1);
}

TEST(ToTypes, RefusesListsWithGapsAndWrongTypes) {
  const Names names{};
  std::uint16_t types = 4711;
  for (const char *text : {"", ",", "1,", ",1", "1,,2", "16", "1;2", "a"})
    EXPECT_FALSE(ToTypes(text, names, types)) << text;
  EXPECT_EQ(types, 4711U);
}

TEST(ToDayTime, TakesHoursMinutesAndSeconds) {
  DayTime time = 4711;
  EXPECT_TRUE(ToDayTime("00:00", time));
  EXPECT_EQ(time, 0);
  EXPECT_TRUE(ToDayTime("7:05", time));
  EXPECT_EQ(time, (7 * 60 + 5) * 60 * 1000);
  EXPECT_TRUE(ToDayTime("23:59:59", time));
  EXPECT_EQ(time, kDay - 1000);
}

TEST(ToDayTime, RefusesEverythingElseAndLeavesTheTime) {
  DayTime time = 4711;
  for (const char *text : {"", "12", ":", "12:", ":30", "24:00", "12:60", "12:30:60", "12:30:", "12:30:00:00",
                           "012:30", "12:030", "-1:00", "12.30", "0x1:00"}) {
    EXPECT_FALSE(ToDayTime(text, time)) << text;
  }
  EXPECT_EQ(time, 4711);
}

}  // namespace
