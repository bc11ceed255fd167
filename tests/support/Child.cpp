// SPDX-License-Identifier: MIT
#include "tests/support/Child.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "tests/support/Coverage.h"
#include "tests/support/Tally.h"

namespace devsupport::test {

namespace {

constexpr int kFailedAssertionStatus = 99;

bool EnterPrivateIpc() {
  if (::unshare(CLONE_NEWIPC) == 0) return true;
  return ::unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
}

}  // namespace

Child::Child(const std::function<int()> &body) : pid_(-1) {
  std::fflush(nullptr);
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ > 0) return;
  int status = kFailedAssertionStatus;
  try {
    status = body();
    // The child has printed its failed expectation. The parent must not see a success.
    if (::testing::Test::HasFailure()) status = kFailedAssertionStatus;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "child: %s\n", error.what());
  }
  std::fflush(nullptr);
  KeepCoverage();
  ::_exit(status);
}

Child::Child(Child &&other) noexcept : pid_(std::exchange(other.pid_, -1)) {}

Child::~Child() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  Reap();
}

void Child::Signal(int signal) const { ::kill(pid_, signal); }

int Child::Wait() {
  const int status = Reap();
  if (status == 1000 + SIGKILL) Tally("kill");
  return status;
}

int Child::Reap() {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0)
    if (errno != EINTR) throw std::runtime_error("cannot wait for a child");
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

Event::Event() : fd_(::eventfd(0, EFD_SEMAPHORE)) {
  if (fd_ < 0) throw std::runtime_error("cannot make an event");
}

Event::~Event() { ::close(fd_); }

void Event::Announce() const {
  const int savedErrno = errno;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(fd_, &one, sizeof one);
  errno = savedErrno;
}

void Event::Wait() const {
  std::uint64_t one = 0;
  while (::read(fd_, &one, sizeof one) < 0)
    if (errno != EINTR) throw std::runtime_error("cannot wait for an event");
}

bool Event::TryWait() const {
  pollfd ready{fd_, POLLIN, 0};
  if (::poll(&ready, 1, 0) != 1) return false;
  Wait();
  return true;
}

int RunInPrivateIpc(const std::function<int()> &body) {
  Child child([&] {
    if (!EnterPrivateIpc()) throw std::runtime_error("cannot make an IPC namespace");
    return body();
  });
  return child.Wait();
}

bool CanMakeNamespaces() {
  Child child([] { return EnterPrivateIpc() ? 0 : 1; });
  return child.Wait() == 0;
}

}  // namespace devsupport::test
