// SPDX-License-Identifier: MIT
// What the tests of the record operations share: an open store, and what it prints when the library fails.
#pragma once

#include <db.h>

#include <string>

#include "tests/db/Store.h"

namespace devsupport::test {

class Record : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) Open();
  }

  // What the library and the store say about an error number, twice by the table and once more by writers.
  static std::string Report(int error) {
    const std::string text = db_strerror(error);
    return text + ": " + text + kSourceLine;
  }
  static std::string Short(int error) { return "(" + std::to_string(error) + ") " + db_strerror(error) + "\n"; }
};

}  // namespace devsupport::test
