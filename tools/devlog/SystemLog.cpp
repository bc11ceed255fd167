// SPDX-License-Identifier: MIT
// Sends messages to the system log, without the C library.

#include "tools/devlog/SystemLog.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <span>

namespace devlog {

namespace {

constexpr char kPath[] = "/dev/log";
constexpr int kRoomMs = 1000;  // how long to wait for room in the socket

/// "<14>Nov 22 05:12:42 devlog: ", as syslog() writes it.
std::string_view Head(int priority, std::span<char> room) {
  const time_t now = ::time(nullptr);
  tm local{};
  ::localtime_r(&now, &local);
  constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const int size =
      std::snprintf(room.data(), room.size(), "<%d>%s %2d %02d:%02d:%02d devlog: ", LOG_USER | priority,
                    kMonths[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return {room.data(), static_cast<std::size_t>(size)};
}

bool IsConnectionLost(int error) {
  return error == ECONNREFUSED || error == ECONNRESET || error == ENOTCONN || error == EPIPE || error == EDESTADDRREQ;
}

}  // namespace

void SystemLog::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool SystemLog::Connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, kPath, sizeof kPath);
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    fd_ = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd_ < 0) return false;
    isStream_ = type == SOCK_STREAM;
    if (::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return true;
    const int error = errno;
    Close();
    errno = error;
    if (error != EPROTOTYPE) return false;
  }
  return false;
}

// Sends the whole message; on a stream it ends with a NUL.
bool SystemLog::SendOnce(std::string_view head, std::string_view text) {
  if (fd_ < 0 && !Connect()) return false;
  iovec parts[] = {{const_cast<char *>(head.data()), head.size()},
                   {const_cast<char *>(text.data()), text.size()},
                   {const_cast<char *>(""), isStream_ ? 1U : 0U}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 3;
  for (;;) {
    if (::sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) return hasSent_ = true;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return false;
    pollfd room{fd_, POLLOUT, 0};
    if (::poll(&room, 1, kRoomMs) > 0) continue;
    errno = EAGAIN;
    return false;
  }
}

bool SystemLog::Send(int priority, std::string_view text) {
  if (hasLost_) return true;
  char room[64];
  const std::string_view head = Head(priority, room);
  if (SendOnce(head, text)) return true;
  if (!IsConnectionLost(errno)) return false;
  Close();  // the daemon was restarted: there is a new socket
  hasLost_ = hasSent_;
  return hasLost_ || SendOnce(head, text);
}

bool SystemLog::HasUnread() const {
  int unread = 0;
  return fd_ >= 0 && ::ioctl(fd_, SIOCOUTQ, &unread) == 0 && unread > 0;
}

// An empty datagram is no message, and sending it fails when the other side has closed its socket.
void SystemLog::CheckPeer() {
  if (fd_ < 0 || !hasSent_) return;
  char byte = 0;
  const ssize_t result =
      isStream_ ? ::recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) : ::send(fd_, &byte, 0, MSG_NOSIGNAL | MSG_DONTWAIT);
  hasLost_ = (isStream_ && result == 0) || (result < 0 && IsConnectionLost(errno));
  if (hasLost_) Close();
}

}  // namespace devlog
