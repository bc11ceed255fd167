// SPDX-License-Identifier: MIT
// Our end of the socket to which umockdev's preloaded library leads the requests of a command.
#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "tools/analogsim/Simulator.h"

namespace analogsim {

/// Answers requests while it lives. Any process of the user can connect and send what it likes: a connection that
/// breaks the rules is closed, and the others go on.
class DeviceSocket {
 public:
  /// Throws std::runtime_error when the socket cannot be made.
  /// path       where the socket appears; its folder is made when it is missing
  /// simulator  answers the requests, one at a time; outlives the socket
  DeviceSocket(const std::string &path, Simulator &simulator);
  ~DeviceSocket();
  DeviceSocket(const DeviceSocket &) = delete;
  DeviceSocket &operator=(const DeviceSocket &) = delete;

 private:
  void AcceptConnections();
  void Serve(int connection);
  Answer Handle(std::uint32_t request, const Record &record);

  Simulator &simulator_;
  int listening_;
  std::mutex mutex_;  // of the simulator and of what follows
  std::condition_variable oneEnded_;
  std::set<int> connections_;
  bool closing_ = false;
  std::thread accepting_;
};

}  // namespace analogsim
