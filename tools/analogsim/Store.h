// SPDX-License-Identifier: MIT
// Where the registers are kept between requests: in memory, or in a file that outlives the session.
#pragma once

#include <filesystem>
#include <functional>

#include "tools/analogsim/Driver.h"

namespace analogsim {

class Store {
 public:
  using Change = std::function<void(Registers &)>;

  Store() = default;
  virtual ~Store() = default;
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;

  /// Hands the registers to the function and keeps what it leaves in them, as one step: no other
  /// update comes between. Throws std::runtime_error, with nothing kept, when that cannot be done.
  virtual void Update(const Change &change) = 0;
};

/// Forgets the registers with the object. For one thread.
class MemoryStore final : public Store {
 public:
  void Update(const Change &change) override { change(registers_); }

 private:
  Registers registers_;
};

/// Keeps the registers in a JSON file. Any number of processes may use the same file at once: each update
/// locks FILE.lock, reads the file, and replaces it in one step if anything changed. A crash leaves the old
/// file or the new one, never half of one. A missing file means registers that were never written; a damaged one is
/// never replaced.
class FileStore final : public Store {
 public:
  /// Makes the file's folder if there is none, and reads the file once to find out that it can be used.
  explicit FileStore(const std::filesystem::path &file);

  void Update(const Change &change) override;

 private:
  Registers Read() const;
  void Write(const Registers &registers) const;

  std::filesystem::path file_;  ///< symbolic links resolved: every name of the file finds the same lock
};

}  // namespace analogsim
