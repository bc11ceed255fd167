// SPDX-License-Identifier: MIT
// Several changes from lines of text. A line is a command in the form of the command line:
//   set [--table TABLE] NAME VALUE      pb set NAME DATA
//   del [--table TABLE] NAME            pb del NAME
// A word with blanks is in quotes. Escapes (Shown.h) are undone except between single quotes. A line that begins with
// # is a comment.

#include "tools/common/Text.h"
#include "tools/devconf/Changes.h"
#include "tools/devconf/Commands.h"
#include "tools/devconf/Input.h"
#include "tools/devconf/Print.h"
#include "tools/devconf/Shown.h"
#include "tools/devconf/Status.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

using tools::After;
using tools::First;

constexpr std::string_view kBlanks = " \t\r";

// The words of one line.
class Words {
 public:
  static constexpr std::size_t kMost = 5;

  /// Returns nullptr, or what is wrong with the line.
  const char *Split(std::string_view line) {
    for (SkipBlanks(line); !line.empty(); SkipBlanks(line)) {
      if (count_ == kMost) return "unexpected argument";
      if (const char *wrong = TakeWord(line, words_[count_]); wrong != nullptr) return wrong;
      ++count_;
    }
    return nullptr;
  }

  std::size_t Left() const { return count_ - next_; }
  bool NextIs(std::string_view text) const { return Left() > 0 && words_[next_].bytes.View() == text; }
  bool Take(std::string_view text) {
    if (!NextIs(text)) return false;
    ++next_;
    return true;
  }
  const Unshown &Take() { return words_[next_++]; }

 private:
  static void SkipBlanks(std::string_view &line) { line = After(line, line.find_first_not_of(kBlanks)); }

  static const char *TakeWord(std::string_view &line, Unshown &word) {
    const char quote = line.front();
    if (quote != '"' && quote != '\'') {
      const std::string_view bare = First(line, line.find_first_of(kBlanks));
      line = After(line, bare.size());
      return bare.find_first_of("\"'") == std::string_view::npos ? Unshow(bare, word)
                                                                 : "a quote in the middle of a word";
    }
    line = After(line, 1);
    const std::size_t end = EndOfQuotes(line, quote);
    if (end == std::string_view::npos) return "a closing quote is missing";
    const std::string_view inside = First(line, end);
    line = After(line, end + 1);
    if (!line.empty() && kBlanks.find(line.front()) == std::string_view::npos)
      return "no blank after a closing quote";
    if (quote == '"') return Unshow(inside, word);
    word.bytes.Assign(inside);
    return nullptr;
  }

  static std::size_t EndOfQuotes(std::string_view line, char quote) {
    if (quote == '\'') return line.find(quote);
    for (std::size_t i = 0; i < line.size(); ++i) {
      if (line[i] == quote) return i;
      if (line[i] == '\\') ++i;
    }
    return std::string_view::npos;
  }

  Unshown words_[kMost];
  std::size_t count_ = 0;
  std::size_t next_ = 0;
};

// Finds the table that a line is about.
const char *TakeTable(Words &words, bool isPhoneBook, const Table *&table) {
  table = FindTable(isPhoneBook ? "tb_pb" : "tb_parameter");
  if (isPhoneBook || !(words.Take("--table") || words.Take("-t"))) return nullptr;
  if (words.Left() == 0) return "a table is missing";
  table = FindTable(words.Take().bytes.View());
  if (table == nullptr) return "unknown table";
  return table->IsIndex() ? "the table is an index, which follows the records of its table by itself" : nullptr;
}

const char *AddLine(std::string_view line, unsigned number, Changes &changes) {
  Words words;
  if (const char *wrong = words.Split(line); wrong != nullptr) return wrong;
  const bool isPhoneBook = words.Take("pb");
  const bool isSet = words.Take("set") || (isPhoneBook && words.Take("add"));
  if (!isSet && !words.Take("del")) return "a line begins with set, del, pb set or pb del";
  const Table *table = nullptr;
  if (const char *wrong = TakeTable(words, isPhoneBook, table); wrong != nullptr) return wrong;
  if (words.Left() < (isSet ? 2U : 1U)) return "missing argument";
  if (words.Left() > (isSet ? 2U : 1U)) return "unexpected argument";
  Bytes key;
  Bytes value;
  KeyOf(*table, words.Take(), key);
  if (isSet) ValueOf(words.Take(), value);
  if (key.Size() > kMostBytes || value.Size() > kMostBytes) return "too long";
  changes.Add(isSet ? Changes::Kind::Put : Changes::Kind::Delete, *table, key.View(), value.View(), number);
  return nullptr;
}

bool AddLines(std::string_view text, const char *file, Changes &changes) {
  unsigned number = 0;
  while (!text.empty()) {
    ++number;
    const std::string_view line = First(text, text.find('\n'));
    text = After(text, line.size() + 1);
    const std::string_view words = After(line, line.find_first_not_of(kBlanks));
    if (words.empty() || words.front() == '#') continue;
    if (const char *wrong = AddLine(words, number, changes); wrong != nullptr) {
      ComplainAboutLine(file, number, wrong);
      return false;
    }
  }
  return true;
}

}  // namespace

int Batch(const Options &options) {
  const char *path = options.words[0] != nullptr ? options.words[0] : "-";
  Bytes text;
  Changes changes;
  if (!ReadInput(path, text) || !AddLines(text.View(), InputName(path), changes)) return status::kRefused;
  Store store;
  if (const int result = store.OpenToChange(options); result != status::kDone) return result;
  const Changes::Result result = changes.Apply();
  if (result.nResult != 0) return ExplainFailure(changes, result, InputName(path));
  PrintCounts(result.counts, options.json);
  return status::kDone;
}

}  // namespace devconf
