// SPDX-License-Identifier: MIT
// Names for the record types and the processes.

#include "tools/devlog/Names.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/common/Files.h"
#include "tools/common/Numbers.h"
#include "tools/common/Text.h"
#include "tools/devlog/Exit.h"

namespace devlog {

namespace {

constexpr std::size_t kMaxFile = 8192;

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool IsNameCharacter(char c) { return IsLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.'; }

/// Removes the first word from the line, with the blanks around it.
std::string_view TakeWord(std::string_view &line) {
  constexpr std::string_view kBlanks = " \t\r";
  line = tools::After(line, line.find_first_not_of(kBlanks));
  const std::string_view word = tools::First(line, line.find_first_of(kBlanks));
  line = tools::After(line, word.size());
  line = tools::After(line, line.find_first_not_of(kBlanks));
  return word;
}

}  // namespace

void Names::Name::Set(std::string_view name) {
  size = static_cast<std::uint8_t>(std::min(name.size(), kMaxName));
  std::memcpy(text, name.data(), size);
}

bool Names::IsName(std::string_view text) {
  return !text.empty() && text.size() <= kMaxName && IsLetter(text.front()) &&
         std::all_of(text.begin(), text.end(), IsNameCharacter);
}

bool Names::Load(const char *path, bool isOptional) {
  static char text[kMaxFile];
  std::size_t size = 0;
  if (!tools::ReadFile(path, text, size)) {
    if (isOptional && errno == ENOENT) return true;
    Say("the names '%s' cannot be read: %s", path, std::strerror(errno));
    return false;
  }
  std::string_view rest(text, size);
  for (unsigned number = 1; !rest.empty(); ++number) {
    const char *wrong = TakeLine(tools::TakePart(rest, '\n'));
    if (wrong == nullptr) continue;
    Say("%s:%u: %s", path, number, wrong);
    return false;
  }
  return true;
}

/// Returns what is wrong with the line, or nullptr.
const char *Names::TakeLine(std::string_view line) {
  line = tools::First(line, line.find('#'));
  const std::string_view kind = TakeWord(line);
  if (kind.empty()) return nullptr;
  if (kind != "type" && kind != "process") return "a line is 'type NUMBER NAME' or 'process NAME'";
  std::uint32_t type = 0;
  if (kind == "type" && !tools::ParseNumber(TakeWord(line), LOGCELL_MAX(TYPE), type)) return "invalid type";
  const std::string_view name = TakeWord(line);
  if (!IsName(name) || !line.empty()) return "invalid name";
  if (kind == "process") return AddProcess(name) ? nullptr : "too many processes";
  const std::size_t other = FindType(name);
  if (other != kTypes && other != type) return "two types have this name";
  types_[type].Set(name);
  return nullptr;
}

std::size_t Names::FindType(std::string_view name) const {
  const Name *found = std::find_if(types_, types_ + kTypes, [name](const Name &type) { return type.View() == name; });
  return static_cast<std::size_t>(found - types_);
}

std::size_t Names::LongestTypeName() const {
  std::size_t longest = 0;
  for (const Name &type : types_) longest = std::max<std::size_t>(longest, type.size);
  return longest;
}

bool Names::AddProcess(std::string_view name) {
  if (ProcessOf(name) == name) return true;
  if (processCount_ == kMaxProcesses) return false;
  processes_[processCount_++].Set(name);
  return true;
}

std::string_view Names::ProcessOf(std::string_view text) const {
  std::string_view longest;
  for (const Name *name = processes_; name != processes_ + processCount_; ++name) {
    if (name->size > longest.size() && tools::StartsWith(text, name->View())) longest = name->View();
  }
  return longest;
}

}  // namespace devlog
