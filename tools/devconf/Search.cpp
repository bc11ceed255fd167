// SPDX-License-Identifier: MIT
// Searches through the indexes.

#include "tools/devconf/Search.h"

#include <algorithm>

#include "tools/common/Text.h"
#include "tools/devconf/Print.h"

namespace devconf {

namespace {

using tools::After;
using tools::First;

// A record that was found: index key, key and value are one after the other in the memory of all.
struct Found {
  std::size_t at;
  std::size_t indexKeySize;
  std::size_t keySize;
  std::size_t valueSize;
};

class Search {
 public:
  Search(const Table &index, std::string_view wanted, Match match) : index_(index), wanted_(wanted), match_(match) {}

  bool Run() {
    TableWalk walk(index_, wanted_);
    Answer answer = Answer::kNo;
    while ((answer = walk.Next()) == Answer::kYes) {
      // A number has a terminator in the index when nothing follows it in the record, and none when ';' does.
      if (match_ == Match::kWhole && TextOf(walk.Current().indexKey) != wanted_) return true;
      Add(walk.Current());
    }
    return answer == Answer::kNo;
  }

  Answer Print(bool json);

 private:
  void Add(const WholeRecord &record) {
    found_.Add({memory_.Size(), record.indexKey.size(), record.key.size(), record.value.size()});
    memory_.Append(record.indexKey);
    memory_.Append(record.key);
    memory_.Append(record.value);
  }

  std::string_view IndexKey(const Found &found) const {
    return TextOf(First(After(memory_.View(), found.at), found.indexKeySize));
  }
  std::string_view Key(const Found &found) const {
    return First(After(memory_.View(), found.at + found.indexKeySize), found.keySize);
  }
  std::string_view Value(const Found &found) const {
    return First(After(memory_.View(), found.at + found.indexKeySize + found.keySize), found.valueSize);
  }

  const Table &index_;
  std::string_view wanted_;
  Match match_;
  List<Found> found_;
  Bytes memory_;
};

// Records with one text in the index are shown in the order of their keys, whether it has a terminator there or not.
Answer Search::Print(bool json) {
  std::sort(found_.begin(), found_.end(), [this](const Found &a, const Found &b) {
    const int order = IndexKey(a).compare(IndexKey(b));
    return order != 0 ? order < 0 : Key(a) < Key(b);
  });
  for (const Found &found : found_) {
    PrintRecord({&index_.IndexOf(), Key(found), Value(found), &index_, IndexKey(found)}, json);
  }
  return found_.Size() != 0 ? Answer::kYes : Answer::kNo;
}

}  // namespace

Answer PrintIndexed(const Table &index, std::string_view wanted, Match match, bool json) {
  Search search(index, wanted, match);
  return search.Run() ? search.Print(json) : Answer::kFailed;
}

}  // namespace devconf
