// SPDX-License-Identifier: MIT
// Log channel: a message written, refused, formatted; by length and by number of processes.

#include <devsupport/detail/logmgr/LogCell.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <devsupport/logmgr/LogRecord.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "bench/Peers.h"
#include "bench/Row.h"
#include "bench/SkipOnError.h"
#include "bench/UndoSemaphore.h"
#include "bench/WorkerProcesses.h"
#include "tests/support/SharedBlock.h"

#if DEVSUPPORT_PEER_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace devsupport::bench {

namespace {

constexpr std::size_t kMessageChars = 80;
constexpr int kType = 3;

std::string Text(std::size_t chars) { return std::string(chars, 'x'); }

// Each logger below has Log(), which writes one message.

// The channel's keys are fixed, so it gets a private IPC namespace.
class Channel {
 public:
  Channel() {
    Check(unshare(CLONE_NEWIPC), "unshare");
    if (TLogInfoShm_Open(4, 7, nullptr) == 0) throw std::runtime_error("TLogInfoShm_Open");
  }
  ~Channel() { TLogInfoShm_Close(); }
  Channel(const Channel &) = delete;
  Channel &operator=(const Channel &) = delete;

  void Log(const std::string &text) { TLogInfoShm_Write(text.c_str(), kType, 0); }
};

// What the channel cannot do without: the clock, a pair of semaphore operations, and a copy of the text in pieces as
// long as a record's.
template <class Lock>
class ClockLockCopy {
 public:
  void Log(const std::string &text) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    lock_.lock();
    for (std::size_t start = 0; start < text.size(); start += LOGCELL_TEXT_CHARS) {
      Cell &cell = area_->cells[area_->next];
      cell.time = now;
      std::memcpy(cell.text, text.data() + start, std::min<std::size_t>(text.size() - start, LOGCELL_TEXT_CHARS));
      area_->next = area_->next + 1 < LOGRING_LOG_CELLS ? area_->next + 1 : 0;
    }
    lock_.unlock();
  }

 private:
  struct Cell {
    timespec time;
    char text[LOGCELL_TEXT_CHARS + 1];
  };
  struct Area {
    std::size_t next;
    Cell cells[LOGRING_LOG_CELLS];
  };

  Lock lock_;
  test::SharedBlock<Area> area_;
};

// syslog(), and a process that replaces the daemon: it receives the datagrams and drops them. It listens in a private
// /dev, which covers the machine's as long as the object lives.
class Syslog {
 public:
  Syslog() {
    Check(unshare(CLONE_NEWNS), "unshare");
    Check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount");
    Check(mount("none", "/dev", "tmpfs", 0, nullptr), "mount");
    const int daemonEnd = Check(socket(AF_UNIX, SOCK_DGRAM, 0), "socket");
    constexpr sockaddr_un kAddress{AF_UNIX, "/dev/log"};
    Check(bind(daemonEnd, reinterpret_cast<const sockaddr *>(&kAddress), sizeof kAddress), "bind");
    daemon_ = Check(fork(), "fork");
    if (daemon_ == 0) {
      std::array<char, 4096> taken{};
      while (recv(daemonEnd, taken.data(), taken.size(), 0) >= 0) continue;
      _exit(0);
    }
    close(daemonEnd);
    openlog("bench", LOG_NDELAY, LOG_USER);
  }
  ~Syslog() {
    closelog();
    kill(daemon_, SIGKILL);
    waitpid(daemon_, nullptr, 0);
    umount("/dev");
  }
  Syslog(const Syslog &) = delete;
  Syslog &operator=(const Syslog &) = delete;

  void Log(const std::string &text) { syslog(LOG_INFO, "%s", text.c_str()); }

 private:
  pid_t daemon_ = -1;
};

#if DEVSUPPORT_PEER_SPDLOG
class SpdlogRing {
 public:
  SpdlogRing() : logger_("bench", std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(LOGRING_LOG_CELLS)) {}
  void Log(const std::string &text) { logger_.info(spdlog::string_view_t(text)); }
  spdlog::logger &Logger() { return logger_; }

 private:
  spdlog::logger logger_;
};

class SpdlogFile {
 public:
  SpdlogFile()
      : path_(std::filesystem::temp_directory_path() / ("devsupport_bench_" + std::to_string(getpid()) + ".log")),
        logger_("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path_.string(), true)) {
    logger_.flush_on(spdlog::level::info);
  }
  ~SpdlogFile() { std::filesystem::remove(path_); }
  SpdlogFile(const SpdlogFile &) = delete;
  SpdlogFile &operator=(const SpdlogFile &) = delete;

  void Log(const std::string &text) { logger_.info(spdlog::string_view_t(text)); }

 private:
  std::filesystem::path path_;
  spdlog::logger logger_;
};
#endif

template <class Logger>
Body Alone(std::size_t chars) {
  return SkipOnError([chars](benchmark::State &state) {
    Logger logger;
    const std::string text = Text(chars);
    for (auto _ : state) logger.Log(text);
  });
}

// Each process writes messages. The time is that of one message by any process.
template <class Logger>
Body By(int processes) {
  return SkipOnError([processes](benchmark::State &state) {
    constexpr int kMessagesEach = 1000;
    Logger logger;
    const std::string text = Text(kMessageChars);
    WorkerProcesses workers(processes, kMessagesEach, [&] { logger.Log(text); });
    while (state.KeepRunningBatch(processes * kMessagesEach)) state.SetIterationTime(workers.Run());
  });
}

constexpr const char *kFloor = "clock, semop pair and copy";
constexpr const char *kYieldingFloor = "clock, semop pair that yields, and copy";

void RegisterMessage() {
  const Row row("log", "write a message of 80 characters", kNearTheFloor);
  row.Ours(Alone<Channel>(kMessageChars)).Floor(kFloor, Alone<ClockLockCopy<UndoSemaphore>>(kMessageChars));
  row.Peer("syslog", Alone<Syslog>(kMessageChars));
#if DEVSUPPORT_PEER_SPDLOG
  row.Peer("spdlog, ring in the process", Alone<SpdlogRing>(kMessageChars));
  row.Peer("spdlog, file with flush", Alone<SpdlogFile>(kMessageChars));
#endif
}

void RegisterRefused() {
  const Row row("log_refused", "ask for a level that the filter refuses");
  row.Ours([](benchmark::State &state) {
    TLogInfoShm_ChangeFilter(4, 7);
    for (auto _ : state) {
      int level = 5;
      benchmark::DoNotOptimize(level);
      benchmark::DoNotOptimize(TLogInfoShm_IsEnabled(level, 2));
    }
  });
#if DEVSUPPORT_PEER_SPDLOG
  row.Peer("spdlog, in a header", [](benchmark::State &state) {
    SpdlogRing ring;
    for (auto _ : state) {
      auto level = spdlog::level::debug;
      benchmark::DoNotOptimize(level);
      benchmark::DoNotOptimize(ring.Logger().should_log(level));
    }
  });
#endif
}

void RegisterFormatted() {
  const Row row("log_printf", "format a text and two numbers and write the message");
  row.Ours(SkipOnError([](benchmark::State &state) {
    const Channel channel;
    int number = 0;
    for (auto _ : state) {
      LogInfo_Printf(kType, "call %d on line %d was answered by %s", number, number & 7, "the other end");
      ++number;
    }
  }));
#if DEVSUPPORT_PEER_SPDLOG
  row.Peer("spdlog, ring in the process", SkipOnError([](benchmark::State &state) {
             SpdlogRing ring;
             int number = 0;
             for (auto _ : state) {
               ring.Logger().info("call {} on line {} was answered by {}", number, number & 7, "the other end");
               ++number;
             }
           }));
#endif
}

void RegisterFragments() {
  const Row row("log_fragments", "write a message, by number of records that it takes");
  for (const std::size_t records : {1U, 2U, 4U, 8U, 16U, 32U}) {
    const std::size_t chars = records * LOGCELL_TEXT_CHARS;
    row.At(static_cast<long>(records))
        .Ours(Alone<Channel>(chars))
        .Floor(kFloor, Alone<ClockLockCopy<UndoSemaphore>>(chars));
  }
}

void RegisterWriters() {
  const Row row("log_writers", "write a message of 80 characters, by number of processes at it", kTwiceOneAlone,
                Clock::Elapsed);
  for (const int processes : {1, 2, 4, 8}) {
    const Row point = row.At(processes);
    point.Ours(By<Channel>(processes)).Floor(kYieldingFloor, By<ClockLockCopy<YieldingUndoSemaphore>>(processes));
    point.Peer("a semop pair that sleeps", By<ClockLockCopy<UndoSemaphore>>(processes));
  }
}

}  // namespace

void RegisterLogChannel() {
  RegisterMessage();
  RegisterRefused();
  RegisterFormatted();
  RegisterFragments();
  RegisterWriters();
}

}  // namespace devsupport::bench
