// SPDX-License-Identifier: MIT
#include "tests/support/CapturedOutput.h"

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>

namespace devsupport::test {

CapturedOutput::CapturedOutput(std::FILE *stream)
    : stream_(stream), savedFd_(::dup(::fileno(stream))), memoryFd_(::memfd_create("captured", MFD_CLOEXEC)) {
  std::fflush(stream_);
  if (savedFd_ < 0 || memoryFd_ < 0 || ::dup2(memoryFd_, ::fileno(stream_)) < 0)
    throw std::runtime_error("cannot capture a stream");
}

CapturedOutput::~CapturedOutput() {
  Restore();
  ::close(memoryFd_);
}

std::string CapturedOutput::Take() {
  Restore();
  std::string text;
  char buffer[4096];
  ::lseek(memoryFd_, 0, SEEK_SET);
  for (ssize_t got = 0; (got = ::read(memoryFd_, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(got));
  return text;
}

void CapturedOutput::Restore() {
  if (savedFd_ < 0) return;
  std::fflush(stream_);
  ::dup2(savedFd_, ::fileno(stream_));
  ::close(savedFd_);
  savedFd_ = -1;
}

}  // namespace devsupport::test
