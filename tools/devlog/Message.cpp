// SPDX-License-Identifier: MIT
// Puts a ring's records together to messages, and notes how many records are missing between them.

#include "tools/devlog/Message.h"

#include <algorithm>
#include <cstring>

namespace devlog {

std::string_view TextOf(const Message &message, std::span<char, kMaxText + 1> room) {
  std::size_t length = 0;
  const unsigned cells = message.first == nullptr ? 0 : message.records;
  for (unsigned cell = 0; cell < cells; ++cell) {
    const std::string_view text = Decode(message.first[cell]).text;
    const std::size_t taken = std::min(text.size(), kMaxText - length);
    if (taken != 0) std::memcpy(room.data() + length, text.data(), taken);
    length += taken;
  }
  room.data()[length] = '\0';
  return {room.data(), length};
}

// Records are numbered modulo 4096. After an overrun, 4096 more may be missing, or a multiple of it: the smallest
// possible number is counted.
std::uint32_t Assembler::MissingUpTo(unsigned sequence) {
  if (expected_ == kUnknown) return 0;
  std::uint32_t missing = (sequence - expected_) % kSequences;
  if (missing < overrun_) missing += (overrun_ - missing + kSequences - 1) / kSequences * kSequences;
  lost_ += missing;
  return missing;
}

void Assembler::CountUpTo(unsigned sequence) { MissingUpTo(sequence); }

void Assembler::NoteGap(const Fragment &fragment, Message *&end) {
  const std::uint32_t missing = MissingUpTo(fragment.sequence);
  const bool isOverrun = overrun_ != 0;
  overrun_ = 0;
  if (missing == 0) return;
  *end++ = {.ring = ring_,
            .status = Status::Lost,
            .time = fragment.time,
            .sequence = expected_,
            .records = missing,
            .isAtLeast = isOverrun};
  isBroken_ = true;
}

bool Assembler::Continues(const Fragment &fragment) const {
  return open_ != nullptr && !isBroken_ && fragment.number == fragment_ + 1 && fragment.time == open_->time &&
         fragment.type == open_->type;
}

void Assembler::Begin(const Cell &cell, const Fragment &fragment, Message *&end) {
  Message &message = *end++;
  message = {.ring = ring_,
             .damage = fragment.damage,
             .time = fragment.time,
             .type = fragment.type,
             .sequence = fragment.sequence,
             .records = 1,
             .first = &cell};
  if (fragment.damage == Damage::None && fragment.number != 0) {
    message.status = Status::Partial;
    if (!isBroken_) message.damage = Damage::Order;
  }
  if (message.damage != Damage::None) {
    message.status = Status::Damaged;
    ++damaged_;
  }
  open_ = &message;
  fragment_ = fragment.number;
}

std::size_t Assembler::Assemble(std::span<const Cell> cells, std::span<Message> messages, std::uint32_t overrun) {
  if (overrun != 0) {
    isLostExact_ = false;
    overrun_ = std::max<std::uint32_t>(overrun, static_cast<std::uint32_t>(cells.size()) + 1) -
               static_cast<std::uint32_t>(cells.size());
  }
  Message *end = messages.data();
  open_ = nullptr;
  for (const Cell &cell : cells) {
    const Fragment fragment = Decode(cell);
    if (fragment.damage != Damage::None) {
      // Its contents are not used, but it counts as one record.
      Begin(cell, fragment, end);
      open_ = nullptr;
      isBroken_ = true;
      if (expected_ != kUnknown) expected_ = (expected_ + 1) % kSequences;
      continue;
    }
    NoteGap(fragment, end);
    expected_ = (fragment.sequence + 1) % kSequences;
    if (Continues(fragment)) {
      ++open_->records;
      ++fragment_;
    } else {
      Begin(cell, fragment, end);
    }
    isBroken_ = false;
  }
  open_ = nullptr;
  return static_cast<std::size_t>(end - messages.data());
}

}  // namespace devlog
