// SPDX-License-Identifier: MIT
// The device that the command sees, made by umockdev: a library that it preloads into the command leads
// open() and ioctl() of /dev/analog/0 to a socket of ours.

#include "tools/analogsim/Testbed.h"

#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "tools/analogsim/DeviceSocket.h"

namespace analogsim {

namespace {

constexpr char kDevice[] = "/dev/analog/0";
constexpr char kPreload[] = "libumockdev-preload.so.0";

// The node has one byte of content: that makes it a plain file that passes for a character device. Without
// content it would be a terminal, which answers requests of its own and can become a command's controlling one.
constexpr char kDescription[] =
    "P: /devices/virtual/analog/analog0\n"
    "N: analog/0=00\n"
    "E: DEVNAME=/dev/analog/0\n"
    "E: SUBSYSTEM=analog\n";

struct Unref {
  void operator()(void *object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref>;

/// The error slot of a GLib call.
class GlibError {
 public:
  GlibError() = default;
  ~GlibError() { g_clear_error(&error_); }
  GlibError(const GlibError &) = delete;
  GlibError &operator=(const GlibError &) = delete;

  GError **Slot() { return &error_; }
  std::string Text() const { return error_ != nullptr ? error_->message : "unknown error"; }

 private:
  GError *error_ = nullptr;
};

/// umockdev ends the program when it cannot make its folder; say it in a sentence instead.
void RequireFolderForTemporaryFiles() {
  const std::filesystem::path folder = g_get_tmp_dir();
  if (::access(folder.c_str(), W_OK | X_OK) == 0) return;
  throw std::runtime_error("cannot make files in " + folder.string() + ": " + std::strerror(errno));
}

/// The folder in which the testbed keeps its files.
std::string RootOf(UMockdevTestbed *testbed) {
  const std::unique_ptr<char, decltype(&g_free)> root(umockdev_testbed_get_root_dir(testbed), &g_free);
  return root.get();
}

/// The testbed listens for requests of recorded devices, and ends the program when it receives something else. Our
/// device is the only one, so the socket is not needed.
void RemoveOtherSocket(const std::string &root) { std::filesystem::remove(root + "/ioctl/_default"); }

}  // namespace

struct Testbed::Parts {
  Ref<UMockdevTestbed> testbed{umockdev_testbed_new()};
  std::unique_ptr<DeviceSocket> socket{};
};

Testbed::Testbed(Simulator &simulator) {
  RequireFolderForTemporaryFiles();
  parts_ = std::make_unique<Parts>();
  GlibError error;
  if (!umockdev_testbed_add_from_string(parts_->testbed.get(), kDescription, error.Slot())) {
    throw std::runtime_error("cannot make the device: " + error.Text());
  }
  const std::string root = RootOf(parts_->testbed.get());
  RemoveOtherSocket(root);
  parts_->socket = std::make_unique<DeviceSocket>(root + "/ioctl" + kDevice, simulator);
}

Testbed::~Testbed() = default;

std::vector<std::string> Testbed::Environment() const {
  constexpr std::string_view kPreloadEntry = "LD_PRELOAD=";
  std::vector<std::string> entries;  // the testbed has put its own variable into our environment
  std::string preload = std::string(kPreloadEntry) + kPreload;
  for (char **entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    if (!text.starts_with(kPreloadEntry)) entries.emplace_back(text);
    if (text.size() > kPreloadEntry.size() && text.starts_with(kPreloadEntry)) {
      preload += ':' + std::string(text.substr(kPreloadEntry.size()));
    }
  }
  entries.push_back(preload);
  return entries;
}

}  // namespace analogsim
