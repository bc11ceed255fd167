// SPDX-License-Identifier: MIT
// Byte strings and lists that grow.
#pragma once

#include <cstddef>
#include <string_view>
#include <type_traits>

#include "tools/common/Text.h"

namespace devconf {

/// When there is no memory, the store is closed and the program ends with status kFailed.
class Bytes {
 public:
  Bytes() = default;
  ~Bytes();
  Bytes(const Bytes &) = delete;
  Bytes &operator=(const Bytes &) = delete;

  char *Data() { return data_; }
  std::size_t Size() const { return size_; }
  std::string_view View() const { return {data_, size_}; }

  /// New bytes have no value.
  void Resize(std::size_t size);
  void Assign(std::string_view bytes);
  void Append(std::string_view bytes);

 private:
  void Reserve(std::size_t room);

  char *data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};

/// A list of plain values that grows in the same way.
template <typename T>
class List {
  static_assert(std::is_trivially_copyable_v<T>, "values are moved as bytes");

 public:
  std::size_t Size() const { return bytes_.Size() / sizeof(T); }
  T &operator[](std::size_t i) { return begin()[i]; }
  T *begin() { return static_cast<T *>(static_cast<void *>(bytes_.Data())); }  // as malloc aligned it
  T *end() { return begin() + Size(); }

  void Add(const T &value) { bytes_.Append({reinterpret_cast<const char *>(&value), sizeof value}); }
  /// New values are not initialised.
  void Resize(std::size_t count) { bytes_.Resize(count * sizeof(T)); }

 private:
  Bytes bytes_;
};

/// Keys and values, one after the other in one memory.
class Pairs {
 public:
  /// Where a key and its value are.
  struct Place {
    std::size_t at;
    std::size_t keySize;
    std::size_t valueSize;
  };

  Place Add(std::string_view key, std::string_view value) {
    const Place place = {memory_.Size(), key.size(), value.size()};
    memory_.Append(key);
    memory_.Append(value);
    return place;
  }
  std::string_view Key(const Place &place) const { return Part(place.at, place.keySize); }
  std::string_view Value(const Place &place) const { return Part(place.at + place.keySize, place.valueSize); }
  void Clear() { memory_.Assign({}); }

 private:
  std::string_view Part(std::size_t at, std::size_t size) const {
    return tools::First(tools::After(memory_.View(), at), size);
  }

  Bytes memory_;
};

/// Closes the store and ends the program.
[[noreturn]] void EndOutOfMemory();

}  // namespace devconf
