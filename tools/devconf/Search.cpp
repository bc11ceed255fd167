// SPDX-License-Identifier: MIT
// Searches through the indexes.

#include "tools/devconf/Search.h"

#include <algorithm>

#include "tools/common/Text.h"
#include "tools/devconf/Print.h"

namespace devconf {

namespace {

// Where a record that was found is, with its key in the index.
struct Found {
  Pairs::Place indexKey;
  Pairs::Place record;
};

class Search {
 public:
  Search(const Table &index, std::string_view wanted, Match match) : index_(index), wanted_(wanted), match_(match) {}

  bool Run() {
    TableWalk walk(index_, wanted_);
    Answer answer = Answer::No;
    while ((answer = walk.Next()) == Answer::Yes) {
      // A number has a terminator in the index when nothing follows it in the record, and none when ';' does.
      if (match_ == Match::Whole && TextOf(walk.Current().indexKey) != wanted_) return true;
      Add(walk.Current());
    }
    return answer == Answer::No;
  }

  Answer Print(bool json);

 private:
  void Add(const WholeRecord &record) {
    const Pairs::Place indexKey = pairs_.Add(record.indexKey, {});
    found_.Add({indexKey, pairs_.Add(record.key, record.value)});
  }

  std::string_view IndexKey(const Found &found) const { return TextOf(pairs_.Key(found.indexKey)); }
  std::string_view Key(const Found &found) const { return pairs_.Key(found.record); }
  std::string_view Value(const Found &found) const { return pairs_.Value(found.record); }

  const Table &index_;
  std::string_view wanted_;
  Match match_;
  List<Found> found_;
  Pairs pairs_;
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
  return found_.Size() != 0 ? Answer::Yes : Answer::No;
}

}  // namespace

Answer PrintIndexed(const Table &index, std::string_view wanted, Match match, bool json) {
  Search search(index, wanted, match);
  return search.Run() ? search.Print(json) : Answer::Failed;
}

}  // namespace devconf
