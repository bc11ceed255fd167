// SPDX-License-Identifier: MIT
// A medium that can be full: a file system in memory with a limited size, visible only to the test's processes.
#pragma once

#include <cstddef>
#include <string>

namespace devsupport::test {

/// Covers a folder as long as it lives, also for processes forked meanwhile.
class SmallMedium {
 public:
  /// Throws std::runtime_error when mounting is not allowed.
  SmallMedium(std::string folder, std::size_t bytes);
  ~SmallMedium();
  SmallMedium(const SmallMedium &) = delete;
  SmallMedium &operator=(const SmallMedium &) = delete;

  /// Leaves only this many bytes of free space, rounded up to a page.
  void LeaveFree(std::size_t bytes) const;
  /// Frees the space again.
  void MakeRoom() const;

  static bool CanMake();

 private:
  std::string FillerPath() const;

  std::string folder_;
};

}  // namespace devsupport::test
