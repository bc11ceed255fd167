// SPDX-License-Identifier: MIT
// Processes that do the same job side by side, for what is measured in elapsed time.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <functional>
#include <vector>

namespace devsupport::bench {

/// Child processes that wait for Run, each do the job that often, and wait again. They end with the object, and with
/// the process that made it.
class WorkerProcesses {
 public:
  WorkerProcesses(int processes, int jobsEach, std::function<void()> job);
  ~WorkerProcesses();
  WorkerProcesses(const WorkerProcesses &) = delete;
  WorkerProcesses &operator=(const WorkerProcesses &) = delete;

  /// Lets all of them do their jobs; the seconds from the common start until the last one is done.
  double Run();

 private:
  struct Shared {
    pthread_barrier_t start;
    pthread_barrier_t done;
    bool stop;
  };
  [[noreturn]] void Work(int jobsEach, const std::function<void()> &job);

  Shared *shared_;
  std::vector<pid_t> children_;
};

}  // namespace devsupport::bench
