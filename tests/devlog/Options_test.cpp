// The command line of devlog, and the numbers and times in it.

#include "tools/devlog/Options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/CapturedOutput.h"
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

/// Reads a command line that is right.
Options Read(const Words &words) {
  CapturedOutput err(stderr);
  const Options options = Arguments(words).Read();
  EXPECT_EQ(err.Take(), "");
  EXPECT_NE(options.action, Action::Nothing);
  return options;
}

/// What a mistaken command line is told.
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
  EXPECT_EQ(options.wanted.pattern, nullptr);
}

TEST(Options, SetWhatTheyName) {
  Arguments arguments({"-f", "-n", "0x10", "-e", "a b", "-t", "3,0xF", "--ring", "event", "--since", "1:02",
                       "--until", "23:59:58", "--json", "--consume"});
  const Options options = arguments.Read();
  EXPECT_EQ(options.action, Action::Show);
  EXPECT_TRUE(options.follow);
  EXPECT_TRUE(options.isLimited);
  EXPECT_EQ(options.lines, 16U);
  EXPECT_STREQ(options.wanted.pattern, "a b");
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
  EXPECT_STREQ(options.wanted.pattern, "x");
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
  EXPECT_EQ(Complaint({"bogus"}), std::string("devlog: \"bogus\" is no option\n") + kHint);
  EXPECT_EQ(Complaint({"-n", "x"}), std::string("devlog: \"x\" is no number of lines\n") + kHint);
  EXPECT_EQ(Complaint({"-t", "16"}), std::string("devlog: \"16\" is no list of types from 0 to 15\n") + kHint);
  EXPECT_EQ(Complaint({"--ring", "x"}),
            std::string("devlog: \"x\" is none of the rings: log, event or both\n") + kHint);
  EXPECT_EQ(Complaint({"--since", "24:00"}),
            std::string("devlog: \"24:00\" is no time of day: HH:MM or HH:MM:SS\n") + kHint);
  EXPECT_EQ(Complaint({"--stats", "-f"}), std::string("devlog: --stats goes with --ring and --json only\n") + kHint);
  EXPECT_EQ(Complaint({"--syslog", "--json"}),
            std::string("devlog: --syslog and --json exclude each other\n") + kHint);
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

TEST(OptionsWrite, RefusesTypesThatThereAreNot) {
  EXPECT_EQ(Complaint({"write", "-t", "16", "x"}), std::string("devlog: \"16\" is no type from 0 to 15\n") + kHint);
  EXPECT_EQ(Complaint({"write", "--ring", "log", "x"}),
            std::string("devlog: unrecognized option '--ring'\n") + kHint);
}

TEST(ToTypes, TakesAListOfNumbers) {
  std::uint16_t types = 4711;
  EXPECT_TRUE(ToTypes("0", types));
  EXPECT_EQ(types, 1U);
  EXPECT_TRUE(ToTypes("15,0x1,1", types));
  EXPECT_EQ(types, 1U << 15 | 1U << 1);
}

TEST(ToTypes, RefusesListsWithGapsAndWrongTypes) {
  std::uint16_t types = 4711;
  for (const char *text : {"", ",", "1,", ",1", "1,,2", "16", "1;2", "a"}) EXPECT_FALSE(ToTypes(text, types)) << text;
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
