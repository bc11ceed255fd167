// SPDX-License-Identifier: MIT
#include "tests/db/PowerRecord.h"

#include <db.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

using devsupport::test::PowerEvent;
using Kind = PowerEvent::Kind;

extern "C" int __real_openat(int folder, const char *path, int flags, ...);
extern "C" int __real_unlinkat(int folder, const char *path, int flags);
extern "C" int __real_renameat(int fromFolder, const char *from, int toFolder, const char *to);
extern "C" ssize_t __real_write(int fd, const void *data, std::size_t bytes);
extern "C" int __real_fsync(int fd);

namespace {

struct Head {
  Kind kind;
  std::uint64_t inode;
  std::uint64_t offset;
  std::uint32_t nameBytes;
  std::uint32_t dataBytes;
};

int g_log = -1;
dev_t g_device;
ino_t g_folder;
int g_eventsLeft = 0;
bool g_skipsFlushes = false;

void Note(Kind kind, std::uint64_t inode, std::uint64_t offset, std::string_view name = {},
          std::string_view data = {}) {
  if (g_log < 0) return;
  const int savedErrno = errno;
  Head head = {kind, inode, offset, static_cast<std::uint32_t>(name.size()), static_cast<std::uint32_t>(data.size())};
  // One write at the record's end, so that the events of several processes are not mixed.
  const iovec pieces[] = {{&head, sizeof head},
                          {const_cast<char *>(name.data()), name.size()},
                          {const_cast<char *>(data.data()), data.size()}};
  if (::writev(g_log, pieces, 3) < 0) ::abort();
  if (g_eventsLeft != 0 && --g_eventsLeft == 0) ::raise(SIGKILL);
  errno = savedErrno;
}

std::optional<struct stat> Recorded(int fd) {
  struct stat status = {};
  if (g_log < 0 || ::fstat(fd, &status) != 0 || status.st_dev != g_device) return std::nullopt;
  return status;
}

std::string_view LastPart(std::string_view path) { return path.substr(path.rfind('/') + 1); }

void NoteWrite(int fd, const void *data, ssize_t bytes, off_t offset) {
  const auto file = Recorded(fd);
  if (!file || bytes <= 0) return;
  Note(Kind::Write, file->st_ino, static_cast<std::uint64_t>(offset), {},
       {static_cast<const char *>(data), static_cast<std::size_t>(bytes)});
}

ssize_t Write(int fd, const void *data, std::size_t bytes) {
  const ssize_t written = __real_write(fd, data, bytes);
  if (g_log >= 0) NoteWrite(fd, data, written, ::lseek(fd, 0, SEEK_CUR) - written);
  return written;
}

ssize_t WriteAt(int fd, const void *data, std::size_t bytes, off_t offset) {
  const ssize_t written = ::pwrite(fd, data, bytes, offset);
  NoteWrite(fd, data, written, offset);
  return written;
}

int Truncate(int fd, off_t bytes) {
  const int result = ::ftruncate(fd, bytes);
  if (const auto file = Recorded(fd); file && result == 0)
    Note(Kind::Truncate, file->st_ino, static_cast<std::uint64_t>(bytes));
  return result;
}

int Flush(int fd) {
  if (g_skipsFlushes) return 0;
  const int result = __real_fsync(fd);
  if (const auto file = Recorded(fd); file && result == 0)
    Note(file->st_ino == g_folder ? Kind::FlushFolder : Kind::Flush, file->st_ino, 0);
  return result;
}

int Open(int folder, const char *path, int flags, int mode) {
  const bool wasThere = ::faccessat(folder, path, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
  const int fd = __real_openat(folder, path, flags, mode);
  if ((flags & (O_CREAT | O_TRUNC)) == 0 || fd < 0) return fd;
  const auto file = Recorded(fd);
  if (file && !wasThere) Note(Kind::Create, file->st_ino, 0, LastPart(path));
  if (file && wasThere && (flags & O_TRUNC) != 0) Note(Kind::Truncate, file->st_ino, 0);
  return fd;
}

int Unlink(int folder, const char *path, int flags) {
  const int result = __real_unlinkat(folder, path, flags);
  if (result == 0) Note(Kind::Unlink, 0, 0, LastPart(path));
  return result;
}

int Rename(int fromFolder, const char *from, int toFolder, const char *to) {
  const int result = __real_renameat(fromFolder, from, toFolder, to);
  if (result == 0) Note(Kind::Rename, 0, 0, LastPart(from), LastPart(to));
  return result;
}

}  // namespace

extern "C" int __wrap_openat(int folder, const char *path, int flags, ...);
extern "C" int __wrap_openat(int folder, const char *path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  return Open(folder, path, flags, mode);
}
extern "C" int __wrap_unlinkat(int folder, const char *path, int flags);
extern "C" int __wrap_unlinkat(int folder, const char *path, int flags) { return Unlink(folder, path, flags); }
extern "C" int __wrap_renameat(int fromFolder, const char *from, int toFolder, const char *to);
extern "C" int __wrap_renameat(int fromFolder, const char *from, int toFolder, const char *to) {
  return Rename(fromFolder, from, toFolder, to);
}
extern "C" ssize_t __wrap_write(int fd, const void *data, std::size_t bytes);
extern "C" ssize_t __wrap_write(int fd, const void *data, std::size_t bytes) { return Write(fd, data, bytes); }
extern "C" int __wrap_fsync(int fd);
extern "C" int __wrap_fsync(int fd) { return Flush(fd); }

namespace devsupport::test {

PowerRecord::PowerRecord(std::string home) : home_(std::move(home)), log_(::memfd_create("power", MFD_CLOEXEC)) {
  if (log_ < 0 || ::fcntl(log_, F_SETFL, O_APPEND) != 0) throw std::runtime_error("cannot make a record");
}

PowerRecord::~PowerRecord() { ::close(log_); }

void PowerRecord::Begin() const {
  struct stat folder = {};
  if (::stat(home_.c_str(), &folder) != 0) throw std::runtime_error("cannot record " + home_);
  g_device = folder.st_dev;
  g_folder = folder.st_ino;
  g_log = log_;
  db_env_set_func_write(Write);
  db_env_set_func_pwrite(WriteAt);
  db_env_set_func_ftruncate(Truncate);
  db_env_set_func_fsync(Flush);
  db_env_set_func_unlink([](const char *path) { return Unlink(AT_FDCWD, path, 0); });
  db_env_set_func_rename([](const char *from, const char *to) { return Rename(AT_FDCWD, from, AT_FDCWD, to); });
}

void PowerRecord::DieAfter(int events) { g_eventsLeft = events; }

void PowerRecord::Mark(Kind kind, std::uint64_t step) { Note(kind, 0, step); }

std::vector<PowerEvent> PowerRecord::Events() const {
  std::vector<PowerEvent> events;
  off_t at = 0;
  for (Head head = {}; ::pread(log_, &head, sizeof head, at) == sizeof head;) {
    PowerEvent event = {head.kind, head.inode, head.offset, std::string(head.nameBytes, '\0'),
                        std::string(head.dataBytes, '\0')};
    at += static_cast<off_t>(sizeof head);
    at += ::pread(log_, event.name.data(), event.name.size(), at);
    at += ::pread(log_, event.data.data(), event.data.size(), at);
    events.push_back(std::move(event));
  }
  return events;
}

void SkipFlushes() {
  g_skipsFlushes = true;
  db_env_set_func_fsync(Flush);
}

}  // namespace devsupport::test
