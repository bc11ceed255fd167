// SPDX-License-Identifier: MIT
// Messages that can be checked: each names its writer and its number, and all its characters follow from them.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tests/logmgr/LogRing.h"

namespace devsupport::test {

/// The name of a writer, which the channel puts before the text.
inline std::string NameOf(int writer) { return "w" + std::to_string(writer) + " "; }

/// Writers from this one on write messages of up to 32 records, the others of up to five.
inline constexpr int kFirstLongWriter = 5;

/// A writer's n-th message.
inline std::string MessageOf(int writer, unsigned number) {
  char unit[32];
  std::snprintf(unit, sizeof unit, "%d:%08u;", writer, number);
  const unsigned most = writer < kFirstLongWriter ? 560 : 4000;
  const std::size_t length = 11 + (number * 37 + static_cast<unsigned>(writer) * 101) % most;
  std::string text;
  while (text.size() < length) text += unit;
  text.resize(length);
  return text;
}

/// The result of one check of a ring's records.
struct Findings {
  unsigned whole = 0;     // messages
  unsigned cut = 0;       // incomplete messages
  unsigned gaps = 0;      // missing numbers
  unsigned broken = 0;    // records that no writer has written
  std::string complaint;  // the first of those

  void Complain(const std::string &text) {
    ++broken;
    if (complaint.empty()) complaint = text;
  }
};

/// Joins the records to messages and compares each with its expected content.
class Listener {
 public:
  void Hear(const Record &record) {
    if (heardAny_ && record.sequence != (last_.sequence + 1) % 4096) {
      ++findings.gaps;
      if (record.sequence != (last_.sequence + 2) % 4096) findings.Complain("numbers jump");
    }
    if (record.fragment == 0) {
      End();
      Begin(record);
    } else if (heardAny_ && (record.fragment != last_.fragment + 1 || record.Time() != last_.Time())) {
      findings.Complain("a fragment stands alone: " + record.text);
    }
    if (inMessage_) Compare(record);
    last_ = record;
    heardAny_ = true;
  }
  /// The last message is complete.
  void End() {
    if (!inMessage_) return;
    inMessage_ = false;
    ++(position_ == expected_.size() ? findings.whole : findings.cut);
    if (position_ == expected_.size()) numbers.emplace_back(writer_, number_);
  }

  Findings findings;
  std::vector<std::pair<int, unsigned>> numbers;  // writer and number of the complete ones

 private:
  void Begin(const Record &record) {
    int nameOfWriter = 0;
    if (std::sscanf(record.text.c_str(), "w%d %d:%8u;", &nameOfWriter, &writer_, &number_) != 3 ||
        nameOfWriter != writer_) {
      findings.Complain("nobody's message: " + record.text);
      return;
    }
    inMessage_ = true;
    position_ = 0;
    expected_ = NameOf(writer_) + MessageOf(writer_, number_);
  }
  void Compare(const Record &record) {
    if (record.text != expected_.substr(position_, 127) || record.length != record.text.size() + 9 ||
        record.type != static_cast<unsigned>(writer_))
      findings.Complain("torn: " + record.text + "\n  for " + expected_.substr(position_, 127));
    position_ = std::min(position_ + 127, expected_.size());
  }

  bool heardAny_ = false;
  bool inMessage_ = false;
  Record last_;
  int writer_ = 0;
  unsigned number_ = 0;
  std::string expected_;
  std::size_t position_ = 0;
};

/// Checks the whole ring. The caller holds the lock.
inline Findings LookAt(const RawRing &ring) {
  Listener listener;
  for (const Record &record : ring.Records()) listener.Hear(record);
  listener.End();
  return listener.findings;
}

}  // namespace devsupport::test
