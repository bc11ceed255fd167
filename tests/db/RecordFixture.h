// SPDX-License-Identifier: MIT
// Fixture of the record operations: an open store, what it prints when the library fails, and reading into a buffer.
#pragma once

#include <db.h>

#include <cstring>
#include <ostream>
#include <string>

#include "tests/db/Store.h"
#include "tests/support/CapturedOutput.h"

namespace devsupport::test {

class Record : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) Open();
  }

  // The texts that the library and the store print about an error number. The table prints it twice, writers once
  // more.
  static std::string Report(int error) {
    const std::string text = db_strerror(error);
    return text + ": " + text + kSourceLine;
  }
  static std::string Short(int error) { return "(" + std::to_string(error) + ") " + db_strerror(error) + "\n"; }
};

/// What a read returned and printed, and the bytes that it wrote to the buffer.
struct Reading {
  int code;
  std::string bytes;
  std::string printed = "";
  bool operator==(const Reading &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Reading &reading) {
  return out << reading.code << " \"" << ::testing::PrintToString(reading.bytes)
             << "\", printed: " << reading.printed;
}

/// Calls read(buffer) with a buffer of 32 bytes.
template <typename Read>
Reading Read32(Read read) {
  char buffer[32];
  std::memset(buffer, '#', sizeof buffer);
  CapturedOutput err(stderr);
  const int code = read(buffer);
  std::string bytes(buffer, sizeof buffer);
  bytes.erase(bytes.find_last_not_of('#') + 1);
  return {code, bytes, err.Take()};
}

}  // namespace devsupport::test
