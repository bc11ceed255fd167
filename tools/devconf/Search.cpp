// Searches through the indexes.
//
// The library's search through an index ends at a record that is larger than its fields (a name of fifteen letters is
// enough), and its lookup gives the first of several. So what the index gave is completed from the table itself.

#include "tools/devconf/Search.h"

#include <devsupport/db/DbRecord.h>

#include <algorithm>
#include <cstring>

#include "tools/devconf/Print.h"

namespace devconf {

namespace {

// A record that was found: index key and key lie behind one another in the memory of all.
struct Found {
  std::size_t at;
  std::size_t indexKeySize;
  std::size_t keySize;
};

class Search {
 public:
  Search(const Table &index, std::string_view wanted, Match match)
      : index_(index), table_(*FindTable(index.indexOf)), wanted_(wanted), match_(match) {}

  bool AskIndex() {
    if (!table_.IsPhoneBook()) return true;  // the index of routes gives no keys
    return match_ == Match::kPrefix ? AskForPrefix() : AskForWhole();
  }

  bool CompleteFromTable() {
    TableWalk walk(table_, "");
    Answer answer = Answer::kNo;
    while ((answer = walk.Next()) == Answer::kYes) Add(walk.Key(), walk.Value());
    return answer == Answer::kNo;
  }

  Answer Print(bool json);

 private:
  bool Fail() const {
    Complain(index_.name, wanted_, "the index cannot be read");
    return false;
  }

  bool AddName(const char *name) {
    Bytes key;
    Bytes value;
    MakeKey(table_, name, key);
    const Answer answer = ReadValue(table_, key.View(), value);
    if (answer == Answer::kYes) Add(key.View(), value.View());
    return answer != Answer::kFailed;
  }

  bool AskForPrefix() {
    List<TDbFindRec> records;
    std::int32_t count = 0;
    int code = BERKDB_BUFFER_SMALL;
    for (std::size_t room = 64; code == BERKDB_BUFFER_SMALL; room *= 2) {
      if (room > INT32_MAX) return Fail();
      records.Resize(room);
      count = static_cast<std::int32_t>(room);
      code = BerkDb_FindPrefix(index_.Handle(), wanted_.data(), records.begin(), &count);
    }
    if (code != BERKDB_OK) return Fail();
    return std::all_of(records.begin(), records.begin() + count,
                       [this](const TDbFindRec &record) { return AddName(record.szKey); });
  }

  // In the index, a number has a terminator when nothing stands behind it in the record, and has none when ';' does.
  bool AskForWhole() {
    for (const std::size_t size : {wanted_.size(), wanted_.size() + 1}) {
      char key[kMostKeyBytes + 1];
      char value[1024];
      if (size == 0) continue;  // would mean the length of the text
      const int code = BerkDb_PGet(index_.Handle(), wanted_.data(), static_cast<std::int32_t>(size), key, sizeof key,
                                   value, sizeof value);
      if (code == BERKDB_OK && std::memchr(key, '\0', sizeof key) != nullptr && !AddName(key)) return false;
      if (code != BERKDB_OK && code != BERKDB_NOT_FOUND && code != BERKDB_BUFFER_SMALL) return Fail();
    }
    return true;
  }

  void Add(std::string_view key, std::string_view value) {
    const std::string_view indexKey = IndexKeyOf(index_, key, value);
    if (match_ == Match::kPrefix ? !StartsWith(indexKey, wanted_) : indexKey != wanted_) return;
    found_.Add({memory_.Size(), indexKey.size(), key.size()});
    memory_.Append(indexKey);
    memory_.Append(key);
  }

  std::string_view IndexKey(const Found &found) const {
    return First(After(memory_.View(), found.at), found.indexKeySize);
  }
  std::string_view Key(const Found &found) const {
    return First(After(memory_.View(), found.at + found.indexKeySize), found.keySize);
  }

  const Table &index_;
  const Table &table_;
  std::string_view wanted_;
  Match match_;
  List<Found> found_;
  Bytes memory_;
};

Answer Search::Print(bool json) {
  const auto isBefore = [this](const Found &a, const Found &b) {
    const int order = IndexKey(a).compare(IndexKey(b));
    return order != 0 ? order < 0 : Key(a) < Key(b);
  };
  const auto isSame = [this](const Found &a, const Found &b) { return Key(a) == Key(b); };
  std::sort(found_.begin(), found_.end(), isBefore);
  const Found *end = std::unique(found_.begin(), found_.end(), isSame);

  Answer any = Answer::kNo;
  Bytes value;
  for (const Found *found = found_.begin(); found != end; ++found) {
    const Answer answer = ReadValue(table_, Key(*found), value);
    if (answer == Answer::kFailed) return answer;
    if (answer == Answer::kNo) continue;  // deleted since
    PrintRecord({&table_, Key(*found), value.View(), &index_, IndexKey(*found)}, json);
    any = Answer::kYes;
  }
  return any;
}

}  // namespace

Answer PrintIndexed(const Table &index, std::string_view wanted, Match match, bool json) {
  Search search(index, wanted, match);
  if (!search.AskIndex() || !search.CompleteFromTable()) return Answer::kFailed;
  return search.Print(json);
}

}  // namespace devconf
