// SPDX-License-Identifier: MIT
// Writes records, for scripts and for tests by hand.

#include "tools/devlog/Write.h"

#include <devsupport/logmgr/LogInfoShm.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/devlog/Message.h"

namespace devlog {

namespace {

/// False when the words are too long for one message.
bool Join(char **words, char (&text)[kMaxText + 1]) {
  std::size_t length = 0;
  for (char **word = words; *word != nullptr; ++word) {
    const std::size_t blank = word == words ? 0 : 1;
    const std::size_t wordLength = std::strlen(*word);
    if (wordLength + blank > kMaxText - length) return false;
    if (blank != 0) text[length++] = ' ';
    std::memcpy(text + length, *word, wordLength);
    length += wordLength;
  }
  text[length] = '\0';
  return true;
}

/// The log channel, open for writing.
class Writer {
 public:
  explicit Writer(const Options &options) : options_(options) {
    constexpr int kLevel = 0;  // devlog does not use the level filter
    isOpen_ = TLogInfoShm_Open(kLevel, 0, nullptr) == 1;
  }
  ~Writer() { TLogInfoShm_Close(); }
  Writer(const Writer &) = delete;
  Writer &operator=(const Writer &) = delete;

  bool IsOpen() const { return isOpen_; }

  /// text  at most kMaxText bytes and a NUL after them; may hold NULs
  void Write(char *text, std::size_t size) const {
    const int sizeWithNul = static_cast<int>(size) + 1;
    if (options_.event) {
      TLogInfoShm_WriteN_Evt(text, sizeWithNul, options_.type);
    } else {
      TLogInfoShm_WriteN(text, sizeWithNul, options_.type);
    }
  }

 private:
  const Options &options_;
  bool isOpen_ = false;
};

int SayTooLong() {
  Say("the text has more than %zu bytes", kMaxText);
  return kUsage;
}

/// Each line is written at once, so that `command | devlog write -` has no delay.
int WriteLines(const Writer &writer) {
  static char line[kMaxText + 1];
  std::size_t size = 0;
  for (int character = 0; (character = std::getchar()) != EOF;) {
    if (character == '\n') {
      line[size] = '\0';
      writer.Write(line, size);
      size = 0;
    } else if (size == kMaxText) {
      return SayTooLong();
    } else {
      line[size++] = static_cast<char>(character);
    }
  }
  line[size] = '\0';
  writer.Write(line, size);  // an empty text is no record
  if (std::ferror(stdin) == 0) return kShown;
  Say("standard input cannot be read: %s", std::strerror(errno));
  return kUsage;
}

}  // namespace

int Write(const Options &options) {
  const bool isStandardInput =
      options.words[0] != nullptr && std::strcmp(options.words[0], "-") == 0 && options.words[1] == nullptr;
  static char text[kMaxText + 1];
  if (!isStandardInput && !Join(options.words, text)) return SayTooLong();
  if (!isStandardInput && *text == '\0') {
    Say("there is no text to write");
    return kUsage;
  }
  const Writer writer(options);
  if (!writer.IsOpen()) return kUnusable;
  if (isStandardInput) return WriteLines(writer);
  writer.Write(text, std::strlen(text));
  return kShown;
}

}  // namespace devlog
