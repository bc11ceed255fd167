// SPDX-License-Identifier: MIT
// A byte string that grows, for what has no size that is known beforehand.
#pragma once

#include <cstddef>
#include <string_view>
#include <type_traits>

namespace devconf {

/// When there is no memory, the program ends: the store is closed, and the exit status says that it failed.
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

/// A list of plain values that grows likewise.
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

/// Closes the store and ends the program.
[[noreturn]] void EndOutOfMemory();

}  // namespace devconf
