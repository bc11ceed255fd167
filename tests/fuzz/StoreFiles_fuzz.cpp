// SPDX-License-Identifier: MIT
// The files of a store with any bytes of them changed, after a close in order or after its process was killed: the
// store is opened or refused. What differs from before is reported, except without a seal that fits the log: then
// only the log and the pages themselves can show damage. The salvager and the reader of its dump end, too. Berkeley
// DB checks its files only in part, so it may crash where these are damaged; our code may not.

#include <db.h>
#include <devsupport/db/BerkeleyDB.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include "db/for_project/StoreSeal.h"
#include "tests/db/Store.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/StreamText.h"
#include "tests/support/Child.h"
#include "tests/support/TempDir.h"
#include "tools/devconf/Rescue.h"

// The address sanitizer's, where there is one.
extern "C" [[gnu::weak]] void __asan_set_error_report_callback(void (*callback)(const char *report));

namespace {

namespace fs = std::filesystem;
using namespace devsupport::test;
using devsupport::store::SealState;
using Files = std::map<std::string, std::string>;

// Exit statuses that no sanitizer has.
enum Outcome : int { kAsBefore = 10, kSaid, kRefused, kChangedInSilence, kRefusedInSilence, kLibraryCrashed };

bool OpenAnew(const std::string &home) {
  if (::unshare(CLONE_NEWIPC) != 0) throw std::runtime_error("needs the right to make an IPC namespace");
  return BerkDb_Open(home.c_str(), nullptr, nullptr) == 1;
}

std::string ReadAllAsText() {
  std::string text;
  for (const auto &[table, records] : ReadAllTables())
    for (const auto &[key, value] : records) text += table + ' ' + key + ' ' + value + '\n';
  return text;
}

/// All files of the store, without the note of its shared memory.
Files FilesOf(const fs::path &home) {
  Files files;
  for (const auto &entry : fs::directory_iterator(home)) {
    const std::string name = entry.path().filename();
    if (name.starts_with("config.db") || name.starts_with("log.")) files[name] = FileText(entry);
  }
  return files;
}

/// A store as it was left, and what it holds.
struct Model {
  explicit Model(bool isClosed) {
    const TempDir folder;
    const std::string home = folder.Path();
    Child maker([&] { return Make(home, isClosed); });
    if (maker.Wait() != (isClosed ? 0 : 1000 + SIGKILL)) throw std::runtime_error("cannot make a store");
    files = FilesOf(home);
    Child reader([&] {
      const bool isOpen = OpenAnew(home);
      WriteFile(home + "/text", ReadAllAsText());
      BerkDb_Close();
      return isOpen ? 0 : 1;
    });
    if (reader.Wait() != 0) throw std::runtime_error("cannot read the store");
    text = FileText(home + "/text");
  }

  static int Make(const std::string &home, bool isClosed) {
    if (!OpenAnew(home)) return 1;
    for (int i = 0; i < 12; ++i) {
      const std::string name = "Bob " + std::to_string(i);
      BerkDb_Set(g_uDb.tb_pb, name.c_str(), (std::to_string(i * i) + ";x").c_str());
      BerkDb_Set(g_uDb.tb_route, std::to_string(i * 1111).c_str(), "route");
      BerkDb_Set(g_uDb.tb_parameter, name.c_str(), std::string(200, 'v').c_str());
    }
    if (!isClosed) ::raise(SIGKILL);
    BerkDb_Close();
    return 0;
  }

  Files files;
  std::string text;
};

void Change(std::string &bytes, FuzzInput &input) {
  const std::size_t kind = input.Below(8);
  const std::size_t where = (input.Below(256) << 12 | input.Below(256) << 4 | input.Below(16)) % (bytes.size() + 1);
  if (kind == 0) {
    bytes.resize(where);
  } else if (kind == 1) {
    bytes.insert(where, input.Take(input.Below(32)));
  } else {
    const std::string_view other = input.Take(1 + input.Below(16));
    bytes.replace(where, std::min(other.size(), bytes.size() - where), other);
  }
}

/// Writes the model's files, some with changed bytes. Returns them.
Files Spread(const Model &model, const fs::path &home, FuzzInput &input) {
  Files files = model.files;
  while (!input.IsUsedUp())
    Change(std::next(files.begin(), static_cast<std::ptrdiff_t>(input.Below(files.size())))->second, input);
  for (const auto &entry : fs::directory_iterator(home)) fs::remove(entry);
  for (const auto &[name, bytes] : files) WriteFile(home / name, bytes);
  return files;
}

SealState SealOf(const std::string &home) {
  const int fd = ::open(home.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const SealState state = devsupport::store::CheckSeal(fd, "config.db").state;
  ::close(fd);
  return state;
}

// The salvager goes on for ever in some files. Whether it was stopped does not matter here.
constexpr int kMostSilentMs = 1000;

void Salvage(const std::string &home) {
  devconf::Bytes dump;
  devconf::RunRescue((home + "/config.db").c_str(), kMostSilentMs, dump);
  for (devconf::DumpReader reader(dump.View()); reader.Next();)
    EXPECT_LE(reader.Table().size() + reader.Key().size() + reader.Value().size(), dump.Size());
}

/// Ends the process when the innermost frame with a known place is the library's: ours have the names of their sources.
void EndIfLibraryCrashed(const char *report) {
  const std::string_view text(report);
  if (text.find("/libdb-") < text.find(".cpp:")) ::_exit(kLibraryCrashed);
}

/// Opens the store in a process of its own: its shared memory is not left to the next input, nor are old handles.
Outcome Open(const std::string &home, const std::string &expected) {
  Child opener([&] {
    if (__asan_set_error_report_callback != nullptr) __asan_set_error_report_callback(EndIfLibraryCrashed);
    constexpr rlimit kProcessorSeconds = {10, 10};
    ::setrlimit(RLIMIT_CPU, &kProcessorSeconds);
    const StreamText err(stderr);
    if (!OpenAnew(home)) return err.Text().empty() ? kRefusedInSilence : kRefused;
    const bool isAsBefore = ReadAllAsText() == expected;
    BerkDb_Close();
    if (!err.Text().empty()) return kSaid;
    return isAsBefore ? kAsBefore : kChangedInSilence;
  });
  const int status = opener.Wait();
  // Without a sanitizer, there is no report of who crashed.
  const bool isCrash = status == 1000 + SIGSEGV || status == 1000 + SIGFPE || status == 1000 + SIGABRT;
  if (isCrash && __asan_set_error_report_callback == nullptr) return kLibraryCrashed;
  return static_cast<Outcome>(status);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const Model s_models[] = {Model(true), Model(false)};
  static const TempDir s_folder;
  FuzzInput input(data, size);
  const bool isClosed = input.Below(2) == 0;
  const Model &model = s_models[isClosed ? 0 : 1];
  const std::string home = s_folder.Path();
  const Files files = Spread(model, home, input);

  const SealState seal = SealOf(home);
  EXPECT_EQ(seal == SealState::Fits, isClosed && files == model.files);
  Salvage(home);
  const Outcome outcome = Open(home, model.text);
  if (outcome == kLibraryCrashed) return 0;
  EXPECT_TRUE(outcome >= kAsBefore && outcome < kRefusedInSilence) << "ended with " << outcome;
  EXPECT_TRUE(outcome != kChangedInSilence || seal == SealState::Missing || seal == SealState::Stale);
  EXPECT_TRUE(outcome == kAsBefore || files != model.files) << outcome;
  if (seal == SealState::Damaged) {
    EXPECT_EQ(outcome, kRefused);
    EXPECT_EQ(FilesOf(home), files);
  }
  return 0;
}
