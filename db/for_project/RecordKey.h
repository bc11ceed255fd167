// SPDX-License-Identifier: MIT
// The keys of records: the caller's text unchanged, or the phone book's key made from a name.
#pragma once

#include <db.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "db/for_project/Operation.h"

namespace devsupport::store {

/// The library counts in 32 bits, and a phone-book key takes twice the name.
inline constexpr std::size_t kMaxKeyText = INT32_MAX / 2 - 1;

/// Name, NUL, keypad digits, NUL: made for the time of one operation. Usual names need no heap.
class PhoneBookKey {
 public:
  explicit PhoneBookKey(const char *pName);
  ~PhoneBookKey();
  PhoneBookKey(const PhoneBookKey &) = delete;
  PhoneBookKey &operator=(const PhoneBookKey &) = delete;

  /// False when there was no memory for it.
  bool Exists() const { return pKey_ != nullptr; }
  DBT Record() const { return InputRecord(pKey_, static_cast<std::uint32_t>(dwBytes_)); }

 private:
  char *pKey_ = szInline_;
  std::size_t dwBytes_ = 0;
  char szInline_[256];
};

enum class KeyForm : bool { AsItStands, PhoneBook };

/// Out of line, so that the other operations do without this key's room on the stack.
template <typename TOperation>
[[gnu::noinline]] int WithPhoneBookKey(const char *pName, TOperation operation) {
  const PhoneBookKey key(pName);
  if (!key.Exists()) return ENOMEM;
  DBT record = key.Record();
  return operation(&record);
}

/// Hands the key to the operation. Returns the operation's result, or an error number when there is no key.
template <typename TOperation>
int WithKey(const char *pText, KeyForm form, TOperation operation) {
  if (pText == nullptr) return EINVAL;
  const std::size_t dwText = std::strlen(pText);
  if (dwText > kMaxKeyText) return EINVAL;
  if (form == KeyForm::PhoneBook) return WithPhoneBookKey(pText, operation);
  DBT record = InputRecord(pText, static_cast<std::uint32_t>(dwText + 1));
  return operation(&record);
}

}  // namespace devsupport::store
