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
  /// Returns  false, with errno set, when the message was not taken; true also when HasLost() says so.
  bool Send(int priority, std::string_view text);

  /// From here on HasLost() is about what comes.
  void Begin() { hasSent_ = hasLost_ = false; }
  /// The system log went away after it took messages, and may not have read all of them. No more is sent before Begin().
  bool HasLost() const { return hasLost_; }
  /// Whether messages wait in the socket. They are lost when the system log closes it.
  bool HasUnread() const;
  /// Finds out whether the system log has gone away since it took messages.
  void CheckPeer();

 private:
  bool Connect();
  bool SendOnce(std::string_view head, std::string_view text);
  void Close();

  int fd_ = -1;
  bool isStream_ = false;
  bool hasSent_ = false;
  bool hasLost_ = false;
};

}  // namespace devlog
