// SPDX-License-Identifier: MIT
// Where the lines go: standard output or the system log.
#pragma once

#include <string_view>

#include "tools/devlog/SystemLog.h"

namespace devlog {

class Output {
 public:
  enum class Target : bool { StandardOutput, SystemLog };

  /// isWaiting  while the system log takes nothing, wait for it until a signal comes
  Output(Target target, bool isWaiting);

  bool IsTerminal() const;

  /// priority  of the system log; does not matter on standard output
  /// Returns   false when the line was not taken; the user has been told.
  bool Write(std::string_view line, int priority);

  /// Begins anew: what was written before does not matter to what follows.
  void Begin() { systemLog_.Begin(); }
  /// The system log went away and may not have read what was written: write it again.
  bool HasLost() const { return systemLog_.HasLost(); }
  /// Waits, when patient, until the system log has read what was written, has gone away, or a signal says that it is
  /// enough.
  void AwaitRead();

  /// Writes out what is buffered. False when something could not be written, now or before; the user has been told,
  /// but for a reader that went away, which is no news.
  bool Flush();

  /// Waits. False when the reader of standard output has gone away meanwhile: at once.
  bool Wait(int ms) const;

 private:
  bool WriteToSystemLog(std::string_view line, int priority);

  Target target_;
  bool isWaiting_;
  SystemLog systemLog_;
};

}  // namespace devlog
