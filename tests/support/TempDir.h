// SPDX-License-Identifier: MIT
// A temporary folder. The destructor removes it with its content.
#pragma once

#include <filesystem>
#include <string>

namespace devsupport::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::filesystem::path &Path() const { return path_; }
  std::filesystem::path operator/(const std::string &name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// The whole content of a file; throws std::runtime_error when there is none.
std::string FileText(const std::filesystem::path &path);

/// Makes the file hold exactly the text.
void WriteFile(const std::filesystem::path &path, const std::string &text);

}  // namespace devsupport::test
