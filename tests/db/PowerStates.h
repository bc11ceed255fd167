// SPDX-License-Identifier: MIT
// The states that a folder can be in when the power fails: what was flushed, and any part of what was not.
//
// A file system may write what was not flushed in any order, or never. Here it does so in units of some bytes; a unit
// is written whole. Of a file that has grown, the size can be there without the data (which is then zero). Names
// belong to the folder, not to the file: they last when the folder was flushed (docs/decisions/store-power.md).
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
  /// unitBytes  what is written whole
  /// home       as it is now, all flushed
  PowerStates(std::size_t unitBytes, const std::string &home);

  void Take(const PowerEvent &event);

  /// What can be the folder after the power failed now: every part of what is not flushed, if that is up to eight
  /// things, otherwise this many parts at random, and everything but one thing, and one thing alone.
  void ForEach(std::mt19937_64 &random, int samples, const std::function<void(const PowerFolder &)> &visit) const;

  /// A number that is the same for the same content.
  static std::uint64_t Key(const PowerFolder &folder);
  /// Makes the files of an empty folder.
  void Write(const PowerFolder &folder, const std::string &path) const;

 private:
  // One thing that is written whole, or not at all.
  struct Part {
    PowerEvent::Kind kind;  // kWrite: one unit; kTruncate; kCreate; kUnlink; kRename
    std::uint64_t inode = 0;
    std::uint64_t size = 0;  // of the file, at least (kWrite) or exactly
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
