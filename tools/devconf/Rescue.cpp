// SPDX-License-Identifier: MIT
// Berkeley DB's salvager, in a separate process.

#include "tools/devconf/Rescue.h"

#include <db.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "db/for_project/DbLibrary.h"
#include "db/for_project/LibraryHooks.h"
#include "tools/common/Numbers.h"
#include "tools/common/Text.h"

namespace devconf {

namespace {

using tools::After;
using tools::First;

constexpr std::size_t kReadBytes = 65536;

// A byte of the file is written as two digits. A larger dump repeats the same pages.
constexpr std::size_t kMostDumpPerByte = 8;
constexpr std::size_t kDumpBesides = 1U << 20U;

// The exit statuses of the rescuing process.
constexpr int kFoundNothing = 0;
constexpr int kFoundDamage = 1;

void StaySilent(const DB_ENV * /*env*/, const char * /*prefix*/, const char * /*message*/) {}

bool Look(const char *path, std::FILE *dump, std::uint32_t flags) {
  DB *db = nullptr;
  if (devsupport::store::CreateFileHandle(&db) != 0) return false;
  db->set_errcall(db, StaySilent);
  db->set_pagesize(db, devsupport::store::kPageBytes);  // for a file that does not tell any more
  return db->verify(db, path, nullptr, dump, flags) == 0;
}

// What the new process does.
[[noreturn]] void Rescue(const char *path, int fd) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::FILE *dump = ::fdopen(fd, "w");
  if (dump == nullptr) ::_exit(kFoundDamage);
  const bool isRescued = Look(path, dump, DB_SALVAGE);
  const bool isWritten = std::fflush(dump) == 0;
  // The salvager skips pages that lead nowhere, and prints nothing.
  const bool isWhole = Look(path, nullptr, DB_NOORDERCHK);
  ::_exit(isRescued && isWritten && isWhole ? kFoundNothing : kFoundDamage);
}

std::size_t MostDumpOf(const char *path) {
  struct stat status = {};
  if (::stat(path, &status) != 0) return kDumpBesides;
  return static_cast<std::size_t>(status.st_size) * kMostDumpPerByte + kDumpBesides;
}

// Reads until the end. False when there is none.
bool ReadToEnd(int fd, int mostSilentMs, std::size_t most, Bytes &dump) {
  for (;;) {
    pollfd ready = {fd, POLLIN, 0};
    const int count = ::poll(&ready, 1, mostSilentMs);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0 || dump.Size() > most) return false;
    const std::size_t size = dump.Size();
    dump.Resize(size + kReadBytes);
    const ssize_t got = ::read(fd, dump.Data() + size, kReadBytes);
    dump.Resize(size + (got > 0 ? static_cast<std::size_t>(got) : 0));
    if (got <= 0) return got == 0;
  }
}

RescueEnd EndOf(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return RescueEnd::Broken;
  }
  if (!WIFEXITED(status)) return RescueEnd::Broken;
  return WEXITSTATUS(status) == kFoundNothing ? RescueEnd::Whole : RescueEnd::Damaged;
}

std::string_view TakeLine(std::string_view &rest) {
  const std::string_view line = First(rest, rest.find('\n'));
  rest = After(rest, line.size() + 1);
  return line;
}

}  // namespace

RescueEnd RunRescue(const char *path, int mostSilentMs, Bytes &dump) {
  int ends[2];
  if (::pipe(ends) != 0) return RescueEnd::Broken;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(ends[0]);
    Rescue(path, ends[1]);
  }
  ::close(ends[1]);
  if (pid > 0 && !ReadToEnd(ends[0], mostSilentMs, MostDumpOf(path), dump)) ::kill(pid, SIGKILL);
  ::close(ends[0]);
  return pid > 0 ? EndOf(pid) : RescueEnd::Broken;
}

bool DumpReader::Next() {
  while (!rest_.empty()) {
    if (isInData_ && rest_.front() == ' ') {
      if (TakeBytes(key_) && TakeBytes(value_)) return true;
      continue;
    }
    const std::string_view line = TakeLine(rest_);
    constexpr std::string_view kTableMark = "database=";
    if (line == "VERSION=3") table_ = {};
    if (tools::StartsWith(line, kTableMark)) table_ = After(line, kTableMark.size());
    if (line == "HEADER=END") isInData_ = true;
    if (line == "DATA=END") isInData_ = false;
  }
  return false;
}

// Takes a line of digits. False when there is none: the writer was stopped in the middle.
bool DumpReader::TakeBytes(Bytes &bytes) {
  bytes.Assign({});
  if (rest_.empty() || rest_.front() != ' ' || rest_.find('\n') == std::string_view::npos) {
    TakeLine(rest_);
    return false;
  }
  for (std::string_view digits = After(TakeLine(rest_), 1); digits.size() >= 2; digits = After(digits, 2)) {
    std::uint32_t value = 0;
    if (!tools::ParseDigits(First(digits, 2), 16, 0xff, value)) return false;
    const char byte = static_cast<char>(value);
    bytes.Append({&byte, 1});
  }
  return true;
}

}  // namespace devconf
