// SPDX-License-Identifier: MIT
// Information from the kernel about other processes.

#include "tools/devdoctor/Process.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/common/Files.h"

namespace devdoctor {

namespace {

/// The IPC namespace of a process; empty when the kernel does not tell it.
struct Namespace {
  explicit Namespace(const char *pid) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%.20s/ns/ipc", pid);
    const ssize_t size = ::readlink(path, text, sizeof text - 1);
    text[size > 0 ? size : 0] = '\0';
  }
  char text[64];
};

/// Whether a process has the segment attached: its mappings contain the identifier.
bool HasAttached(const char *pid, int shmId, Attached::Who who) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%.20s/maps", pid);
  std::FILE *maps = std::fopen(path, "re");
  if (maps == nullptr) return false;
  char line[512];
  bool isFound = false;
  while (!isFound && std::fgets(line, sizeof line, maps) != nullptr) {
    char rights[8] = "";
    unsigned long inode = 0;
    char name[16] = "";
    isFound = std::sscanf(line, "%*s %7s %*s %*s %lu /%15s", rights, &inode, name) == 3 &&
              std::strncmp(name, "SYSV", 4) == 0 && inode == static_cast<unsigned long>(shmId) &&
              (who == Attached::Who::All || rights[1] == 'w');
  }
  std::fclose(maps);
  return isFound;
}

}  // namespace

Process Look(pid_t pid) {
  Process process;
  process.pid = pid;
  char path[64];
  char text[1024];
  std::size_t size = 0;
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  if (pid <= 0 || !tools::ReadFile(path, {text, sizeof text - 1}, size)) return process;
  text[size] = '\0';
  // "123 (name) S ...": the name may contain blanks and brackets.
  const char *open = std::strchr(text, '(');
  const char *close = std::strrchr(text, ')');
  if (open == nullptr || close == nullptr || close[1] != ' ') return process;
  std::snprintf(process.name, sizeof process.name, "%.*s", static_cast<int>(close - open - 1), open + 1);
  process.state = close[2];
  return process;
}

Described::Described(pid_t pid) {
  const Process process = Look(pid);
  if (process.IsAlive()) {
    std::snprintf(text, sizeof text, "%s (%d)%s", process.name, static_cast<int>(pid),
                  process.IsStopped() ? ", which is stopped" : "");
  } else {
    std::snprintf(text, sizeof text, "process %d, which is dead", static_cast<int>(pid));
  }
}

Attached::Attached(int shmId, Who who) {
  text[0] = '\0';
  const Namespace own("self");
  DIR *proc = ::opendir("/proc");
  std::size_t used = 0;
  for (const dirent *entry = nullptr; proc != nullptr && (entry = ::readdir(proc)) != nullptr;) {
    const int pid = std::atoi(entry->d_name);
    if (pid <= 0 || pid == ::getpid() || !HasAttached(entry->d_name, shmId, who)) continue;
    if (std::strcmp(Namespace(entry->d_name).text, own.text) != 0) continue;  // another object with the same number
    ++count;
    const Described process(pid);
    const int size = std::snprintf(text + used, sizeof text - used, "%s%s", used != 0 ? ", " : "", process.text);
    used = size < 0 || used + static_cast<std::size_t>(size) >= sizeof text ? sizeof text - 1
                                                                            : used + static_cast<std::size_t>(size);
  }
  if (proc != nullptr) ::closedir(proc);
  if (count == 0) std::snprintf(text, sizeof text, "nobody");
}

}  // namespace devdoctor
