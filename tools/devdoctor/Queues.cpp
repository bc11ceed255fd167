// SPDX-License-Identifier: MIT
// Segments, semaphores, message queues and timers, as the kernel lists them.

#include "tools/devdoctor/Queues.h"

#include <devsupport/detail/logmgr/LogCell.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "db/for_project/StoreKeys.h"
#include "tools/devdoctor/Process.h"

namespace devdoctor {

namespace {

using devsupport::store::kGateKey;
using devsupport::store::kMaxRegions;
using devsupport::store::kShmKey;

constexpr char kQueues[] = "message queues";
constexpr char kSegments[] = "segments";
constexpr char kSemaphores[] = "semaphores";
constexpr char kProcess[] = "process";

struct Queue {
  unsigned key;
  int id;
  unsigned long bytes;
  unsigned long messages;
  int sender;
  int receiver;
};

/// Calls the function for each line after the head of a kernel list of System V objects. False without a list.
template <typename Call>
bool ForEachLine(const char *path, Call call) {
  std::FILE *list = std::fopen(path, "re");
  if (list == nullptr) return false;
  char line[256];
  if (std::fgets(line, sizeof line, list) != nullptr) {
    while (std::fgets(line, sizeof line, list) != nullptr) call(line);
  }
  std::fclose(list);
  return true;
}

template <typename Call>
bool ForEachQueue(Call call) {
  return ForEachLine("/proc/sysvipc/msg", [&](const char *line) {
    Queue queue{};
    int key = 0;
    const int found = std::sscanf(line, "%d %d %*o %lu %lu %d %d", &key, &queue.id, &queue.bytes, &queue.messages,
                                  &queue.sender, &queue.receiver);
    queue.key = static_cast<unsigned>(key);
    if (found == 6) call(queue);
  });
}

/// A process of another PID namespace has the number 0; nothing is known about it.
bool IsDead(pid_t pid) { return pid != 0 && !Look(pid).IsAlive(); }

void SayNoList(Report &report, const char *object, const char *path) {
  report.Fault(Severity::Error, object, "unreadable", "mount /proc; a kernel without System V IPC runs none of this",
               "%s cannot be read: %s", path, std::strerror(errno));
}

/// The rings, the gate and the store's regions stay when their programs end; other functions check them.
bool IsKnown(int key) {
  const auto region = static_cast<unsigned>(key) - static_cast<unsigned>(kShmKey);
  return key == LOGRING_LOG_SHARE_KEY || key == LOGRING_EVT_SHARE_KEY || key == LOGRING_LOG_SEM_KEY ||
         key == LOGRING_EVT_SEM_KEY || key == kGateKey || region < static_cast<unsigned>(kMaxRegions);
}

void CheckSegment(Report &report, const char *line) {
  int key = 0;
  int id = 0;
  int maker = 0;
  int last = 0;
  unsigned long bytes = 0;
  unsigned long attached = 0;
  const int found = std::sscanf(line, "%d %d %*o %lu %d %d %lu", &key, &id, &bytes, &maker, &last, &attached);
  if (found != 6 || IsKnown(key) || attached != 0 || !IsDead(maker) || (last != 0 && !IsDead(last))) return;
  char advice[96];
  std::snprintf(advice, sizeof advice, "when no program is to use it again: 'ipcrm -m %d'", id);
  report.Fault(Severity::Warning, kSegments, "stale_segment", advice,
               "segment %d (key 0x%x) of %lu bytes is attached nowhere, and who made and used it is dead", id,
               static_cast<unsigned>(key), bytes);
}

/// Skips sets of several semaphores: their meaning is not known.
void CheckSemaphore(Report &report, const char *line) {
  int key = 0;
  int id = 0;
  unsigned long count = 0;
  if (std::sscanf(line, "%d %d %*o %lu", &key, &id, &count) != 3 || IsKnown(key) || count != 1) return;
  const pid_t holder = ::semctl(id, 0, GETPID);
  if (::semctl(id, 0, GETVAL) != 0 || holder <= 0 || !IsDead(holder)) return;
  char advice[96];
  std::snprintf(advice, sizeof advice, "end the programs that use it, and remove it with 'ipcrm -s %d'", id);
  report.Fault(Severity::Warning, kSemaphores, "stale_semaphore", advice,
               "semaphore %d (key 0x%x) is taken, by process %d, which is dead; %d wait", id,
               static_cast<unsigned>(key), static_cast<int>(holder), ::semctl(id, 0, GETNCNT));
}

}  // namespace

void CheckOwners(Report &report) {
  constexpr char kShm[] = "/proc/sysvipc/shm";
  constexpr char kSem[] = "/proc/sysvipc/sem";
  if (!ForEachLine(kShm, [&](const char *line) { CheckSegment(report, line); })) SayNoList(report, kSegments, kShm);
  if (!ForEachLine(kSem, [&](const char *line) { CheckSemaphore(report, line); }))
    SayNoList(report, kSemaphores, kSem);
}

void CheckQueues(Report &report) {
  unsigned queues = 0;
  unsigned long messages = 0;
  const bool hasList = ForEachQueue([&](const Queue &queue) {
    ++queues;
    messages += queue.messages;
    if (queue.messages == 0 || !IsDead(queue.sender) || (queue.receiver != 0 && !IsDead(queue.receiver))) return;
    char advice[96];
    std::snprintf(advice, sizeof advice, "when no program is to read it: 'ipcrm -q %d'", queue.id);
    report.Fault(Severity::Warning, kQueues, "stale_queue", advice,
                 "queue %d (key 0x%x) holds %lu message%s of %lu bytes, and its users are dead", queue.id, queue.key,
                 queue.messages, Plural(queue.messages), queue.bytes);
  });
  if (!hasList) return SayNoList(report, kQueues, "/proc/sysvipc/msg");
  report.Note(kQueues, "%u, with %lu messages", queues, messages);
  report.Figure(kQueues, "queues", queues);
  report.Figure(kQueues, "waiting_messages", messages);
}

void DescribeProcess(Report &report, pid_t pid) {
  const Process process = Look(pid);
  if (!process.IsAlive()) {
    report.Fault(Severity::Error, kProcess, "no_process", "", "there is no process %d", static_cast<int>(pid));
    return;
  }
  const Described who(pid);
  report.Note(kProcess, "%s", who.text);
  ForEachQueue([&](const Queue &queue) {
    if (queue.sender != pid && queue.receiver != pid) return;
    report.Note(kProcess, "%s queue %d (key 0x%x) last, which holds %lu messages",
                queue.sender == pid ? "sent to" : "read from", queue.id, queue.key, queue.messages);
  });
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/timers", static_cast<int>(pid));
  std::FILE *timers = std::fopen(path, "re");
  if (timers == nullptr) {
    report.Note(kProcess, "its timers cannot be looked at: %s", std::strerror(errno));
    return;
  }
  unsigned count = 0;
  char line[256];
  while (std::fgets(line, sizeof line, timers) != nullptr) {
    int signal = 0;
    if (std::sscanf(line, "signal: %d", &signal) != 1) continue;
    ++count;
    report.Note(kProcess, "timer with signal %d", signal);
  }
  std::fclose(timers);
  report.Note(kProcess, "%u timers", count);
  report.Figure(kProcess, "timers", count);
}

}  // namespace devdoctor
