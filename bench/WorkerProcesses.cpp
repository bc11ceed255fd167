// SPDX-License-Identifier: MIT
// Child processes between two barriers in shared memory.

#include "bench/WorkerProcesses.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

namespace devsupport::bench {

namespace {

void MakeBarrier(pthread_barrier_t &barrier, unsigned parties) {
  pthread_barrierattr_t shared;
  pthread_barrierattr_init(&shared);
  pthread_barrierattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
  pthread_barrier_init(&barrier, &shared, parties);
  pthread_barrierattr_destroy(&shared);
}

}  // namespace

WorkerProcesses::WorkerProcesses(int processes, int jobsEach, std::function<void()> job) {
  const auto parties = static_cast<unsigned>(processes) + 1;
  MakeBarrier(shared_->start, parties);
  MakeBarrier(shared_->done, parties);
  for (int i = 0; i < processes; ++i) {
    const pid_t child = fork();
    if (child == 0) Work(jobsEach, job);
    if (child > 0) children_.push_back(child);
  }
}

WorkerProcesses::~WorkerProcesses() {
  shared_->stop = true;
  pthread_barrier_wait(&shared_->start);
  for (const pid_t child : children_) waitpid(child, nullptr, 0);
}

double WorkerProcesses::Run() {
  pthread_barrier_wait(&shared_->start);
  const auto start = std::chrono::steady_clock::now();
  pthread_barrier_wait(&shared_->done);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void WorkerProcesses::Work(int jobsEach, const std::function<void()> &job) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) {
    pthread_barrier_wait(&shared_->start);
    if (shared_->stop) _exit(0);
    for (int i = 0; i < jobsEach; ++i) job();
    pthread_barrier_wait(&shared_->done);
  }
}

}  // namespace devsupport::bench
