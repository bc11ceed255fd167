// SPDX-License-Identifier: MIT
// Byte strings that grow.

#include "tools/devconf/Bytes.h"

#include <devsupport/db/BerkeleyDB.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/devconf/Status.h"

namespace devconf {

Bytes::~Bytes() { std::free(data_); }

void Bytes::Resize(std::size_t size) {
  Reserve(size);
  size_ = size;
}

void Bytes::Assign(std::string_view bytes) {
  size_ = 0;
  Append(bytes);
}

void Bytes::Append(std::string_view bytes) {
  if (bytes.empty()) return;
  Reserve(size_ + bytes.size());
  std::memcpy(data_ + size_, bytes.data(), bytes.size());
  size_ += bytes.size();
}

void Bytes::Reserve(std::size_t room) {
  if (room <= room_) return;
  const std::size_t larger = std::max<std::size_t>({room, 2 * room_, 64});
  void *moved = std::realloc(data_, larger);
  if (moved == nullptr) EndOutOfMemory();
  data_ = static_cast<char *>(moved);
  room_ = larger;
}

void EndOutOfMemory() {
  std::fputs("devconf: out of memory\n", stderr);
  BerkDb_Close();
  std::exit(status::kFailed);
}

}  // namespace devconf
