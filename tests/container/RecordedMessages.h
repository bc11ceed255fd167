// SPDX-License-Identifier: MIT
// Collects the messages of MyErrPrintf as long as the object lives.
#pragma once

#include <devsupport/diag/Diagnostics.h>

#include <string>
#include <utility>
#include <vector>

namespace devsupport::test {

class RecordedMessages {
 public:
  RecordedMessages() {
    Texts().clear();
    MyErrSetOutput([](const char *pText) {
      Texts().emplace_back(pText);
      return 0;
    });
  }
  ~RecordedMessages() { MyErrSetOutput(MyErrOutputDefault); }
  RecordedMessages(const RecordedMessages &) = delete;
  RecordedMessages &operator=(const RecordedMessages &) = delete;

  /// What was printed since construction or the last call.
  std::vector<std::string> Take() { return std::move(Texts()); }

 private:
  static std::vector<std::string> &Texts() {
    static std::vector<std::string> texts;
    return texts;
  }
};

}  // namespace devsupport::test
