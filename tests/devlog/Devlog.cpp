// SPDX-License-Identifier: MIT
#include "tests/devlog/Devlog.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace devlog_test {

using devsupport::test::RingFacts;

namespace {

/// The time zone in which it is 20:00 now. Records have no date: at another time of day, devlog could take the test's
/// records for those of yesterday.
std::string EveningZone() {
  constexpr long kDay = 24 * 60 * 60;
  constexpr long kEvening = 20 * 60 * 60;
  const long offset = static_cast<long>(::time(nullptr) % kDay) - kEvening;  // POSIX counts westwards
  const long seconds = std::labs(offset);
  char zone[32];
  std::snprintf(zone, sizeof zone, "XST%s%ld:%02ld:%02ld", offset < 0 ? "-" : "", seconds / 3600, seconds / 60 % 60,
                seconds % 60);
  return zone;
}

}  // namespace

devsupport::test::Command Devlog(const Words &words) {
  Words all{DEVLOG_PATH};
  all.insert(all.end(), words.begin(), words.end());
  devsupport::test::Command command(all);
  command.Environment("TERM", "xterm").Environment("NO_COLOR", "").Environment("TZ", EveningZone());
  return command;
}

std::string Shown(const Words &words) {
  const devsupport::test::CommandResult result = Devlog(words).Run();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return result.out;
}

WritableRing::WritableRing(const RingFacts &facts) {
  TShmQueueOpt opt{36, 0, 0};
  EXPECT_EQ(TShmQueue_Create(facts.shareKey, facts.semKey, facts.cells, 136, &opt, &que_), 1);
}

WritableRing::~WritableRing() { TShmQueue_Close(&que_, 0); }

// The length is set afterwards, because the library writes only valid ones.
void WritableRing::Write(const devlog::Cell &cell) {
  std::uint32_t writeIndex = 0;
  std::memcpy(&writeIndex, reinterpret_cast<const std::uint8_t *>(que_.header) + 16, sizeof writeIndex);
  if (writeIndex >= static_cast<std::uint32_t>(que_.nSlotCount)) writeIndex = 0;  // the ring wraps around
  TShmQueue_PushOverwrite(&que_, cell.record, sizeof cell.record);
  std::memcpy(que_.cells + std::size_t{writeIndex} * que_.dwStride, &cell.length, sizeof cell.length);
}

std::vector<std::uint8_t> WritableRing::Bytes() const {
  const auto *first = reinterpret_cast<const std::uint8_t *>(que_.header);
  const std::uint8_t *end = que_.cells + static_cast<std::size_t>(que_.nSlotCount) * que_.dwStride;
  return {first, end};
}

RunningDevlog::RunningDevlog(const Words &words) : said_(::memfd_create("said", MFD_CLOEXEC)) {
  int ends[2];
  if (said_ < 0 || ::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  reader_ = ends[0];
  process_.emplace([&]() -> int {
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(said_, STDERR_FILENO);
    ::setenv("TZ", EveningZone().c_str(), 1);
    Words all{DEVLOG_PATH};
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char *> pointers;
    for (std::string &word : all) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execv(pointers[0], pointers.data());
    return 127;
  });
  ::close(ends[1]);
}

RunningDevlog::~RunningDevlog() {
  StopReading();
  ::close(said_);
}

std::string RunningDevlog::NextLine() {
  std::size_t end = 0;
  while ((end = buffer_.find('\n')) == std::string::npos) {
    char bytes[4096];
    const ssize_t got = ::read(reader_, bytes, sizeof bytes);
    if (got <= 0) return "<end>";
    buffer_.append(bytes, static_cast<std::size_t>(got));
  }
  const std::string line = buffer_.substr(0, end);
  buffer_.erase(0, end + 1);
  return line;
}

void RunningDevlog::StopReading() {
  if (reader_ >= 0) ::close(reader_);
  reader_ = -1;
}

void RunningDevlog::AwaitLook(const RingFacts &facts) const {
  const int semId = ::semget(facts.semKey, 0, 0);
  while (::semctl(semId, 0, GETPID) != process_->Pid() || ::semctl(semId, 0, GETVAL) != 1) ::sched_yield();
}

void RunningDevlog::Stop(WritableRing &ring) const {
  TShmQueue_Lock(&ring.Queue());
  process_->Signal(SIGSTOP);
  int status = 0;
  ::waitpid(process_->Pid(), &status, WUNTRACED);
  TShmQueue_Unlock(&ring.Queue());
}

std::string RunningDevlog::Said() const {
  char bytes[4096];
  const ssize_t got = ::pread(said_, bytes, sizeof bytes, 0);  // does not move the writer's offset
  return {bytes, static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

}  // namespace devlog_test
