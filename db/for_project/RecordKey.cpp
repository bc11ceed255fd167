// Makes record keys; knows which telephone key carries which letter.

#include "RecordKey.h"

#include <devsupport/detail/db/DbRecord.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Operation.h"

char _Letter2Num(char c) {
  static constexpr char kKeyOfLetter[] = "22233344455566677778889999";
  if (c >= 'a' && c <= 'z') return kKeyOfLetter[c - 'a'];
  if (c >= 'A' && c <= 'Z') return kKeyOfLetter[c - 'A'];
  if (c >= '0' && c <= '9') return c;
  return c == ' ' ? '0' : '\0';
}

namespace devsupport::store {

RecordKey::RecordKey(const char *pText, bool bPhoneBook) {
  if (pText == nullptr) {
    nError_ = EINVAL;
    return;
  }
  const std::size_t dwText = std::strlen(pText);
  if (dwText >= INT32_MAX / 2) {
    nError_ = EINVAL;  // the library counts in 32 bits
  } else if (bPhoneBook) {
    MakePhoneBookKey(pText, dwText);
  } else {
    pKey_ = pText;
    dwBytes_ = dwText + 1;
  }
}

RecordKey::~RecordKey() { std::free(pHeap_); }

DBT RecordKey::Record() const { return InputRecord(pKey_, static_cast<std::uint32_t>(dwBytes_)); }

void RecordKey::MakePhoneBookKey(const char *pName, std::size_t dwName) {
  char *pKey = szInline_;
  const std::size_t dwRoom = 2 * (dwName + 1);
  if (dwRoom > sizeof szInline_) {
    pHeap_ = static_cast<char *>(std::malloc(dwRoom));
    if (pHeap_ == nullptr) {
      nError_ = ENOMEM;
      return;
    }
    pKey = pHeap_;
  }
  std::memcpy(pKey, pName, dwName + 1);
  char *pDigit = pKey + dwName + 1;
  for (std::size_t i = 0; i < dwName; ++i) {
    *pDigit = _Letter2Num(pName[i]);
    if (*pDigit == '\0') break;
    ++pDigit;
  }
  *pDigit++ = '\0';
  pKey_ = pKey;
  dwBytes_ = static_cast<std::size_t>(pDigit - pKey);
}

}  // namespace devsupport::store
