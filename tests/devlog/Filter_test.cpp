// SPDX-License-Identifier: MIT
// Which messages are shown.

#include "tools/devlog/Filter.h"

#include <gtest/gtest.h>

#include "tests/devlog/Cells.h"

namespace {

using namespace devlog;
using devlog_test::At;

bool Passes(const Wanted &wanted, const Message &message, std::string_view text = "text") {
  const Filter filter(wanted);
  EXPECT_TRUE(filter.IsUsable());
  return filter.Passes(message, text, {});
}

TEST(Filter, OfNothing_PassesEverything) {
  for (unsigned type = 0; type < 16; ++type) EXPECT_TRUE(Passes({}, {.time = 0, .type = type}));
}

TEST(Filter, OfTypes_PassesOnlyThese) {
  const Wanted wanted{.types = 1U << 3 | 1U << 15};
  EXPECT_TRUE(Passes(wanted, {.type = 3}));
  EXPECT_TRUE(Passes(wanted, {.type = 15}));
  EXPECT_FALSE(Passes(wanted, {.type = 4}));
}

TEST(Filter, OfTimes_IncludesBothEnds) {
  const Wanted wanted{.since = At(10, 0), .until = At(11, 0) + 999};
  EXPECT_FALSE(Passes(wanted, {.time = At(10, 0) - 1}));
  EXPECT_TRUE(Passes(wanted, {.time = At(10, 0)}));
  EXPECT_TRUE(Passes(wanted, {.time = At(11, 0) + 999}));
  EXPECT_FALSE(Passes(wanted, {.time = At(11, 0, 1)}));
}

TEST(Filter, OfOneTime_IsOpenOnTheOtherSide) {
  EXPECT_TRUE(Passes({.since = At(10, 0)}, {.time = At(23, 59)}));
  EXPECT_FALSE(Passes({.since = At(10, 0)}, {.time = 0}));
  EXPECT_TRUE(Passes({.until = At(10, 0)}, {.time = 0}));
  EXPECT_FALSE(Passes({.until = At(10, 0)}, {.time = At(23, 59)}));
}

TEST(Filter, SinceLaterThanUntil_GoesOverMidnight) {
  const Wanted wanted{.since = At(23, 0), .until = At(1, 0)};
  EXPECT_TRUE(Passes(wanted, {.time = At(23, 30)}));
  EXPECT_TRUE(Passes(wanted, {.time = At(0, 30)}));
  EXPECT_FALSE(Passes(wanted, {.time = At(12, 0)}));
}

TEST(Filter, OfAPattern_IsAnExtendedRegularExpression) {
  const Wanted wanted{.patterns = {"line (1|2)$"}, .patternCount = 1};
  EXPECT_TRUE(Passes(wanted, {}, "off hook: line 2"));
  EXPECT_FALSE(Passes(wanted, {}, "off hook: line 12"));
}

TEST(Filter, OfAPattern_SearchesPastNulsToo) {
  const char text[] = "a\0needle";
  EXPECT_TRUE(Passes({.patterns = {"needle"}, .patternCount = 1}, {}, std::string_view(text, sizeof text - 1)));
}

TEST(Filter, OfAPattern_EndsWithTheText) {
  EXPECT_FALSE(Passes({.patterns = {"needle"}, .patternCount = 1}, {}, std::string_view("a needle", 5)));
}

TEST(Filter, OfSomethingElse_SaysWhatIsWrongWithIt) {
  const Filter filter({.patterns = {"("}, .patternCount = 1});
  EXPECT_FALSE(filter.IsUsable());
  EXPECT_STRNE(filter.Complaint(), "");
}

TEST(Filter, PassesNotesAndDamagedCells) {
  const Wanted wanted{.types = 0, .since = At(10, 0), .until = At(10, 0), .patterns = {"x"}, .patternCount = 1};
  EXPECT_TRUE(Passes(wanted, {.status = Status::Lost}));
  EXPECT_TRUE(Passes(wanted, {.status = Status::Damaged}));
  EXPECT_FALSE(Passes(wanted, {.status = Status::Partial}));
}

TEST(Filter, OfSeveralExpressions_TakesWhatMatchesAny) {
  const Wanted wanted{.patterns = {"^one", "two$"}, .patternCount = 2};
  EXPECT_TRUE(Passes(wanted, {}, "one or"));
  EXPECT_TRUE(Passes(wanted, {}, "or two"));
  EXPECT_FALSE(Passes(wanted, {}, "or one or"));
}

TEST(Filter, Inverted_TakesWhatMatchesNone) {
  const Wanted wanted{.patterns = {"^one", "two$"}, .patternCount = 2, .invert = true};
  EXPECT_FALSE(Passes(wanted, {}, "one or"));
  EXPECT_FALSE(Passes(wanted, {}, "or two"));
  EXPECT_TRUE(Passes(wanted, {}, "or one or"));
}

TEST(Filter, IgnoringCase_MatchesCapitalsToo) {
  EXPECT_TRUE(Passes({.patterns = {"oNe"}, .patternCount = 1, .ignoreCase = true}, {}, "ONe"));
  EXPECT_FALSE(Passes({.patterns = {"oNe"}, .patternCount = 1}, {}, "ONe"));
}

TEST(Filter, OfASecondMistakenExpression_NamesIt) {
  const Filter filter({.patterns = {"a", "("}, .patternCount = 2});
  EXPECT_FALSE(filter.IsUsable());
  EXPECT_STREQ(filter.Mistaken(), "(");
}

TEST(Filter, OfProcesses_TakesTheirMessagesOnly) {
  const Filter filter({.processes = "sipd,cfgd"});
  EXPECT_TRUE(filter.Passes({}, "sipdx", "sipd"));
  EXPECT_TRUE(filter.Passes({}, "cfgdx", "cfgd"));
  EXPECT_FALSE(filter.Passes({}, "sipx", "sip"));
  EXPECT_FALSE(filter.Passes({}, "x", ""));
  EXPECT_TRUE(filter.Passes({.status = Status::Lost}, "", ""));
}

}  // namespace
