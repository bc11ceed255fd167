// SPDX-License-Identifier: MIT
// Keeps errno as it is over a scope: over a report, whose printing must not change what the caller reads, and
// over a signal handler, which must not change what the interrupted code reads.
#pragma once

#include <cerrno>

namespace devsupport {

class PreservedErrno {
 public:
  PreservedErrno() : nErrno_(errno) {}
  ~PreservedErrno() { errno = nErrno_; }
  PreservedErrno(const PreservedErrno &) = delete;
  PreservedErrno &operator=(const PreservedErrno &) = delete;

 private:
  int nErrno_;
};

}  // namespace devsupport
