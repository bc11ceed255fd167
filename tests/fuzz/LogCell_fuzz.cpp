// SPDX-License-Identifier: MIT
// Cells of a log ring with any content: parsed, put together to messages, printed. Nothing outside the cells is read,
// each cell is accounted for, and the output is safe for a terminal and for readers of JSON.

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "tests/devlog/Cells.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tools/devlog/Line.h"
#include "tools/devlog/Message.h"
#include "tools/devlog/Print.h"

namespace {

using devlog::Cell;
using devlog::Damage;
using devlog::Fragment;
using devlog::Look;
using devlog::Message;
using devlog::Status;
using devsupport::test::FuzzInput;
using nlohmann::json;

constexpr std::size_t kMostCells = 80;  // more than a message can have

/// Bits of the first byte of a cell's description.
constexpr unsigned kGoesOn = 1;     // the message of the cell before
constexpr unsigned kJump = 2;       // records are missing before it
constexpr unsigned kAnyLength = 4;  // a length word that may be none
constexpr unsigned kNoEnd = 8;      // no NUL after the text

/// Cells made from the input, mostly valid ones.
class CellMaker {
 public:
  explicit CellMaker(FuzzInput &input) : input_(input) {}

  Cell Next() {
    const auto kind = static_cast<unsigned>(input_.Below(256));
    sequence_ = (sequence_ + 1 + (kind & kJump ? Number(2) : 0)) % devlog::kSequences;
    if ((kind & kGoesOn) != 0) {
      time_ += 1U << LOGCELL_FRAGMENT_SHIFT;
    } else {
      time_ = Number(4);
      type_ = Number(1) % 16;
    }
    Cell cell{};
    const std::string_view text = input_.Take(input_.Below(LOGCELL_TEXT_CHARS + 1));
    cell.length = kind & kAnyLength ? Number(4) : static_cast<std::uint32_t>(LOGCELL_LENGTH(text.size()));
    devlog_test::SetWord(cell, 0, time_);
    devlog_test::SetWord(cell, 4, sequence_ | type_ << LOGCELL_TYPE_SHIFT);
    std::fill(std::begin(cell.record) + LOGCELL_HEAD_BYTES, std::end(cell.record), kind & kNoEnd ? 'x' : '\0');
    std::copy(text.begin(), text.end(), cell.record + LOGCELL_HEAD_BYTES);
    return cell;
  }

 private:
  std::uint32_t Number(int bytes) {
    std::uint32_t number = 0;
    for (int i = 0; i < bytes; ++i) number |= static_cast<std::uint32_t>(input_.Below(256)) << (8 * i);
    return number;
  }

  FuzzInput &input_;
  std::uint32_t sequence_ = 0;
  std::uint32_t time_ = 0;
  std::uint32_t type_ = 0;
};

std::vector<Cell> CellsOf(FuzzInput &input) {
  CellMaker maker(input);
  std::vector<Cell> cells;
  while (!input.IsUsedUp() && cells.size() < kMostCells) cells.push_back(maker.Next());
  cells.shrink_to_fit();
  return cells;
}

/// A valid cell has the same content when it is written and read again.
void ExpectRoundTrip(const Fragment &fragment) {
  const auto ms = static_cast<unsigned>(fragment.time);
  const Cell again = devlog_test::CellOf({.text = std::string(fragment.text),
                                          .sequence = fragment.sequence,
                                          .type = fragment.type,
                                          .fragment = fragment.number,
                                          .hour = ms / 3'600'000,
                                          .minute = ms / 60'000 % 60,
                                          .second = ms / 1000 % 60,
                                          .ms = ms % 1000});
  const Fragment read = devlog::Decode(again);
  EXPECT_EQ(read.damage, Damage::None);
  EXPECT_EQ(read.time, fragment.time);
  EXPECT_EQ(read.number, fragment.number);
  EXPECT_EQ(read.sequence, fragment.sequence);
  EXPECT_EQ(read.type, fragment.type);
  EXPECT_EQ(read.text, fragment.text);
}

void ExpectDecoded(const Cell &cell) {
  const Fragment fragment = devlog::Decode(cell);
  const bool isLength = cell.length >= 9 && cell.length <= 136;
  ASSERT_EQ(fragment.damage == Damage::Length, !isLength);
  if (!isLength) {
    EXPECT_TRUE(fragment.text.empty());
    EXPECT_EQ(fragment.time, devlog::kUnknownTime);
    return;
  }
  EXPECT_EQ(fragment.text.size(), cell.length - 9);
  EXPECT_EQ(reinterpret_cast<const std::uint8_t *>(fragment.text.data()), cell.record + 8);
  EXPECT_EQ(fragment.damage == Damage::Text, cell.record[cell.length - 1] != 0);
  if (fragment.damage == Damage::None) ExpectRoundTrip(fragment);
}

/// Each cell belongs to one message, in order; notes stand for cells that are not there.
void ExpectAccounted(const std::vector<Cell> &cells, const std::vector<Message> &messages,
                     const devlog::Assembler &assembler) {
  std::size_t taken = 0;
  std::uint32_t lost = 0;
  std::uint32_t damaged = 0;
  for (const Message &message : messages) {
    ASSERT_GT(message.records, 0U);
    if (message.status == Status::Lost) {
      lost += message.records;
      EXPECT_LT(message.records, devlog::kSequences);
      EXPECT_EQ(message.first, nullptr);
      continue;
    }
    if (message.status == Status::Damaged) ++damaged;
    ASSERT_LE(taken + message.records, cells.size());
    EXPECT_EQ(message.first, cells.data() + taken);
    EXPECT_LE(message.records, static_cast<unsigned>(LOGCELL_FRAGMENTS));
    taken += message.records;
  }
  EXPECT_EQ(taken, cells.size());
  EXPECT_EQ(assembler.Lost(), lost);
  EXPECT_EQ(assembler.Damaged(), damaged);
}

std::string TextOf(const Message &message) {
  static char room[devlog::kMaxText + 1];
  std::string expected;
  for (unsigned i = 0; message.first != nullptr && i < message.records; ++i)
    expected += devlog::Decode(message.first[i]).text;
  const std::string_view text = devlog::TextOf(message, room);
  EXPECT_EQ(text, expected);
  EXPECT_EQ(room[text.size()], '\0');
  return expected;
}

std::string Printed(const Message &message, const std::string &text, Look look) {
  static devlog::Line line;
  line.Clear();
  devlog::AddMessage(line, message, {.text = text}, look);
  return std::string(line.Text());
}

bool IsUtf8(const std::string &text) {
  return !json(text).dump(-1, ' ', false, json::error_handler_t::replace).empty() &&
         json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)) == json(text);
}

std::string WithoutColours(std::string text) {
  for (std::size_t begin = 0; (begin = text.find('\033')) != std::string::npos;)
    text.erase(begin, text.find('m', begin) - begin + 1);
  return text;
}

void ExpectPrintedForPeople(const Message &message, const std::string &text) {
  const std::string plain = Printed(message, text, Look::Plain);
  EXPECT_TRUE(IsUtf8(plain));
  EXPECT_TRUE(std::none_of(plain.begin(), plain.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }));
  EXPECT_EQ(plain.find("\xc2\x9b"), std::string::npos) << "a terminal takes U+009B for a command";
  EXPECT_EQ(WithoutColours(Printed(message, text, Look::Coloured)), plain);
}

void ExpectPrintedAsJson(const Message &message, const std::string &text) {
  const std::string printed = Printed(message, text, Look::Json);
  const json object = json::parse(printed, nullptr, false);
  ASSERT_TRUE(object.is_object()) << printed;
  EXPECT_EQ(object.size(), 10U);
  EXPECT_EQ(object.at("records"), message.records);
  EXPECT_EQ(object.at("time").get<std::string>().size(), 12U);
  const bool isText = IsUtf8(text) && text.find('\0') == std::string::npos;
  EXPECT_TRUE(object.contains(isText ? "text" : "text_bytes"));
  if (isText) {
    EXPECT_EQ(object.at("text"), text);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzInput input(data, size);
  const std::vector<Cell> cells = CellsOf(input);
  for (const Cell &cell : cells) ExpectDecoded(cell);

  devlog::Assembler assembler(devlog::Ring::Event);
  std::vector<Message> messages(devlog::Assembler::MaxMessages(cells.size()));
  messages.resize(assembler.Assemble(cells, messages));
  ExpectAccounted(cells, messages, assembler);
  for (const Message &message : messages) {
    const std::string text = TextOf(message);
    ExpectPrintedForPeople(message, text);
    ExpectPrintedAsJson(message, text);
  }
  return 0;
}
