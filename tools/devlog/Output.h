// Where the lines go: standard output or syslog.
#pragma once

#include <string_view>

namespace devlog {

class Output {
 public:
  explicit Output(bool toSyslog);
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  bool IsSyslog() const { return toSyslog_; }
  bool IsTerminal() const;

  /// priority  of syslog; does not matter on standard output
  void Write(std::string_view line, int priority);

  /// Writes out what is buffered. False when something could not be written, now or before; the user has been told,
  /// but for a reader that went away, which is no news.
  bool Flush();

  /// Waits. False when the reader of standard output has gone away meanwhile: at once.
  bool Wait(int ms) const;

 private:
  bool toSyslog_;
};

}  // namespace devlog
