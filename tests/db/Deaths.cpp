// SPDX-License-Identifier: MIT
#include "tests/db/Deaths.h"

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <devsupport/db/DbRecord.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace devsupport::test {

namespace {

int g_syncsLeft;

}  // namespace

void DieAtSync(int nth) {
  g_syncsLeft = nth;
  db_env_set_func_fsync([](int fd) {
    if (--g_syncsLeft == 0) ::raise(SIGKILL);
    return ::fsync(fd);
  });
}

int DieInside(const std::string &home) {
  if (BerkDb_Open(home.c_str(), nullptr, nullptr) != 1) return 2;
  DieAtSync();
  return BerkDb_Set(g_uDb.tb_tone, "dies", "inside");
}

Starter::Starter(const std::function<int(int)> &body)
    : starter_([&] {
        for (;;) {
          ordered_.Wait();
          Child process([&] { return body(order_->number); });
          order_->status = process.Wait();
          done_.Announce();
        }
        return 0;
      }) {}

int Starter::Run(int number) const {
  order_->number = number;
  ordered_.Announce();
  done_.Wait();
  return order_->status;
}

bool HasEnded(const Child &child) {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(child.Pid()), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0;
}

}  // namespace devsupport::test
