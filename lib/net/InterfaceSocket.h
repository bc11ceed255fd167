// SPDX-License-Identifier: MIT
// The socket for every question about an interface, and the request record that carries the question.
#pragma once

#include <devsupport/text/StringEdit.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace devsupport::net {

/// An IPv4 datagram socket, open while the object lives. The kernel answers interface requests on it, also those
/// that have nothing to do with IPv4.
class InterfaceSocket {
 public:
  InterfaceSocket() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~InterfaceSocket() {
    if (fd_ >= 0) ::close(fd_);
  }
  InterfaceSocket(const InterfaceSocket &) = delete;
  InterfaceSocket &operator=(const InterfaceSocket &) = delete;

  /// False with errno when there is no socket.
  bool IsOpen() const { return fd_ >= 0; }

  /// Passes a request to the kernel, which answers in the same record. False with errno when it refused. Request
  /// numbers have 16 bits; one C library takes them as unsigned long, another as int.
  template <typename TRequest>
  bool Ask(std::uint16_t wRequest, TRequest &record) const {
    return ::ioctl(fd_, wRequest, &record) >= 0;
  }

 private:
  int fd_;
};

/// A request that names one interface and is zero otherwise. A name that is too long is cut to 15 characters.
inline ifreq NamedRequest(const char *pInterface) {
  ifreq request{};
  StrNcpy(request.ifr_name, pInterface, IFNAMSIZ);
  return request;
}

}  // namespace devsupport::net
