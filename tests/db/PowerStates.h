// SPDX-License-Identifier: MIT
// The possible states of a folder after a power failure: all that was flushed, and any part of the rest.
//
// A file system may write the rest in any order, or never. The model uses units of some bytes, and each unit is
// written whole. When a file has grown, its size can be written without the data, which is then zero. Names belong to
// the folder, not to the file: they are kept when the folder was flushed (docs/decisions/store-power.md).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tests/db/PowerRecord.h"

namespace devsupport::test {

/// Bytes that are written whole, and a number made from them.
using PowerUnit = std::pair<const std::string, std::uint64_t>;

struct PowerFile {
  std::uint64_t size = 0;
  std::vector<const PowerUnit *> units;  // nullptr: zeros
};

struct PowerFolder {
  std::map<std::string, std::uint64_t> names;  // to inodes
  std::map<std::uint64_t, PowerFile> files;
};

class PowerStates {
 public:
  /// unitBytes  size of a unit
  /// home       its present state, all flushed
  PowerStates(std::size_t unitBytes, const std::string &home);

  void Take(const PowerEvent &event);

  /// The possible states after a power failure at this moment. With up to eight unflushed changes: each subset of them.
  /// With more: this many random subsets, each single change, and all changes except one.
  void ForEach(std::mt19937_64 &random, int samples, const std::function<void(const PowerFolder &)> &visit) const;

  /// A hash of the content.
  static std::uint64_t Key(const PowerFolder &folder);
  /// Makes the files of an empty folder.
  void Write(const PowerFolder &folder, const std::string &path) const;

 private:
  // One change, which is written whole or not at all.
  struct Part {
    PowerEvent::Kind kind;  // Write: one unit; Truncate; Create; Unlink; Rename
    std::uint64_t inode = 0;
    std::uint64_t size = 0;  // of the file, at least (Write) or exactly
    std::size_t unit = kNoUnit;
    const PowerUnit *image = nullptr;
    std::string name;
    std::string to;
  };
  static constexpr std::size_t kNoUnit = SIZE_MAX;

  void TakeWrite(const PowerEvent &event);
  void TakeTruncate(const PowerEvent &event);
  void Add(Part part);
  void Settle(const std::function<bool(const Part &)> &isFlushed);
  void Apply(PowerFolder &folder, const Part &part) const;
  const PowerUnit *Intern(std::string bytes);

  std::size_t unitBytes_;
  std::unordered_map<std::string, std::uint64_t> images_;
  PowerFolder flushed_;
  PowerFolder latest_;  // as processes see it
  std::vector<Part> pending_;
};

}  // namespace devsupport::test
