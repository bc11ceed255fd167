// SPDX-License-Identifier: MIT
// How a signal ends devconf.

#include "tools/devconf/Ending.h"

#include <unistd.h>

#include <csignal>

namespace devconf {

namespace {

// SIGPIPE, too, which arrives when the reader of our output ends.
constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};

constexpr unsigned kPoliteSeconds = 3;

volatile std::sig_atomic_t g_first = 0;

void EndBy(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  ::sigprocmask(SIG_UNBLOCK, &one, nullptr);
  std::raise(signal);
}

void OnSignal(int signal) {
  if (signal == SIGALRM) {
    EndBy(g_first);
  } else if (g_first != 0) {
    EndBy(signal);
  } else {
    g_first = signal;
    ::alarm(kPoliteSeconds);
  }
}

void Catch(int signal) {
  struct sigaction before = {};
  if (::sigaction(signal, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) return;
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
}

}  // namespace

void EndPolitely() {
  std::signal(SIGALRM, OnSignal);
  for (const int signal : kEndingSignals) Catch(signal);
}

bool IsInterrupted() { return g_first != 0; }

void EndBySignal() {
  if (g_first != 0) EndBy(g_first);
}

}  // namespace devconf
