// SPDX-License-Identifier: MIT
// The seal of a closed store while its files are read.
#pragma once

#include <cstdint>

#include "tools/devconf/Options.h"

namespace devconf {

class Seal {
 public:
  enum class State : std::uint8_t {
    Fits,    ///< the files are as they were when the store was closed in order
    None,    ///< the store is open, or was not closed in order
    Damaged  ///< a file is not as it was
  };

  explicit Seal(const Options &options);
  ~Seal();
  Seal(const Seal &) = delete;
  Seal &operator=(const Seal &) = delete;

  State Found() const { return state_; }
  /// The file that is not as it was.
  const char *DamagedFile() const { return damaged_; }

  /// Whether no process has opened the store since then. A process that opens it first removes the seal.
  bool IsStillThere() const;

 private:
  int home_ = -1;
  int seal_ = -1;
  State state_ = State::None;
  char damaged_[64] = "";
};

}  // namespace devconf
