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

  /// priority  for the system log; not used on standard output
  /// Returns   false when the line was not accepted; the user has been told.
  bool Write(std::string_view line, int priority);

  /// Starts a new group of lines: HasLost() is only about these.
  void Begin() { systemLog_.Begin(); }
  /// The system log closed its socket and may not have read the lines since Begin(): write them again.
  bool HasLost() const { return systemLog_.HasLost(); }
  /// With isWaiting, waits until the system log has read all lines, has closed its socket, or a signal comes.
  void AwaitRead();

  /// Writes the buffered output. False when something could not be written, now or before; the user has been told,
  /// except when the reader closed the pipe.
  bool Flush();

  /// Waits. Returns false at once when the reader of standard output closes it.
  bool Wait(int ms) const;

 private:
  bool WriteToSystemLog(std::string_view line, int priority);

  Target target_;
  bool isWaiting_;
  SystemLog systemLog_;
};

}  // namespace devlog
