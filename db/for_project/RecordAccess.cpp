// SPDX-License-Identifier: MIT
// Reads whole records, one by one and in batches.

#include "db/for_project/RecordAccess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "db/for_project/DbLibrary.h"
#include "db/for_project/DbText.h"
#include "db/for_project/Operation.h"

namespace devsupport::store {

namespace {

// A batch ends with the record that reaches one of these. It keeps the gate closed for some microseconds.
constexpr std::size_t kBatchBytes = 16384;
constexpr int kBatchRecords = 200;

}  // namespace

std::string_view GrownBytes::View() const { return Bytes(record_); }

bool GrownBytes::Assign(std::string_view bytes) {
  void *pMoved = std::realloc(record_.data, std::max<std::size_t>(bytes.size(), 1));
  if (pMoved == nullptr) return false;
  record_.data = pMoved;
  record_.size = static_cast<std::uint32_t>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), static_cast<char *>(pMoved));
  return true;
}

int ReadWhole(DB *pDb, std::string_view key, GrownBytes &value) {
  DBT record = InputRecord(key.data(), static_cast<std::uint32_t>(key.size()));
  return RunInside(pDb, [&](DB *p) { return p->get(p, nullptr, &record, value.Record(), 0); });
}

RecordWalk::RecordWalk(DB *pDb, const TableRule &rule, std::string_view from) : pDb_(pDb), rule_(rule) {
  if (!from.empty() && !lastPlace_.Assign(from)) bAtEnd_ = true;
}

int RecordWalk::Next(WholeRecord &record) {
  if (dwTaken_ == dwUsed_) {
    const int nResult = bAtEnd_ ? kNotFound : RunInside(pDb_, [this](DB *pDb) { return ReadBatch(pDb); });
    if (nResult != 0) return nResult;
    if (dwUsed_ == 0) return kNotFound;
  }
  Sizes sizes;
  std::memcpy(&sizes, Take(sizeof sizes).data(), sizeof sizes);
  record.indexKey = Take(sizes.dwIndexKey);
  record.key = Take(sizes.dwKey);
  record.value = Take(sizes.dwValue);
  return 0;
}

std::string_view RecordWalk::Take(std::size_t dwBytes) {
  const std::string_view bytes(pMemory_ + dwTaken_, dwBytes);
  dwTaken_ += dwBytes;
  return bytes;
}

int RecordWalk::ReadBatch(DB *pDb) {
  dwUsed_ = 0;
  dwTaken_ = 0;
  DBC *pCursor = nullptr;
  if (const int nResult = pDb->cursor(pDb, nullptr, &pCursor, 0); nResult != 0) return nResult;
  const int nResult = FillFrom(pCursor);
  const int nClosed = pCursor->close(pCursor);
  return nResult != 0 ? nResult : nClosed;
}

int RecordWalk::FillFrom(DBC *pCursor) {
  int nResult = GoToStart(pCursor);
  for (int nRecords = 0; nResult == 0; nResult = Step(pCursor, kStepNext)) {
    if (!Keep()) return ENOMEM;
    if (++nRecords < kBatchRecords && dwUsed_ < kBatchBytes) continue;
    bBegun_ = true;
    return RememberLast() ? 0 : ENOMEM;
  }
  bAtEnd_ = nResult == kNotFound;
  return bAtEnd_ ? 0 : nResult;
}

// Moves to the first record that has not been read.
int RecordWalk::GoToStart(DBC *pCursor) {
  if (bBegun_ && rule_.IsIndex()) return GoToNextDuplicate(pCursor);
  if (lastPlace_.View().empty() && !bBegun_) return Step(pCursor, kStepFirst);
  if (!place_.Assign(lastPlace_.View())) return ENOMEM;
  const int nResult = Step(pCursor, kStepToRange);
  return nResult == 0 && bBegun_ && IsAtLast() ? Step(pCursor, kStepNext) : nResult;
}

// In an index, many records can be under one key. They are in the order of their own keys.
int RecordWalk::GoToNextDuplicate(DBC *pCursor) {
  if (!place_.Assign(lastPlace_.View()) || !key_.Assign(lastKey_.View())) return ENOMEM;
  int nResult = Step(pCursor, DB_GET_BOTH_RANGE);
  if (nResult == 0) return key_.View() == lastKey_.View() ? Step(pCursor, kStepNext) : 0;
  if (nResult != kNotFound) return nResult;
  if (!place_.Assign(lastPlace_.View())) return ENOMEM;
  nResult = Step(pCursor, kStepToRange);
  return nResult == 0 && IsAtLast() ? Step(pCursor, DB_NEXT_NODUP) : nResult;
}

int RecordWalk::Step(DBC *pCursor, std::uint32_t dwOperation) {
  return rule_.IsIndex() ? pCursor->pget(pCursor, place_.Record(), key_.Record(), value_.Record(), dwOperation)
                         : pCursor->get(pCursor, place_.Record(), value_.Record(), dwOperation);
}

bool RecordWalk::IsAtLast() const {
  if (rule_.pfnCompare == nullptr) return place_.View() == lastPlace_.View();
  const DBT a = InputRecord(place_.View().data(), static_cast<std::uint32_t>(place_.View().size()));
  const DBT b = InputRecord(lastPlace_.View().data(), static_cast<std::uint32_t>(lastPlace_.View().size()));
  return rule_.pfnCompare(nullptr, &a, &b) == 0;
}

bool RecordWalk::Keep() {
  const std::string_view none;
  const std::string_view pieces[] = {rule_.IsIndex() ? place_.View() : none,
                                     rule_.IsIndex() ? key_.View() : place_.View(), value_.View()};
  const Sizes sizes = {static_cast<std::uint32_t>(pieces[0].size()), static_cast<std::uint32_t>(pieces[1].size()),
                       static_cast<std::uint32_t>(pieces[2].size())};
  const std::size_t dwBytes = sizeof sizes + pieces[0].size() + pieces[1].size() + pieces[2].size();
  if (dwUsed_ + dwBytes > dwRoom_) {
    const std::size_t dwLarger = std::max(2 * dwRoom_, dwUsed_ + dwBytes);
    void *pMoved = std::realloc(pMemory_, dwLarger);
    if (pMoved == nullptr) return false;
    pMemory_ = static_cast<char *>(pMoved);
    dwRoom_ = dwLarger;
  }
  std::memcpy(pMemory_ + dwUsed_, &sizes, sizeof sizes);
  dwUsed_ += sizeof sizes;
  for (const std::string_view piece : pieces) {
    if (!piece.empty()) std::memcpy(pMemory_ + dwUsed_, piece.data(), piece.size());
    dwUsed_ += piece.size();
  }
  return true;
}

bool RecordWalk::RememberLast() {
  return lastPlace_.Assign(place_.View()) && (!rule_.IsIndex() || lastKey_.Assign(key_.View()));
}

}  // namespace devsupport::store
