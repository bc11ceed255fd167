// SPDX-License-Identifier: MIT
#include "tests/db/PowerStates.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tests/support/TempDir.h"

namespace devsupport::test {

namespace {

using Kind = PowerEvent::Kind;

constexpr std::size_t kAllPartsUpTo = 8;

// Its bytes are never read.
constexpr char kReserve[] = "store.reserve";

void Mix(std::uint64_t &key, std::uint64_t value) {
  key = (key ^ value) * 0x9E3779B97F4A7C15U;
  key ^= key >> 29;
}

}  // namespace

PowerStates::PowerStates(std::size_t unitBytes, const std::string &home) : unitBytes_(unitBytes) {
  for (const auto &entry : std::filesystem::directory_iterator(home)) {
    struct stat status = {};
    if (::stat(entry.path().c_str(), &status) != 0) throw std::runtime_error("cannot read " + home);
    Take({Kind::Create, status.st_ino, 0, entry.path().filename(), {}});
    Take({Kind::Write, status.st_ino, 0, {}, FileText(entry.path())});
  }
  Settle([](const Part &) { return true; });
}

const PowerUnit *PowerStates::Intern(std::string bytes) {
  if (bytes.find_first_not_of('\0') == std::string::npos) return nullptr;
  const std::uint64_t key = std::hash<std::string>()(bytes);
  return &*images_.emplace(std::move(bytes), key).first;
}

void PowerStates::Take(const PowerEvent &event) {
  switch (event.kind) {
    case Kind::Flush:
      return Settle([&](const Part &part) { return part.inode == event.inode && part.name.empty(); });
    case Kind::FlushFolder:
      return Settle([](const Part &part) { return !part.name.empty(); });
    case Kind::Write:
      return TakeWrite(event);
    case Kind::Begun:
    case Kind::Done:
      return;
    case Kind::Truncate:
      return TakeTruncate(event);
    case Kind::Rename:
      return Add({event.kind, latest_.names[event.name], 0, kNoUnit, nullptr, event.name, event.data});
    default:
      Add({event.kind, event.inode, 0, kNoUnit, nullptr, event.name, {}});
  }
}

void PowerStates::Add(Part part) {
  Apply(latest_, part);
  pending_.push_back(std::move(part));
}

// The bytes after the new end of the file are zero.
void PowerStates::TakeTruncate(const PowerEvent &event) {
  const PowerFile &file = latest_.files[event.inode];
  const std::size_t unit = event.offset / unitBytes_;
  const std::size_t kept = event.offset % unitBytes_;
  Part part = {event.kind, event.inode, event.offset, kNoUnit, nullptr, {}, {}};
  if (kept != 0 && unit < file.units.size() && file.units[unit] != nullptr) {
    part.unit = unit;
    part.image = Intern(file.units[unit]->first.substr(0, kept) + std::string(unitBytes_ - kept, '\0'));
  }
  Add(std::move(part));
}

void PowerStates::TakeWrite(const PowerEvent &event) {
  PowerFile &file = latest_.files[event.inode];
  const std::uint64_t end = event.offset + event.data.size();
  // The size can be written without the data.
  if (end > file.size) Add({Kind::Write, event.inode, end, kNoUnit, nullptr, {}, {}});
  for (std::uint64_t at = event.offset; at < end;) {
    const std::size_t unit = at / unitBytes_;
    const std::uint64_t start = unit * unitBytes_;
    const std::uint64_t next = std::min(end, start + unitBytes_);
    std::string bytes = file.units[unit] != nullptr ? file.units[unit]->first : std::string(unitBytes_, '\0');
    bytes.replace(at - start, next - at, event.data, at - event.offset, next - at);
    const PowerUnit *image = Intern(std::move(bytes));
    if (image != file.units[unit])
      Add({Kind::Write, event.inode, std::min(file.size, start + unitBytes_), unit, image, {}, {}});
    at = next;
  }
}

void PowerStates::Settle(const std::function<bool(const Part &)> &isFlushed) {
  const auto kept = std::stable_partition(pending_.begin(), pending_.end(), isFlushed);
  std::for_each(pending_.begin(), kept, [this](const Part &part) { Apply(flushed_, part); });
  pending_.erase(pending_.begin(), kept);
}

void PowerStates::Apply(PowerFolder &folder, const Part &part) const {
  switch (part.kind) {
    case Kind::Create:
      folder.names[part.name] = part.inode;
      return;
    case Kind::Unlink:
      folder.names.erase(part.name);
      return;
    case Kind::Rename:
      folder.names.erase(part.name);
      folder.names[part.to] = part.inode;
      return;
    default:
      break;
  }
  PowerFile &file = folder.files[part.inode];
  file.size = part.kind == Kind::Truncate ? part.size : std::max(file.size, part.size);
  file.units.resize((file.size + unitBytes_ - 1) / unitBytes_);
  if (part.unit != kNoUnit) file.units[part.unit] = part.image;
}

void PowerStates::ForEach(std::mt19937_64 &random, int samples,
                          const std::function<void(const PowerFolder &)> &visit) const {
  const std::size_t parts = pending_.size();
  const auto visitPart = [&](const std::function<bool(std::size_t)> &isWritten) {
    PowerFolder folder = flushed_;
    for (std::size_t i = 0; i < parts; ++i)
      if (isWritten(i)) Apply(folder, pending_[i]);
    visit(folder);
  };
  if (parts <= kAllPartsUpTo) {
    for (std::size_t mask = 0; mask < std::size_t{1} << parts; ++mask)
      visitPart([mask](std::size_t i) { return (mask >> i & 1) != 0; });
    return;
  }
  visitPart([](std::size_t) { return false; });
  visitPart([](std::size_t) { return true; });
  for (std::size_t one = 0; one < parts; ++one) {
    visitPart([one](std::size_t i) { return i == one; });
    visitPart([one](std::size_t i) { return i != one; });
  }
  for (int sample = 0; sample < samples; ++sample) {
    const std::uint64_t share = random() % 256;  // from nearly none to nearly all
    visitPart([&](std::size_t) { return random() % 256 < share; });
  }
}

std::uint64_t PowerStates::Key(const PowerFolder &folder) {
  std::uint64_t key = 0;
  for (const auto &[name, inode] : folder.names) {
    for (const char c : name) Mix(key, static_cast<unsigned char>(c));
    const auto file = folder.files.find(inode);
    if (file == folder.files.end()) continue;
    Mix(key, file->second.size);
    if (name == kReserve) continue;
    for (const PowerUnit *unit : file->second.units) Mix(key, unit == nullptr ? 0 : unit->second);
  }
  return key;
}

void PowerStates::Write(const PowerFolder &folder, const std::string &path) const {
  for (const auto &[name, inode] : folder.names) {
    const int fd = ::open((path + "/" + name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0660);
    bool good = fd >= 0;
    if (const auto file = folder.files.find(inode); file != folder.files.end()) {
      const auto &[size, units] = file->second;
      for (std::size_t i = 0; i < units.size(); ++i) {
        const std::size_t bytes = std::min<std::uint64_t>(unitBytes_, size - i * unitBytes_);
        if (units[i] == nullptr) continue;
        good = good && ::pwrite(fd, units[i]->first.data(), bytes, static_cast<off_t>(i * unitBytes_)) ==
                           static_cast<ssize_t>(bytes);
      }
      good = good && ::ftruncate(fd, static_cast<off_t>(size)) == 0;
    }
    ::close(fd);
    if (!good) throw std::runtime_error("cannot make " + path + "/" + name);
  }
}

}  // namespace devsupport::test
