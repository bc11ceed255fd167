// SPDX-License-Identifier: MIT
// A file of the kernel with text from a fuzz target: fopen opens this text in its place.
// The target's devsupport_fuzz() names fopen under WRAP.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace devsupport::test {

/// While alive, the path opens as this text, for reading. One object at a time; the text must outlive it.
class KernelFile {
 public:
  KernelFile(const char *path, std::string_view text) {
    path_ = path;
    text_ = text;
  }
  ~KernelFile() { path_ = nullptr; }
  KernelFile(const KernelFile &) = delete;
  KernelFile &operator=(const KernelFile &) = delete;

  static bool IsAt(const char *path) { return path_ != nullptr && std::strcmp(path, path_) == 0; }
  static std::FILE *Open() {
    // It is opened for reading: nothing is written through the pointer.
    return ::fmemopen(const_cast<char *>(text_.data()), text_.size(), "r");
  }

 private:
  static inline const char *path_ = nullptr;
  static inline std::string_view text_;
};

/// The lines of a text as the units read them: at most so many characters of each, and nothing after a NUL.
class KernelLines {
 public:
  KernelLines(std::string_view text, std::size_t most) : rest_(text), most_(most) {}

  /// False at the end of the text.
  bool Next(std::string &line) {
    if (rest_.empty()) return false;
    const std::string_view whole = rest_.substr(0, rest_.find('\n'));
    rest_.remove_prefix(whole.size() < rest_.size() ? whole.size() + 1 : whole.size());
    line = whole.substr(0, most_);
    line.resize(std::strlen(line.c_str()));
    return true;
  }

 private:
  std::string_view rest_;
  std::size_t most_;
};

}  // namespace devsupport::test

extern "C" std::FILE *__real_fopen(const char *path, const char *mode);
extern "C" std::FILE *__wrap_fopen(const char *path, const char *mode);
extern "C" std::FILE *__wrap_fopen(const char *path, const char *mode) {
  using devsupport::test::KernelFile;
  return KernelFile::IsAt(path) ? KernelFile::Open() : __real_fopen(path, mode);
}
