// SPDX-License-Identifier: MIT
// Records the changes of the files in one folder: each write, each flush, each change of a name. The program that
// uses this wraps openat, unlinkat, renameat, write and fsync.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace devsupport::test {

/// One step of a recorded process. Files are known by their inode, so that they keep their identity when renamed.
struct PowerEvent {
  enum class Kind : std::uint8_t {
    Write,        // data at offset
    Truncate,     // to offset bytes
    Flush,        // the file's content
    FlushFolder,  // the names
    Create,       // name
    Unlink,       // name
    Rename,       // name, to data
    Begun,        // step number offset of the script
    Done,         // ... is acknowledged
  };
  Kind kind;
  std::uint64_t inode = 0;
  std::uint64_t offset = 0;
  std::string name;
  std::string data;
};

/// The record of one script. Children of the process that made it write to the same record.
class PowerRecord {
 public:
  explicit PowerRecord(std::string home);
  ~PowerRecord();
  PowerRecord(const PowerRecord &) = delete;
  PowerRecord &operator=(const PowerRecord &) = delete;

  /// Records the changes by this process and its children from now on.
  void Begin() const;
  /// Kills this process after that many further events.
  static void DieAfter(int events);
  static void Mark(PowerEvent::Kind kind, std::uint64_t step);

  std::vector<PowerEvent> Events() const;

 private:
  std::string home_;
  int log_;
};

/// Makes flushes of this process do nothing. For processes that only read files.
void SkipFlushes();

}  // namespace devsupport::test
