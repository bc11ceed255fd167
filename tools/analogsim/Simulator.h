// SPDX-License-Identifier: MIT
// One request from its arrival to its answer: registers fetched and kept, words for the user.
#pragma once

#include <memory>

#include "tools/analogsim/Driver.h"
#include "tools/analogsim/Options.h"
#include "tools/analogsim/Store.h"
#include "tools/analogsim/Trace.h"

namespace analogsim {

class Simulator {
 public:
  /// Throws std::runtime_error when the state file cannot be used.
  explicit Simulator(const Options &options);

  /// Answers one request. It fails with EIO when the registers cannot be saved, and prints why. Not for several threads
  /// at once.
  Answer Handle(std::uint32_t request, const Record &record);

 private:
  Driver driver_;
  std::unique_ptr<Store> store_;
  bool trace_;
  TraceBytes traceBytes_;
};

/// Writes a text to standard error with one call, so that it is not mixed with output of the command.
void Say(const std::string &text);

}  // namespace analogsim
