// SPDX-License-Identifier: MIT
// Putting records together to messages, and the notes about gaps between them.

#include "tools/devlog/Message.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/devlog/Cells.h"
#include "tests/support/TestSeed.h"

namespace {

using namespace devlog;
using devlog_test::CellOf;
using devlog_test::CellsOf;
using devlog_test::Entry;

/// One message in a few words: "ok 17+3 text" is a message of three records from number 17 on.
std::string Described(const Message &message) {
  constexpr const char *kStatus[] = {"ok", "partial", "damaged", "lost"};
  char room[kMaxText + 1];
  std::string words = kStatus[static_cast<int>(message.status)];
  words += ' ' + std::to_string(message.sequence) + '+' + std::to_string(message.records);
  const std::string_view text = TextOf(message, room);
  return text.empty() ? words : words + ' ' + std::string(text);
}

/// Assembles in one call or several.
class Assembling : public ::testing::Test {
 protected:
  std::vector<std::string> Look(const std::vector<Entry> &entries) { return LookAt(CellsOf(entries)); }
  std::vector<std::string> LookAt(const std::vector<Cell> &cells) {
    std::vector<Message> messages(Assembler::MaxMessages(cells.size()));
    messages.resize(assembler.Assemble(cells, messages));
    std::vector<std::string> words;
    for (const Message &message : messages) {
      EXPECT_EQ(message.ring, Ring::Event);
      words.push_back(Described(message));
    }
    return words;
  }

  Assembler assembler{Ring::Event};
};

using Words = std::vector<std::string>;

TEST_F(Assembling, NoCells_GivesNothing) { EXPECT_EQ(Look({}), Words{}); }

TEST_F(Assembling, SingleRecords_AreMessages) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 7}, {.text = "b", .sequence = 8}}), (Words{"ok 7+1 a", "ok 8+1 b"}));
}

TEST_F(Assembling, Fragments_ArePutTogether) {
  EXPECT_EQ(Look({{.text = "one ", .sequence = 7, .fragment = 0},
                  {.text = "two ", .sequence = 8, .fragment = 1},
                  {.text = "three", .sequence = 9, .fragment = 2},
                  {.text = "next", .sequence = 10, .fragment = 0}}),
            (Words{"ok 7+3 one two three", "ok 10+1 next"}));
}

TEST_F(Assembling, TheLongestMessage_IsWhole) {
  std::vector<Entry> entries;
  std::string text;
  for (unsigned fragment = 0; fragment < 32; ++fragment) {
    entries.push_back(
        {.text = std::string(127, static_cast<char>('A' + fragment)), .sequence = fragment, .fragment = fragment});
    text += entries.back().text;
  }
  EXPECT_EQ(Look(entries), Words{"ok 0+32 " + text});
}

TEST_F(Assembling, NumbersAfter4095_GoOnWith0) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 4095}, {.text = "b", .sequence = 0}}),
            (Words{"ok 4095+1 a", "ok 0+1 b"}));
  EXPECT_EQ(assembler.Lost(), 0U);
}

TEST_F(Assembling, AJump_IsNotedWithHowManyAreLost) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 7}, {.text = "b", .sequence = 10}}),
            (Words{"ok 7+1 a", "lost 8+2", "ok 10+1 b"}));
  EXPECT_EQ(assembler.Lost(), 2U);
}

TEST_F(Assembling, AJumpOver4095_IsCountedModulo4096) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 4090}, {.text = "b", .sequence = 3}}),
            (Words{"ok 4090+1 a", "lost 4091+8", "ok 3+1 b"}));
  EXPECT_EQ(Look({{.text = "c", .sequence = 3}}), (Words{"lost 4+4095", "ok 3+1 c"}));
  EXPECT_EQ(assembler.Lost(), 4103U);
}

TEST_F(Assembling, AJumpBetweenTwoLooks_IsNoted) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 7}}), Words{"ok 7+1 a"});
  EXPECT_EQ(Look({}), Words{});
  EXPECT_EQ(Look({{.text = "b", .sequence = 9}}), (Words{"lost 8+1", "ok 9+1 b"}));
}

TEST_F(Assembling, FragmentsWhoseBeginningWasOverwritten_AreAPartialMessage) {
  EXPECT_EQ(Look({{.text = "two ", .sequence = 8, .fragment = 1},
                  {.text = "three", .sequence = 9, .fragment = 2},
                  {.text = "next", .sequence = 10}}),
            (Words{"partial 8+2 two three", "ok 10+1 next"}));
}

TEST_F(Assembling, FragmentsAfterAJump_AreAPartialMessageOfTheirOwn) {
  EXPECT_EQ(Look({{.text = "one ", .sequence = 7, .fragment = 0}, {.text = "three", .sequence = 9, .fragment = 2}}),
            (Words{"ok 7+1 one ", "lost 8+1", "partial 9+1 three"}));
}

TEST_F(Assembling, AFragmentThatFollowsNoOther_IsDamaged) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 7}, {.text = "c", .sequence = 8, .fragment = 2}}),
            (Words{"ok 7+1 a", "damaged 8+1 c"}));
  EXPECT_EQ(assembler.Damaged(), 1U);
}

TEST_F(Assembling, AFragmentOfAnotherTimeOrType_DoesNotContinue) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 7}, {.text = "b", .sequence = 8, .fragment = 1, .ms = 790}}),
            (Words{"ok 7+1 a", "damaged 8+1 b"}));
  EXPECT_EQ(Look({{.text = "c", .sequence = 9}, {.text = "d", .sequence = 10, .type = 1, .fragment = 1}}),
            (Words{"ok 9+1 c", "damaged 10+1 d"}));
}

TEST_F(Assembling, AFragmentInALaterCall_IsDamaged) {
  EXPECT_EQ(Look({{.text = "a", .sequence = 7}}), Words{"ok 7+1 a"});
  EXPECT_EQ(Look({{.text = "b", .sequence = 8, .fragment = 1}}), Words{"damaged 8+1 b"});
}

TEST_F(Assembling, ADamagedCell_KeepsItsPlaceAndCountsAsOneRecord) {
  std::vector<Cell> cells = CellsOf({{.text = "a", .sequence = 7},
                                     {.text = "b", .sequence = 8},
                                     {.text = "c", .sequence = 9},
                                     {.text = "d", .sequence = 11}});
  cells[1].length = 4711;
  EXPECT_EQ(LookAt(cells), (Words{"ok 7+1 a", "damaged 0+1", "ok 9+1 c", "lost 10+1", "ok 11+1 d"}));
  EXPECT_EQ(assembler.Damaged(), 1U);
  EXPECT_EQ(assembler.Lost(), 1U);
}

TEST_F(Assembling, ADamagedCellInsideAMessage_LeavesItsEndPartial) {
  std::vector<Cell> cells = CellsOf({{.text = "one ", .sequence = 7, .fragment = 0},
                                     {.text = "two ", .sequence = 8, .fragment = 1},
                                     {.text = "three", .sequence = 9, .fragment = 2}});
  cells[1].length = 0;
  EXPECT_EQ(LookAt(cells), (Words{"ok 7+1 one ", "damaged 0+1", "partial 9+1 three"}));
}

TEST_F(Assembling, CellsOfRandomBytes_GiveNoMoreThanThereIsRoomFor) {
  const devsupport::test::TestSeed seed;
  std::mt19937_64 random(seed);
  for (int round = 0; round < 200; ++round) {
    std::vector<Cell> cells(random() % 64);
    for (Cell &cell : cells) {
      for (std::uint8_t &byte : cell.record) byte = static_cast<std::uint8_t>(random());
      cell.length = static_cast<std::uint32_t>(random() % 2 == 0 ? random() : random() % 140);
      if (random() % 2 == 0) cell.record[127] = cell.record[8 + random() % 128] = 0;
    }
    LookAt(cells);
  }
}

}  // namespace
