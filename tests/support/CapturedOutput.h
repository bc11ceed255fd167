// SPDX-License-Identifier: MIT
// Captures the texts that the tested code prints on standard output or standard error.
#pragma once

#include <cstdio>
#include <string>

namespace devsupport::test {

/// Redirects one stream's descriptor into memory from construction until Take() or destruction.
/// Output of child processes that inherit the descriptor is captured too.
class CapturedOutput {
 public:
  explicit CapturedOutput(std::FILE *stream);
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput &) = delete;
  CapturedOutput &operator=(const CapturedOutput &) = delete;

  /// Ends the redirection and returns everything printed since construction.
  std::string Take();

 private:
  void Restore();

  std::FILE *stream_;
  int savedFd_;
  int memoryFd_;
};

}  // namespace devsupport::test
