// SPDX-License-Identifier: MIT
#include "tests/support/Command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace devsupport::test {

namespace {

/// A file in memory that a program writes and the test reads afterwards. It cannot fill up like a pipe.
class Capture {
 public:
  Capture() : fd_(::memfd_create("command", MFD_CLOEXEC)) {
    // Several processes write to it. Their writes would overwrite each other, unless each one appends.
    if (fd_ < 0 || ::fcntl(fd_, F_SETFL, O_APPEND) != 0) throw std::runtime_error("cannot make a capture file");
  }
  ~Capture() { ::close(fd_); }
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;

  int Descriptor() const { return fd_; }

  std::string Text() const {
    std::string text;
    char buffer[4096];
    ::lseek(fd_, 0, SEEK_SET);
    for (ssize_t got = 0; (got = ::read(fd_, buffer, sizeof buffer)) > 0;)
      text.append(buffer, static_cast<std::size_t>(got));
    return text;
  }

 private:
  int fd_;
};

/// Prepares the descriptors of the new process before it executes the program.
class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions &) = delete;
  FileActions &operator=(const FileActions &) = delete;

  void Open(int fd, const char *path, int flags) {
    ::posix_spawn_file_actions_addopen(&actions_, fd, path, flags, 0);
  }
  void Duplicate(int from, int to) { ::posix_spawn_file_actions_adddup2(&actions_, from, to); }
  void Close(int fd) { ::posix_spawn_file_actions_addclose(&actions_, fd); }
  const posix_spawn_file_actions_t *Get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

std::vector<char *> Pointers(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

int WaitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) throw std::runtime_error("cannot wait for a command");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

}  // namespace

std::ostream &operator<<(std::ostream &stream, const CommandResult &result) {
  return stream << "status " << result.status << ", out \"" << result.out << "\", err \"" << result.err << '"';
}

Command::Command(std::vector<std::string> words) : words_(std::move(words)) {
  for (char **entry = environ; *entry != nullptr; ++entry) environment_.emplace_back(*entry);
}

Command &Command::Environment(const std::string &name, const std::string &value) {
  std::erase_if(environment_, [&](const std::string &entry) { return entry.starts_with(name + "="); });
  environment_.push_back(name + "=" + value);
  return *this;
}

Command &Command::InputFrom(const std::string &path) {
  inputPath_ = path;
  return *this;
}

Command &Command::OutputTo(const std::string &path) {
  outputPath_ = path;
  return *this;
}

Command &Command::CloseOutput() {
  closeOutput_ = true;
  return *this;
}

CommandResult Command::Run() const {
  const Capture out;
  const Capture err;
  FileActions actions;
  actions.Open(STDIN_FILENO, inputPath_.c_str(), O_RDONLY);
  actions.Duplicate(out.Descriptor(), STDOUT_FILENO);
  actions.Duplicate(err.Descriptor(), STDERR_FILENO);
  if (outputPath_) actions.Open(STDOUT_FILENO, outputPath_->c_str(), O_WRONLY);
  if (closeOutput_) actions.Close(STDOUT_FILENO);

  std::vector<std::string> words = words_;
  std::vector<std::string> environment = environment_;
  pid_t pid = -1;
  const int error = ::posix_spawnp(&pid, words.at(0).c_str(), actions.Get(), nullptr, Pointers(words).data(),
                                   Pointers(environment).data());
  if (error != 0) throw std::runtime_error("cannot run " + words[0] + ": " + std::strerror(error));

  CommandResult result;
  result.status = WaitFor(pid);
  result.out = out.Text();
  result.err = err.Text();
  return result;
}

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace devsupport::test
