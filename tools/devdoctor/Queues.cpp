// SPDX-License-Identifier: MIT
// Message queues and timers, as the kernel lists them.

#include "tools/devdoctor/Queues.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/devdoctor/Process.h"

namespace devdoctor {

namespace {

constexpr char kQueues[] = "message queues";
constexpr char kProcess[] = "process";

struct Queue {
  unsigned key;
  int id;
  unsigned long bytes;
  unsigned long messages;
  int sender;
  int receiver;
};

/// Calls for each System V message queue. False when the kernel has no list.
template <typename Call>
bool ForEachQueue(Call call) {
  std::FILE *list = std::fopen("/proc/sysvipc/msg", "re");
  if (list == nullptr) return false;
  char line[256];
  while (std::fgets(line, sizeof line, list) != nullptr) {
    Queue queue{};
    int key = 0;
    const int found = std::sscanf(line, "%d %d %*o %lu %lu %d %d", &key, &queue.id, &queue.bytes, &queue.messages,
                                  &queue.sender, &queue.receiver);
    queue.key = static_cast<unsigned>(key);
    if (found == 6) call(queue);
  }
  std::fclose(list);
  return true;
}

bool IsDead(pid_t pid) { return pid != 0 && !Look(pid).IsAlive(); }

}  // namespace

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
                 "queue %d (key 0x%x) holds %lu messages of %lu bytes, and its users are dead", queue.id, queue.key,
                 queue.messages, queue.bytes);
  });
  if (!hasList) return;
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
