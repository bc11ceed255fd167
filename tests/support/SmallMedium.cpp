// SPDX-License-Identifier: MIT
#include "tests/support/SmallMedium.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/Child.h"

namespace devsupport::test {

namespace {

// From the first medium on, this process has a private mount namespace.
bool HavePrivateMounts() {
  static const bool s_private =
      ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return s_private;
}

}  // namespace

SmallMedium::SmallMedium(std::string folder, std::size_t bytes) : folder_(std::move(folder)) {
  const std::string size = "size=" + std::to_string(bytes);
  if (!HavePrivateMounts() || ::mount("tmpfs", folder_.c_str(), "tmpfs", 0, size.c_str()) != 0)
    throw std::runtime_error("cannot mount a small medium on " + folder_);
}

SmallMedium::~SmallMedium() { ::umount2(folder_.c_str(), MNT_DETACH); }

std::string SmallMedium::FillerPath() const { return folder_ + "/filler"; }

void SmallMedium::LeaveFree(std::size_t bytes) const {
  const int fd = ::open(FillerPath().c_str(), O_CREAT | O_WRONLY | O_CLOEXEC | O_TRUNC, 0600);
  if (fd < 0) throw std::runtime_error("cannot fill " + folder_);
  const std::vector<char> page(4096, 'x');
  off_t filled = 0;
  for (ssize_t written = 0; (written = ::write(fd, page.data(), page.size())) > 0;) filled += written;
  const bool left = ::ftruncate(fd, filled > static_cast<off_t>(bytes) ? filled - static_cast<off_t>(bytes) : 0) == 0;
  ::close(fd);
  if (!left) throw std::runtime_error("cannot leave room in " + folder_);
}

void SmallMedium::MakeRoom() const { ::unlink(FillerPath().c_str()); }

bool SmallMedium::CanMake() {
  Child child([] {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ? 0 : 1;
  });
  return child.Wait() == 0;
}

}  // namespace devsupport::test
