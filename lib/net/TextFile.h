// SPDX-License-Identifier: MIT
// A text file of the kernel, read line by line.
#pragma once

#include <cstdio>
#include <span>

namespace devsupport::net {

/// Open for reading while the object lives. A file that cannot be opened has no lines.
class TextFile {
 public:
  explicit TextFile(const char *pPath) : pFile_(std::fopen(pPath, "re")) {}
  ~TextFile() {
    if (pFile_ != nullptr) std::fclose(pFile_);
  }
  TextFile(const TextFile &) = delete;
  TextFile &operator=(const TextFile &) = delete;

  /// Reads the next line, with its line end when there is room, NUL-terminated. What does not fit is skipped, so
  /// that the next call begins with the next line of the file. False at the end of the file.
  bool ReadLine(std::span<char> line) const {
    if (pFile_ == nullptr) return false;
    line.back() = kUntouched;
    if (std::fgets(line.data(), static_cast<int>(line.size()), pFile_) == nullptr) return false;
    const bool bFull = line.back() != kUntouched;
    if (bFull && line[line.size() - 2] != '\n') SkipLine();
    return true;
  }

 private:
  static constexpr char kUntouched = '\1';  // fgets writes there only the terminator, and only into a full buffer

  void SkipLine() const {
    for (int nChar = 0; nChar != '\n' && nChar != EOF;) nChar = std::fgetc(pFile_);
  }

  std::FILE *pFile_;
};

}  // namespace devsupport::net
