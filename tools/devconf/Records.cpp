// Reads records whole.
//
// The library's cursor step fills buffers and does not tell how much of them. So each step is made twice, over
// buffers with different fillings: what is equal in both is the record, and what is left of the fillings is not. A
// record that changes between the two steps leaves something else there, and the steps are made again.

#include "tools/devconf/Records.h"

#include <db.h>
#include <devsupport/db/DbRecord.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "tools/devconf/Print.h"
#include "tools/devconf/Store.h"

namespace devconf {

namespace {

// What a step can read (db/DbRecord.h).
constexpr std::size_t kStepBytes = 256;

constexpr char kFillings[] = {'\0', '\xff'};

// How often a record may change under our eyes before we give up on it.
constexpr int kMostAttempts = 100;

struct StepBuffers {
  char key[kStepBytes];
  char value[kStepBytes];

  std::string_view Key() const { return {key, sizeof key}; }
  std::string_view Value() const { return {value, sizeof value}; }
};

struct StepResult {
  int code = 0;      // of the library's operation
  int dbResult = 0;  // of the store itself, when code is 0

  bool Is(int result) const { return code == BERKDB_OK && dbResult == result; }
};

StepResult MakeStep(const Table &table, std::string_view from, std::uint32_t operation, char filling,
                    StepBuffers &buffers) {
  std::memset(&buffers, filling, sizeof buffers);
  if (!from.empty()) std::memcpy(buffers.key, from.data(), from.size());
  StepResult result;
  struct __dbc *cursor = nullptr;
  result.code = BerkDb_CursorGet(table.Handle(), &cursor, buffers.key, static_cast<std::int32_t>(from.size()),
                                 buffers.value, sizeof buffers.value, operation, &result.dbResult);
  if (BerkDb_CursorClose(cursor) == 0) result.code = BERKDB_ERROR;
  return result;
}

// Whether there is a record, readable or not.
bool IsThere(StepResult result) { return result.Is(0) || result.Is(DB_BUFFER_SMALL); }

// One step over both fillings.
class DoubleStep {
 public:
  DoubleStep(const Table &table, std::string_view from, std::uint32_t operation) {
    for (int i = 0; i < 2; ++i) results_[i] = MakeStep(table, from, operation, kFillings[i], buffers_[i]);
  }

  StepResult Result() const { return results_[0]; }

  bool AreRead() const { return results_[0].Is(0) && results_[1].Is(0); }
  bool AreThere() const { return IsThere(results_[0]) && IsThere(results_[1]); }

  bool GetKey(Bytes &key) const { return GetEqual(buffers_[0].Key(), buffers_[1].Key(), key); }
  bool GetValue(Bytes &value) const { return GetEqual(buffers_[0].Value(), buffers_[1].Value(), value); }

 private:
  static bool IsFilling(std::string_view rest, char filling) {
    return std::all_of(rest.begin(), rest.end(), [=](char c) { return c == filling; });
  }

  static bool GetEqual(std::string_view a, std::string_view b, Bytes &bytes) {
    const auto [endA, endB] = std::mismatch(a.begin(), a.end(), b.begin());
    const auto size = static_cast<std::size_t>(endA - a.begin());
    bytes.Assign(First(a, size));
    return IsFilling(After(a, size), kFillings[0]) && IsFilling(After(b, size), kFillings[1]);
  }

  StepBuffers buffers_[2];
  StepResult results_[2];
};

Answer Fail(const Table &table, std::string_view key, const char *what) {
  Complain(table.name, key, what);
  return Answer::kFailed;
}

Answer FailStep(const Table &table, std::string_view key, StepResult result) {
  return Fail(table, key, result.code != BERKDB_OK ? "the store cannot be read" : db_strerror(result.dbResult));
}

// Reads by name, with a buffer of exactly so many bytes. The key is the stored one, which begins with the name.
int ReadByName(const Table &table, std::string_view key, char *buffer, std::size_t bytes) {
  const bool asName = table.IsPhoneBook() && IsKeyOfName(table, key);
  return (asName ? BerkDb_Get : BerkDb_Read)(table.Handle(), key.data(), buffer, static_cast<std::int32_t>(bytes));
}

Answer AnswerOf(const Table &table, std::string_view key, int code) {
  if (code == BERKDB_OK) return Answer::kYes;
  return code == BERKDB_NOT_FOUND ? Answer::kNo : Fail(table, key, "the store cannot be read");
}

// Reads a value of a known size over both fillings. Nothing when it has another size by now.
std::optional<Answer> ReadSized(const Table &table, std::string_view key, std::size_t size, Bytes &value) {
  Bytes again;
  for (Bytes *bytes : {&value, &again}) {
    bytes->Resize(size);
    std::memset(bytes->Data(), kFillings[bytes == &again ? 1 : 0], size);
    const int code = ReadByName(table, key, bytes->Data(), size);
    if (code == BERKDB_BUFFER_SMALL) return std::nullopt;
    if (code != BERKDB_OK) return AnswerOf(table, key, code);
  }
  if (value.View() != again.View()) return std::nullopt;
  return Answer::kYes;
}

// The value's size is the smallest buffer that is large enough for the library. Nothing when it changed meanwhile.
std::optional<Answer> ReadLargeValue(const Table &table, std::string_view key, Bytes &value) {
  if (!IsKeyOfName(table, key) && !IsTerminatedText(key)) {
    return Fail(table, key, "the value is too large to be read under this key");
  }
  std::size_t tooSmall = kStepBytes;
  std::size_t enough = 0;
  while (enough == 0 || enough - tooSmall > 1) {
    const std::size_t bytes = enough == 0 ? 2 * tooSmall : tooSmall + (enough - tooSmall) / 2;
    if (bytes > INT32_MAX / 2) return Fail(table, key, "the value is too large");
    value.Resize(bytes);
    const int code = ReadByName(table, key, value.Data(), bytes);
    if (code != BERKDB_OK && code != BERKDB_BUFFER_SMALL) return AnswerOf(table, key, code);
    (code == BERKDB_OK ? enough : tooSmall) = bytes;
  }
  return ReadSized(table, key, enough, value);
}

// Makes the greatest key that begins like this.
void FillUp(Bytes &text) {
  const std::size_t size = text.Size();
  text.Resize(kStepBytes);
  std::memset(text.Data() + size, 0xff, kStepBytes - 1 - size);
  text.Data()[kStepBytes - 1] = '\0';
}

}  // namespace

Answer ReadValue(const Table &table, std::string_view key, Bytes &value) {
  if (key.size() > kMostKeyBytes) return Answer::kNo;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const DoubleStep step(table, key, DB_SET);
    const StepResult first = step.Result();
    if (first.Is(DB_NOTFOUND)) return Answer::kNo;
    if (!IsThere(first)) return FailStep(table, key, first);
    if (first.Is(DB_BUFFER_SMALL)) {
      if (const std::optional<Answer> answer = ReadLargeValue(table, key, value); answer.has_value()) return *answer;
    }
    if (step.AreRead() && step.GetValue(value)) return Answer::kYes;
  }
  return Fail(table, key, "changes all the time");
}

TableWalk::TableWalk(const Table &table, std::string_view prefix) : table_(table) {
  prefix_.Assign(prefix);
  start_.Assign(prefix);
  if (table.RunsDown()) FillUp(start_);
}

Answer TableWalk::Next() {
  if (IsInterrupted()) return Answer::kFailed;
  if (prefix_.Size() > kMostKeyBytes || (begun_ && !MoveStart())) return Answer::kNo;
  begun_ = true;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const Place place = Locate();
    if (place == Place::kFailed) return Answer::kFailed;
    if (place == Place::kEnd) return Answer::kNo;
    if (place == Place::kMoved) continue;
    if (!StartsWith(key_.View(), prefix_.View())) return Answer::kNo;
    // What cannot be read under the key that seems to be there has a longer key, which the step could not show.
    const Answer answer = ReadValue(table_, key_.View(), value_);
    if (answer != Answer::kNo) return answer;
  }
  return Fail(table_, key_.View(), "a key at this place or behind is too long to be read");
}

// Lets the walk go on directly behind the last key. False when nothing can be there.
bool TableWalk::MoveStart() {
  if (!table_.RunsDown()) {
    start_.Assign(key_.View());
    start_.Append({"\0", 1});
    return true;
  }
  // The text before "fop" is "foo" with the largest bytes behind it; before "fo\1" it is "fo" itself.
  const std::string_view text = TextOf(key_.View());
  if (text.empty()) return false;
  start_.Assign(text);
  char &last = start_.Data()[text.size() - 1];
  if (last == '\1') {
    start_.Resize(text.size() - 1);
  } else {
    last = static_cast<char>(static_cast<unsigned char>(last) - 1);
    FillUp(start_);
  }
  return true;
}

// Finds the first key at or behind the start. Where the buffer had the start in it, one cannot see where the key
// ends. So the key is looked for once more, by a beginning of it that leads there, too, and that it overwrites.
TableWalk::Place TableWalk::Locate() {
  StepBuffers buffers;
  const StepResult result = MakeStep(table_, start_.View(), DB_SET_RANGE, kFillings[0], buffers);
  if (result.Is(DB_NOTFOUND)) return Place::kEnd;
  if (!IsThere(result)) {
    FailStep(table_, start_.View(), result);
    return Place::kFailed;
  }
  Bytes beginning;
  if (!MakeBeginning(buffers.Key(), beginning)) return Place::kMoved;
  const DoubleStep step(table_, beginning.View(), DB_SET_RANGE);
  return step.AreThere() && step.GetKey(key_) ? Place::kFound : Place::kMoved;
}

// found: the key with what it left of the start behind it.
bool TableWalk::MakeBeginning(std::string_view found, Bytes &beginning) const {
  const std::string_view start = start_.View();
  if (!table_.RunsDown()) {
    // Up to the first byte that differs from the start, it is greater than the start, and no key lies between.
    const auto differs = std::mismatch(start.begin(), start.end(), found.begin()).first;
    const auto same = static_cast<std::size_t>(differs - start.begin());
    beginning.Assign(First(found, std::min(same + 1, start.size())));
    return true;
  }
  // Downwards only the whole text leads there. A key without terminator ends somewhere in what looks like the text.
  for (std::size_t size = TextOf(found).size() + 1; size-- > 0;) {
    beginning.Assign(First(found, size));
    StepBuffers buffers;
    if (IsThere(MakeStep(table_, beginning.View(), DB_SET, kFillings[0], buffers))) return true;
  }
  return false;
}

}  // namespace devconf
