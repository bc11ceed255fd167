// Writes one record, for trying things out.

#include "tools/devlog/Write.h"

#include <devsupport/logmgr/LogInfoShm.h>

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

}  // namespace

int WriteRecord(const Options &options) {
  char text[kMaxText + 1];
  if (!Join(options.words, text)) {
    Say("the text has more than %zu bytes", kMaxText);
    return kUsage;
  }
  if (*text == '\0') {
    Say("there is no text to write");
    return kUsage;
  }
  constexpr int kLevel = 0;  // the filter is the callers' business, and we do not ask it
  const bool isOpen = TLogInfoShm_Open(kLevel, 0, nullptr) == 1;
  if (isOpen && options.event) TLogInfoShm_Write_Evt(text, options.type);
  if (isOpen && !options.event) TLogInfoShm_Write(text, options.type, 0);
  TLogInfoShm_Close();
  return isOpen ? kShown : kUnusable;
}

}  // namespace devlog
