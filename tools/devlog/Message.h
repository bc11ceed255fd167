// SPDX-License-Identifier: MIT
// Puts a ring's records together to messages, and notes how many records are missing between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "tools/devlog/Cell.h"

namespace devlog {

enum class Ring : std::uint8_t { Log, Event };

enum class Status : std::uint8_t {
  Ok,
  Partial,  ///< its first fragments are missing
  Damaged,  ///< see Message::damage
  Lost,     ///< no message: `records` records are missing here, the first with the number `sequence`
};

/// One message, made of consecutive cells, or a note. Points into these cells.
struct Message {
  Ring ring = Ring::Log;
  Status status = Status::Ok;
  Damage damage = Damage::None;
  DayTime time = kUnknownTime;  ///< in a note: that of the record after the gap
  unsigned type = 0;
  unsigned sequence = 0;   ///< of its first record
  unsigned records = 0;    ///< how many cells; in a note: records lost
  bool isAtLeast = false;  ///< in a note: this many or more are lost
  const Cell *first = nullptr;
  std::int64_t when = 0;  ///< time with its day, see Place()
};

/// The longest text that a message can have.
inline constexpr std::size_t kMaxText = std::size_t{LOGCELL_FRAGMENTS} * LOGCELL_TEXT_CHARS;

/// Puts the text of a message together.
/// room     out     the text and a NUL after it
/// Returns  the text, in room; empty for notes and where no length was valid.
std::string_view TextOf(const Message &message, std::span<char, kMaxText + 1> room);

/// Puts the records of one ring together, over several reads.
class Assembler {
 public:
  explicit Assembler(Ring ring) : ring_(ring) {}

  /// How many messages and notes this many cells can give: each cell can have a note before it.
  static constexpr std::size_t MaxMessages(std::size_t cells) { return 2 * cells; }

  /// cells    in      what came into the ring since the last call, oldest first; a message is whole or begins before
  ///                  what the ring holds, because writers hold the ring's lock for all fragments of a message
  /// messages out     room for MaxMessages(cells.size())
  /// Returns  the number of messages and notes.
  /// overrun  in      at least this many records came since the last call, with these cells; the exact number is not
  ///                  known. 0: the numbers of the records tell how many came
  std::size_t Assemble(std::span<const Cell> cells, std::span<Message> messages, std::uint32_t overrun = 0);

  /// The number that the next record has; kSequences when it is not known.
  unsigned Expected() const { return expected_; }
  void Expect(unsigned sequence) { expected_ = sequence; }

  /// Counts what is missing between the last record and the next one that will be written.
  void CountUpTo(unsigned sequence);

  /// Counts since the start.
  std::uint32_t Lost() const { return lost_; }
  bool IsLostExact() const { return isLostExact_; }
  std::uint32_t Damaged() const { return damaged_; }

 private:
  std::uint32_t MissingUpTo(unsigned sequence);
  void NoteGap(const Fragment &fragment, Message *&end);
  void Begin(const Cell &cell, const Fragment &fragment, Message *&end);
  bool Continues(const Fragment &fragment) const;

  static constexpr unsigned kUnknown = kSequences;

  Ring ring_;
  unsigned expected_ = kUnknown;  // sequence number of the next record
  bool isBroken_ = true;          // what was before the next record is not known
  Message *open_ = nullptr;       // the message that the next fragment may belong to
  unsigned fragment_ = 0;         // number of its last fragment
  std::uint32_t overrun_ = 0;     // see Assemble(); reduced by those already found
  std::uint32_t lost_ = 0;
  bool isLostExact_ = true;
  std::uint32_t damaged_ = 0;
};

}  // namespace devlog
