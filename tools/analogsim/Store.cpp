// SPDX-License-Identifier: MIT
// Where the registers are kept: the state file.

#include "tools/analogsim/Store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tools/analogsim/Descriptor.h"
#include "tools/analogsim/StateText.h"

namespace analogsim {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void FailWith(const std::string &what, const fs::path &file, int error) {
  throw std::runtime_error("cannot " + what + ' ' + file.string() + ": " + std::strerror(error));
}

fs::path With(const fs::path &file, const char *suffix) { return file.string() + suffix; }

/// Blocks updates by other processes while it exists. The state file itself cannot carry the lock: each
/// update puts a new file in its place.
class Lock {
 public:
  explicit Lock(const fs::path &path) : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    if (!fd_.IsOpen()) FailWith("open", path, errno);
    while (::flock(fd_.Get(), LOCK_EX) != 0) {
      if (errno != EINTR) FailWith("lock", path, errno);
    }
  }

 private:
  Descriptor fd_;
};

std::string ReadAll(const Descriptor &fd, const fs::path &file) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(fd.Get(), buffer, sizeof buffer);
    if (got == 0) return text;
    if (got > 0) text.append(buffer, static_cast<std::size_t>(got));
    if (got < 0 && errno != EINTR) FailWith("read", file, errno);
  }
}

void WriteDurably(const fs::path &file, const std::string &text) {
  const Descriptor fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!fd.IsOpen()) FailWith("write", file, errno);
  if (!WriteAll(fd.Get(), text.data(), text.size()) || ::fsync(fd.Get()) != 0) {
    const int error = errno;
    ::unlink(file.c_str());
    FailWith("write", file, error);
  }
}

/// A rename is safe from a power cut once the folder that holds the name is on the disk.
void SyncFolder(const fs::path &folder) {
  const Descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd.IsOpen()) ::fsync(fd.Get());
}

}  // namespace

FileStore::FileStore(const fs::path &file) : file_(fs::weakly_canonical(fs::absolute(file))) {
  fs::create_directories(file_.parent_path());
  Update([](const Registers &) {});
}

void FileStore::Update(const Change &change) {
  const Lock lock(With(file_, ".lock"));
  const Registers before = Read();
  Registers after = before;
  change(after);
  if (after != before) Write(after);
}

Registers FileStore::Read() const {
  const Descriptor fd(::open(file_.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.IsOpen() && errno == ENOENT) return {};
  if (!fd.IsOpen()) FailWith("read", file_, errno);
  const std::string text = ReadAll(fd, file_);
  try {
    return FromStateText(text);
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(file_.string() + " is damaged and was left as it is: " + error.what());
  }
}

void FileStore::Write(const Registers &registers) const {
  const fs::path fresh = With(file_, ".new");  // the lock makes us its only writer
  WriteDurably(fresh, ToStateText(registers));
  if (::rename(fresh.c_str(), file_.c_str()) != 0) FailWith("replace", file_, errno);
  SyncFolder(file_.parent_path());
}

}  // namespace analogsim
