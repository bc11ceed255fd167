// SPDX-License-Identifier: MIT
// One thread a connection. A connection carries frames of three words: what is wanted, and two values. For an ioctl
// we ask for the record that its argument points to, write it back when it has changed, and then send the result.

#include "tools/analogsim/DeviceSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace analogsim {

namespace {

enum class Frame : unsigned long {
  Ioctl = 1,        // request number, address of its argument
  Done = 3,         // result, errno
  ReadMemory = 5,   // address, bytes; the bytes follow from the other side
  WriteMemory = 6,  // address, bytes; the bytes follow
  Read = 7,         // address, bytes
  Write = 8,        // address, bytes
};

struct Message {
  Frame frame;
  unsigned long first;
  unsigned long second;
};

// The result that leaves a call to the plain file that the device's node is.
constexpr long kNotServed = -100;

bool Receive(int connection, void *bytes, std::size_t count) {
  ssize_t got = 0;
  do {
    got = ::recv(connection, bytes, count, MSG_WAITALL);
  } while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(count);
}

bool Send(int connection, const void *bytes, std::size_t count) {
  ssize_t sent = 0;
  do {
    sent = ::send(connection, bytes, count, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(count);
}

bool SendMessage(int connection, Frame frame, unsigned long first, unsigned long second) {
  const Message message{frame, first, second};
  return Send(connection, &message, sizeof message);
}

bool SendResult(int connection, long result, int error) {
  return SendMessage(connection, Frame::Done, static_cast<unsigned long>(result), static_cast<unsigned long>(error));
}

bool FetchRecord(int connection, unsigned long address, Record &record) {
  return SendMessage(connection, Frame::ReadMemory, address, sizeof record) &&
         Receive(connection, &record, sizeof record);
}

bool ReturnRecord(int connection, unsigned long address, const Record &record) {
  return SendMessage(connection, Frame::WriteMemory, address, sizeof record) &&
         Send(connection, &record, sizeof record);
}

int Listen(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("cannot make the socket " + path + ": is the path too long?");
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && ::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
      ::listen(fd, SOMAXCONN) == 0) {
    return fd;
  }
  const int error = errno;
  if (fd >= 0) ::close(fd);
  throw std::runtime_error("cannot make the socket " + path + ": " + std::strerror(error));
}

}  // namespace

DeviceSocket::DeviceSocket(const std::string &path, Simulator &simulator)
    : simulator_(simulator), listening_(Listen(path)), accepting_([this] { AcceptConnections(); }) {}

DeviceSocket::~DeviceSocket() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    for (const int connection : connections_) ::shutdown(connection, SHUT_RDWR);
  }
  ::shutdown(listening_, SHUT_RDWR);
  accepting_.join();
  std::unique_lock lock(mutex_);
  oneEnded_.wait(lock, [this] { return connections_.empty(); });
  ::close(listening_);
}

void DeviceSocket::AcceptConnections() {
  for (;;) {
    const int connection = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    const int error = errno;
    const std::lock_guard lock(mutex_);
    if (closing_) {
      if (connection >= 0) ::close(connection);
      return;
    }
    if (connection < 0) {
      // Connections that are open use up what there is: the next one has to wait until one ends.
      if (error == EMFILE || error == ENFILE) ::usleep(1000);
      continue;
    }
    try {
      std::thread([this, connection] { Serve(connection); }).detach();
      connections_.insert(connection);
    } catch (const std::system_error &) {
      ::close(connection);
    }
  }
}

void DeviceSocket::Serve(int connection) {
  Message message{};
  bool keptRules = true;
  while (keptRules && Receive(connection, &message, sizeof message)) {
    if (message.frame == Frame::Read || message.frame == Frame::Write) {
      keptRules = SendResult(connection, kNotServed, 0);
    } else if (message.frame != Frame::Ioctl) {
      keptRules = false;
    } else if (message.second == 0) {
      keptRules = SendResult(connection, -1, EFAULT);
    } else {
      Record record{};
      keptRules = FetchRecord(connection, message.second, record);
      if (!keptRules) break;
      // The kernel hands a driver the low 32 bits of the request number.
      const Answer answer = Handle(static_cast<std::uint32_t>(message.first), record);
      const bool changed = std::memcmp(&answer.record, &record, sizeof record) != 0;
      keptRules = (!changed || ReturnRecord(connection, message.second, answer.record)) &&
                  SendResult(connection, answer.result, answer.error);
    }
  }
  const std::lock_guard lock(mutex_);
  connections_.erase(connection);
  ::close(connection);
  oneEnded_.notify_all();
}

Answer DeviceSocket::Handle(std::uint32_t request, const Record &record) {
  const std::lock_guard lock(mutex_);
  return simulator_.Handle(request, record);
}

}  // namespace analogsim
