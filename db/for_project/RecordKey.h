// The keys of records: the caller's text as it stands, or the phone book's key made from a name.
#pragma once

#include <db.h>

#include <cstddef>

namespace devsupport::store {

/// One key, made for the time of one operation. Usual names need no heap.
class RecordKey {
 public:
  /// The text and its terminator, where the caller has them.
  static constexpr bool kAsItStands = false;
  /// Name, NUL, keypad digits, NUL.
  static constexpr bool kPhoneBook = true;

  RecordKey(const char *pText, bool bPhoneBook);
  ~RecordKey();
  RecordKey(const RecordKey &) = delete;
  RecordKey &operator=(const RecordKey &) = delete;

  /// 0, or an error number when there is no key.
  int Error() const { return nError_; }
  DBT Record() const;

 private:
  void MakePhoneBookKey(const char *pName, std::size_t dwName);

  const char *pKey_ = nullptr;
  std::size_t dwBytes_ = 0;
  int nError_ = 0;
  char *pHeap_ = nullptr;
  char szInline_[256];
};

}  // namespace devsupport::store
