// SPDX-License-Identifier: MIT
// Sends messages to the system log without syslog(), which does not tell whether a message arrived.
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

  /// Sends one message to /dev/log; waits a short time when the socket is full. Connects again after the connection was
  /// lost.
  /// Returns  false, with errno set, when the message was not accepted; true also when HasLost() says so.
  bool Send(int priority, std::string_view text);

  /// HasLost() is about messages after this call.
  void Begin() { hasSent_ = hasLost_ = false; }
  /// The system log closed its socket and may not have read all messages. No more are sent before Begin().
  bool HasLost() const { return hasLost_; }
  /// Whether messages wait in the socket. They are lost when the system log closes it.
  bool HasUnread() const;
  /// Checks whether the system log has closed its socket since the last message.
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
