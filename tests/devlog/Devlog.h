// SPDX-License-Identifier: MIT
// Runs the real devlog with rings whose cells the test makes, in a private IPC namespace.
#pragma once

#include <devsupport/ipc/MyShareMemory.h>
#include <devsupport/logmgr/LogInfoShm.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/devlog/Cells.h"
#include "tests/logmgr/LogRing.h"
#include "tests/support/Child.h"
#include "tests/support/Command.h"

namespace devlog_test {

using devsupport::test::kEventRing;
using devsupport::test::kLogRing;
using Words = std::vector<std::string>;

/// `devlog WORDS`, ready to run, without colours, and in a time zone where it is 20:00.
devsupport::test::Command Devlog(const Words &words);

/// Its output, when it succeeds.
std::string Shown(const Words &words);

/// A ring that is open for writing.
class WritableRing {
 public:
  explicit WritableRing(const devsupport::test::RingFacts &facts);
  ~WritableRing();
  WritableRing(const WritableRing &) = delete;
  WritableRing &operator=(const WritableRing &) = delete;

  void Write(const Entry &entry) { Write(CellOf(entry)); }
  void Write(const std::vector<Entry> &entries) {
    for (const Entry &entry : entries) Write(entry);
  }
  /// Writes the cell unchanged, also with a wrong length.
  void Write(const devlog::Cell &cell);

  TShmQueue &Queue() { return que_; }
  std::vector<std::uint8_t> Bytes() const;

 private:
  TShmQueue que_{};
};

/// Private shared memory; no ring in it.
class DevlogTest : public devsupport::test::ChannelTest {};

/// Both rings are there, with the writers attached.
class RecordedRings : public DevlogTest {
 protected:
  void SetUp() override {
    DevlogTest::SetUp();
    if (IsSkipped()) return;
    log_.emplace(kLogRing);
    event_.emplace(kEventRing);
  }
  WritableRing &Log() { return *log_; }
  WritableRing &Event() { return *event_; }

  std::optional<WritableRing> log_;
  std::optional<WritableRing> event_;
};

/// A running devlog: its standard output is a pipe to the test, its standard error a file in memory.
class RunningDevlog {
 public:
  explicit RunningDevlog(const Words &words);
  ~RunningDevlog();
  RunningDevlog(const RunningDevlog &) = delete;
  RunningDevlog &operator=(const RunningDevlog &) = delete;

  /// Waits for the next line; "<end>" at the end of the output.
  std::string NextLine();
  /// Closes the reading end of the pipe.
  void StopReading();
  /// Waits until devlog has read a ring.
  void AwaitLook(const devsupport::test::RingFacts &facts) const;
  /// Stops it while it does not hold the ring's lock.
  void Stop(WritableRing &ring) const;

  const devsupport::test::Child &Process() const { return *process_; }
  int Wait() { return process_->Wait(); }
  /// Its standard error up to now.
  std::string Said() const;

 private:
  int reader_ = -1;
  int said_ = -1;
  std::string buffer_;
  std::optional<devsupport::test::Child> process_;
};

}  // namespace devlog_test
