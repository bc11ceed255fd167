// SPDX-License-Identifier: MIT
// Processes that do the same job at the same time, for rows measured in elapsed time.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <functional>
#include <vector>

#include "tests/support/SharedBlock.h"

namespace devsupport::bench {

/// Child processes that wait for Run(), each do the job `jobsEach` times, and wait again. They end when the object is
/// destroyed, or when the process that made it ends.
class WorkerProcesses {
 public:
  WorkerProcesses(int processes, int jobsEach, std::function<void()> job);
  ~WorkerProcesses();
  WorkerProcesses(const WorkerProcesses &) = delete;
  WorkerProcesses &operator=(const WorkerProcesses &) = delete;

  /// Starts the jobs of all processes. Returns the seconds from the common start until the last one is done.
  double Run();

 private:
  struct Shared {
    pthread_barrier_t start;
    pthread_barrier_t done;
    bool stop;
  };
  [[noreturn]] void Work(int jobsEach, const std::function<void()> &job);

  test::SharedBlock<Shared> shared_;
  std::vector<pid_t> children_;
};

}  // namespace devsupport::bench
