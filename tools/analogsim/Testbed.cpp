// The world that the command sees, made by umockdev: a library that it preloads into the command leads
// open() and ioctl() of /dev/analog/0 to a socket of ours.

#include "Testbed.h"

#include <umockdev.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

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

/// The record that the request's argument points to, copied from the calling process; null if it points nowhere.
Ref<UMockdevIoctlData> FetchRecord(UMockdevIoctlClient *client) {
  GlibError error;
  UMockdevIoctlData *argument = umockdev_ioctl_client_get_arg(client);
  return Ref<UMockdevIoctlData>(umockdev_ioctl_data_resolve(argument, 0, sizeof(Record), error.Slot()));
}

gboolean OnRequest(UMockdevIoctlBase *, UMockdevIoctlClient *client, Simulator *simulator) {
  const Ref<UMockdevIoctlData> memory = FetchRecord(client);
  if (memory == nullptr) {
    umockdev_ioctl_client_complete(client, -1, EFAULT);
    return TRUE;
  }
  Record record;
  std::memcpy(&record, memory->data, sizeof record);
  // The kernel hands a driver the low 32 bits of the request number.
  const auto request = static_cast<std::uint32_t>(umockdev_ioctl_client_get_request(client));
  Answer answer = simulator->Handle(request, record);
  auto *bytes = reinterpret_cast<guint8 *>(&answer.record);
  umockdev_ioctl_data_update(memory.get(), 0, bytes, sizeof answer.record);
  umockdev_ioctl_client_complete(client, answer.result, answer.error);
  return TRUE;
}

/// umockdev ends the program when it cannot make its folder; say it in a sentence instead.
void RequireFolderForTemporaryFiles() {
  const std::filesystem::path folder = g_get_tmp_dir();
  if (::access(folder.c_str(), W_OK | X_OK) == 0) return;
  throw std::runtime_error("cannot make files in " + folder.string() + ": " + std::strerror(errno));
}

/// umockdev only warns when it cannot serve the device, and the command would find a plain file there.
void RequireSocket(UMockdevTestbed *testbed) {
  const std::unique_ptr<char, decltype(&g_free)> root(umockdev_testbed_get_root_dir(testbed), &g_free);
  const std::string socket = std::string(root.get()) + "/ioctl" + kDevice;
  if (std::filesystem::is_socket(socket)) return;
  throw std::runtime_error("cannot make the socket " + socket + ": is the path too long?");
}

}  // namespace

struct Testbed::Parts {
  Ref<UMockdevTestbed> testbed{umockdev_testbed_new()};
  Ref<UMockdevIoctlBase> requests{umockdev_ioctl_base_new()};
};

Testbed::Testbed(Simulator &simulator) {
  RequireFolderForTemporaryFiles();
  parts_ = std::make_unique<Parts>();
  GlibError error;
  if (!umockdev_testbed_add_from_string(parts_->testbed.get(), kDescription, error.Slot())) {
    throw std::runtime_error("cannot make the device: " + error.Text());
  }
  g_signal_connect(parts_->requests.get(), "handle-ioctl", G_CALLBACK(OnRequest), &simulator);
  if (!umockdev_testbed_attach_ioctl(parts_->testbed.get(), kDevice, parts_->requests.get(), error.Slot())) {
    throw std::runtime_error("cannot serve the device: " + error.Text());
  }
  RequireSocket(parts_->testbed.get());
}

Testbed::~Testbed() { umockdev_testbed_detach_ioctl(parts_->testbed.get(), kDevice, nullptr); }

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
