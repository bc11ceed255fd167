// SPDX-License-Identifier: MIT
// Where the last run stopped.

#include "tools/devlog/Cursor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "tools/common/Files.h"
#include "tools/common/Numbers.h"
#include "tools/common/Text.h"
#include "tools/devlog/Exit.h"
#include "tools/devlog/Print.h"

namespace devlog {

namespace {

constexpr char kBootIdPath[] = "/proc/sys/kernel/random/boot_id";
constexpr std::string_view kFirstLine = "devlog cursor 1";
constexpr std::size_t kMaxFile = 512;
constexpr std::size_t kNumbers = 10;  // in a bookmark

/// Identifies this start of the system; "-" where the kernel does not tell it.
std::string_view BootId() {
  static char text[64];
  std::size_t size = 0;
  if (!tools::ReadFile(kBootIdPath, text, size) || size == 0) return "-";
  std::string_view rest(text, size);
  return tools::TakePart(rest, '\n');
}

void ToNumbers(const Bookmark &bookmark, std::uint32_t (&numbers)[kNumbers]) {
  numbers[0] = static_cast<std::uint32_t>(bookmark.ring.id);
  numbers[1] = bookmark.ring.made;
  numbers[2] = bookmark.position.index;
  numbers[3] = bookmark.expected;
  std::memcpy(numbers + 4, bookmark.position.before.words, sizeof bookmark.position.before.words);
  std::memcpy(numbers + 7, bookmark.position.last.words, sizeof bookmark.position.last.words);
}

Bookmark FromNumbers(const std::uint32_t (&numbers)[kNumbers]) {
  Bookmark bookmark{{static_cast<std::int32_t>(numbers[0]), numbers[1]}, {}, numbers[3]};
  bookmark.position.index = numbers[2];
  std::memcpy(bookmark.position.before.words, numbers + 4, sizeof bookmark.position.before.words);
  std::memcpy(bookmark.position.last.words, numbers + 7, sizeof bookmark.position.last.words);
  return bookmark;
}

/// "log 0 1f ...": hexadecimal numbers after the ring's name.
bool ReadBookmark(std::string_view line, std::size_t cells, Bookmark &bookmark) {
  std::uint32_t numbers[kNumbers] = {};
  for (std::uint32_t &number : numbers) {
    if (!tools::ParseDigits(tools::TakePart(line, ' '), 16, UINT32_MAX, number)) return false;
  }
  bookmark = FromNumbers(numbers);
  return line.data() == nullptr && bookmark.position.index <= cells && bookmark.expected <= kSequences;
}

}  // namespace

bool Cursor::Load() {
  if (path_ == nullptr) return true;
  char text[kMaxFile];
  std::size_t size = 0;
  if (!tools::ReadFile(path_, text, size)) {
    if (errno == ENOENT) return true;
    Say("the cursor '%s' cannot be read: %s", path_, std::strerror(errno));
    return false;
  }
  std::string_view rest(text, size);
  bool isSound = tools::TakePart(rest, '\n') == kFirstLine;
  std::string_view boot = tools::TakePart(rest, '\n');
  isSound = isSound && tools::TakePart(boot, ' ') == "boot";
  const bool isThisBoot = boot == BootId();
  while (isSound && !rest.empty()) {
    std::string_view line = tools::TakePart(rest, '\n');
    const std::string_view name = tools::TakePart(line, ' ');
    const Ring ring = name == "log" ? Ring::Log : Ring::Event;
    Bookmark bookmark{};
    isSound = name == NameOf(ring) && ReadBookmark(line, ring == Ring::Log ? kLogCells : kEventCells, bookmark);
    if (!isThisBoot) bookmark.ring.id = -1;  // no ring has this number
    Set(ring, bookmark);
  }
  if (!isSound) Say("the cursor '%s' is damaged; remove it to begin anew", path_);
  isChanged_ = false;
  return isSound;
}

const Bookmark *Cursor::Find(Ring ring) const {
  const Slot &slot = slots_[static_cast<std::size_t>(ring)];
  return slot.isSet ? &slot.bookmark : nullptr;
}

void Cursor::Set(Ring ring, const Bookmark &bookmark) {
  Slot &slot = slots_[static_cast<std::size_t>(ring)];
  std::uint32_t before[kNumbers];
  std::uint32_t now[kNumbers];
  ToNumbers(slot.bookmark, before);
  ToNumbers(bookmark, now);
  isChanged_ = isChanged_ || !slot.isSet || std::memcmp(before, now, sizeof now) != 0;
  slot = {true, bookmark};
}

bool Cursor::Save() {
  if (path_ == nullptr || !isChanged_) return true;
  char text[kMaxFile];
  const std::string_view boot = BootId();
  std::size_t size = static_cast<std::size_t>(std::snprintf(text, sizeof text, "%s\nboot %.*s\n", kFirstLine.data(),
                                                            static_cast<int>(boot.size()), boot.data()));
  for (const Ring ring : {Ring::Log, Ring::Event}) {
    const Bookmark *bookmark = Find(ring);
    if (bookmark == nullptr) continue;
    std::uint32_t numbers[kNumbers];
    ToNumbers(*bookmark, numbers);
    size += static_cast<std::size_t>(std::snprintf(text + size, sizeof text - size, "%s", NameOf(ring).data()));
    for (const std::uint32_t number : numbers) {
      size += static_cast<std::size_t>(std::snprintf(text + size, sizeof text - size, " %x", number));
    }
    text[size++] = '\n';
  }
  isChanged_ = !tools::ReplaceFile(path_, {text, size});
  if (isChanged_) Say("the cursor '%s' cannot be written: %s", path_, std::strerror(errno));
  return !isChanged_;
}

}  // namespace devlog
