// SPDX-License-Identifier: MIT
// Makes record keys, with the letters of the telephone keys.

#include "db/for_project/RecordKey.h"

#include <devsupport/detail/db/DbRecord.h>

#include <cstdlib>
#include <cstring>

char _Letter2Num(char c) {
  static constexpr char kKeyOfLetter[] = "22233344455566677778889999";
  if (c >= 'a' && c <= 'z') return kKeyOfLetter[c - 'a'];
  if (c >= 'A' && c <= 'Z') return kKeyOfLetter[c - 'A'];
  if (c >= '0' && c <= '9') return c;
  return c == ' ' ? '0' : '\0';
}

namespace devsupport::store {

PhoneBookKey::PhoneBookKey(const char *pName) {
  const std::size_t dwName = std::strlen(pName);
  const std::size_t dwRoom = 2 * (dwName + 1);
  if (dwRoom > sizeof szInline_) pKey_ = static_cast<char *>(std::malloc(dwRoom));
  if (pKey_ == nullptr) return;
  std::memcpy(pKey_, pName, dwName + 1);
  char *pDigit = pKey_ + dwName + 1;
  for (std::size_t i = 0; i < dwName; ++i) {
    *pDigit = _Letter2Num(pName[i]);
    if (*pDigit == '\0') break;
    ++pDigit;
  }
  *pDigit++ = '\0';
  dwBytes_ = static_cast<std::size_t>(pDigit - pKey_);
}

PhoneBookKey::~PhoneBookKey() {
  if (pKey_ != szInline_) std::free(pKey_);
}

}  // namespace devsupport::store
