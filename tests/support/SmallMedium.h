// SPDX-License-Identifier: MIT
// A medium that can be full: a file system in memory of a limited size, which only the test's processes see.
#pragma once

#include <cstddef>
#include <string>

namespace devsupport::test {

/// Covers a folder while it lives. Processes forked meanwhile see it, too.
class SmallMedium {
 public:
  /// Throws std::runtime_error when the machine does not let us mount.
  SmallMedium(std::string folder, std::size_t bytes);
  ~SmallMedium();
  SmallMedium(const SmallMedium &) = delete;
  SmallMedium &operator=(const SmallMedium &) = delete;

  /// Takes all room but so many bytes, rounded up to a page.
  void LeaveFree(std::size_t bytes) const;
  /// Gives all of that back.
  void MakeRoom() const;

  static bool CanMake();

 private:
  std::string FillerPath() const;

  std::string folder_;
};

}  // namespace devsupport::test
