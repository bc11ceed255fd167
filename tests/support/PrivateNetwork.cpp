// SPDX-License-Identifier: MIT
#include "tests/support/PrivateNetwork.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "tests/support/Child.h"

namespace devsupport::test {

namespace {

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWIPC;
constexpr int kMaxDescriptors = 1024;

// The hidden folders, in the order of hiding.
std::vector<std::string> &Hidden() {
  static std::vector<std::string> paths;
  return paths;
}

bool WriteText(const char *path, const std::string &text) {
  std::ofstream file(path);
  return (file << text << std::flush).good();
}

/// Root makes the namespaces directly; other users make a user namespace too, in which they are root.
bool EnterNamespaces() {
  const std::string user = std::to_string(::geteuid());
  const std::string group = std::to_string(::getegid());
  if (::unshare(kNamespaces) != 0) {
    if (::unshare(kNamespaces | CLONE_NEWUSER) != 0) return false;
    if (!WriteText("/proc/self/setgroups", "deny") || !WriteText("/proc/self/uid_map", "0 " + user + " 1") ||
        !WriteText("/proc/self/gid_map", "0 " + group + " 1"))
      return false;
  }
  return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool RunIp(const std::string &batch) {
  std::FILE *const ip = ::popen("PATH=$PATH:/sbin:/usr/sbin ip -batch -", "we");
  if (ip == nullptr) return false;
  std::fputs(batch.c_str(), ip);
  return ::pclose(ip) == 0;
}

}  // namespace

bool CanMakePrivateNetworks() {
  Child child([] { return EnterNamespaces() && RunIp("link set lo up\n") ? 0 : 1; });
  return child.Wait() == 0;
}

void EnterPrivateNetwork() {
  if (!EnterNamespaces()) throw std::runtime_error("cannot make a private network");
}

void Ip(std::initializer_list<std::string> commands) {
  std::string batch;
  for (const std::string &command : commands) batch += command + "\n";
  if (!RunIp(batch)) throw std::runtime_error("ip failed:\n" + batch);
}

void AddInterface(const std::string &name, std::initializer_list<std::string> addresses, int index) {
  // The other end of the pair has no address and an index that tests do not use.
  static int nextPeer = 0;
  const std::string peer = "peer" + std::to_string(++nextPeer);
  std::string batch = "link add " + (index > 0 ? "index " + std::to_string(index) + " " : "") + "name " + name +
                      " type veth peer name " + peer + " index " + std::to_string(10000 + nextPeer) + "\n";
  for (const std::string &end : {name, peer})
    batch += "link set " + end + " addrgenmode none\nlink set " + end + " up\n";
  for (const std::string &address : addresses) {
    const bool isIpv6 = address.find(':') != std::string::npos;
    batch += "addr add " + address + " dev " + name + (isIpv6 ? " nodad\n" : "\n");
  }
  if (!RunIp(batch)) throw std::runtime_error("ip failed:\n" + batch);
}

void HideFolder(const std::string &path) {
  if (::mount("tmpfs", path.c_str(), "tmpfs", 0, nullptr) != 0) throw std::runtime_error("cannot hide " + path);
  Hidden().push_back(path);
}

void RevealFolders() {
  for (; !Hidden().empty(); Hidden().pop_back()) ::umount2(Hidden().back().c_str(), MNT_DETACH);
}

void WriteFile(const std::string &path, const std::string &text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  if (!WriteText(path.c_str(), text)) throw std::runtime_error("cannot write " + path);
}

int CountDescriptors() {
  int open = 0;
  for (int fd = 0; fd < kMaxDescriptors; ++fd)
    if (::fcntl(fd, F_GETFD) >= 0) ++open;
  return open;
}

}  // namespace devsupport::test
