// SPDX-License-Identifier: MIT
// Captures the output on a standard stream without a system call: it replaces the stream itself, so that the
// descriptor stays free for a sanitizer's report.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace devsupport::test {

/// Catches what this process prints on stdout or stderr while the object lives.
class StreamText {
 public:
  explicit StreamText(std::FILE *&stream)
      : stream_(stream), saved_(std::exchange(stream, ::open_memstream(&text_, &size_))) {}
  ~StreamText() {
    std::fclose(std::exchange(stream_, saved_));
    std::free(text_);
  }
  StreamText(const StreamText &) = delete;
  StreamText &operator=(const StreamText &) = delete;

  std::string Text() const {
    std::fflush(stream_);
    return {text_, size_};
  }

 private:
  char *text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE *&stream_;
  std::FILE *saved_;
};

}  // namespace devsupport::test
