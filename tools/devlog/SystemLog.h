// SPDX-License-Identifier: MIT
// The system log, spoken to without the C library: its syslog() does not tell whether a message arrived.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace devlog {

class SystemLog {
 public:
  SystemLog() = default;
  ~SystemLog() { Close(); }
  SystemLog(const SystemLog &) = delete;
  SystemLog &operator=(const SystemLog &) = delete;

  /// Hands one message to /dev/log, and waits a while when there is no room for it just now. A lost connection is made
  /// again.
  /// Returns  false, with errno set, when the message was not taken.
  bool Send(int priority, std::string_view text);

 private:
  bool Connect();
  bool SendOnce(std::string_view head, std::string_view text);
  void Close();

  int fd_ = -1;
  bool isStream_ = false;
};

}  // namespace devlog
