// SPDX-License-Identifier: MIT
// Prints what devdoctor has found, as text, JSON or metrics.

#include "tools/devdoctor/Report.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/common/Escape.h"
#include "tools/common/Utf8.h"

namespace devdoctor {

namespace {

constexpr std::size_t kMaxSentence = 1024;

void PutShown(std::string_view text) {
  while (!text.empty()) {
    const tools::Piece piece = tools::ShowNext(text);
    std::fwrite(piece.text, 1, piece.size, stdout);
  }
}

/// Also for a label's value: both escape quotes, backslashes and line ends in the same way.
void PutString(std::string_view text) {
  const tools::Form form = tools::IsText(text) ? tools::Form::Text : tools::Form::Bytes;
  std::putchar('"');
  while (!text.empty()) {
    const tools::Piece piece = tools::EscapeNext(text, form);
    std::fwrite(piece.text, 1, piece.size, stdout);
  }
  std::putchar('"');
}

void PutMember(const char *name, const char *value) {
  std::printf(",\"%s\":", name);
  PutString(value);
}

const char *NameOf(Severity severity) { return severity == Severity::Error ? "error" : "warning"; }

}  // namespace

Report::Entry *Report::Add(const Entry &entry) {
  if (count_ == kMaxEntries) {
    isCut_ = true;
    return nullptr;
  }
  entries_[count_] = entry;
  return &entries_[count_++];
}

const char *Report::Keep(const char *text) {
  const std::size_t bytes = std::strlen(text) + 1;
  if (bytes > kMaxText - used_) {
    isCut_ = true;
    return "";
  }
  char *kept = texts_ + used_;
  std::memcpy(kept, text, bytes);
  used_ += bytes;
  return kept;
}

void Report::Note(const char *object, const char *format, ...) {
  char text[kMaxSentence];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  Add({Kind::Note, Severity::Warning, object, "", "", Keep(text), 0});
}

void Report::Figure(const char *object, const char *name, std::uint64_t value) {
  Add({Kind::Figure, Severity::Warning, object, name, "", "", value});
}

void Report::Fault(Severity severity, const char *object, const char *fault, const char *advice, const char *format,
                   ...) {
  char text[kMaxSentence];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  Add({Kind::Fault, severity, object, fault, Keep(advice), Keep(text), 0});
}

std::size_t Report::Count(Severity severity) const {
  return static_cast<std::size_t>(std::count_if(entries_, entries_ + count_, [severity](const Entry &entry) {
    return entry.kind == Kind::Fault && entry.severity == severity;
  }));
}

int Report::Status() const {
  if (Count(Severity::Error) != 0) return 2;
  return Count(Severity::Warning) != 0 || isCut_ ? 1 : 0;
}

bool Report::Print(Format format) const {
  if (format == Format::Words) PrintWords();
  if (format == Format::Json) PrintJson();
  if (format == Format::Prometheus) PrintMetrics();
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

void Report::PrintWords() const {
  for (const Entry *entry = entries_; entry != entries_ + count_; ++entry) {
    if (entry->kind == Kind::Figure) continue;
    if (entry->kind == Kind::Fault) std::printf("%s: ", entry->severity == Severity::Error ? "ERROR" : "WARNING");
    std::printf("%s: ", entry->object);
    PutShown(entry->text);
    if (entry->kind == Kind::Fault && *entry->advice != '\0') {
      std::fputs("\n    To do: ", stdout);
      PutShown(entry->advice);
    }
    std::putchar('\n');
  }
  if (isCut_) std::puts("WARNING: devdoctor: there is more than fits into a report");
  const std::size_t errors = Count(Severity::Error);
  const std::size_t warnings = Count(Severity::Warning);
  std::printf("%zu error%s, %zu warning%s\n", errors, Plural(errors), warnings, Plural(warnings));
}

void Report::PrintJson() const {
  for (const Entry *entry = entries_; entry != entries_ + count_; ++entry) {
    constexpr const char *kKinds[] = {"note", "figure", "fault"};
    std::printf("{\"kind\":\"%s\"", kKinds[static_cast<int>(entry->kind)]);
    PutMember("object", entry->object);
    if (entry->kind != Kind::Note) PutMember("name", entry->name);
    if (entry->kind == Kind::Fault) PutMember("severity", NameOf(entry->severity));
    if (entry->kind == Kind::Figure) {
      std::printf(",\"value\":%" PRIu64, entry->value);
    } else {
      PutMember("text", entry->text);
    }
    if (entry->kind == Kind::Fault) PutMember("advice", entry->advice);
    std::puts("}");
  }
  std::printf("{\"kind\":\"end\",\"errors\":%zu,\"warnings\":%zu,\"complete\":%s}\n", Count(Severity::Error),
              Count(Severity::Warning), isCut_ ? "false" : "true");
}

void Report::PrintMetric(std::size_t first) const {
  const char *name = entries_[first].name;
  std::printf("# HELP devdoctor_%s See devdoctor(8).\n# TYPE devdoctor_%s gauge\n", name, name);
  for (std::size_t index = first; index < count_; ++index) {
    const Entry &entry = entries_[index];
    if (entry.kind != Kind::Figure || std::strcmp(entry.name, name) != 0) continue;
    std::printf("devdoctor_%s{object=", name);
    PutString(entry.object);
    std::printf("} %" PRIu64 "\n", entry.value);
  }
}

void Report::PrintMetrics() const {
  const auto isSame = [this](std::size_t index, const Entry &other) {
    return other.kind == Kind::Figure && std::strcmp(other.name, entries_[index].name) == 0;
  };
  for (std::size_t index = 0; index < count_; ++index) {
    if (entries_[index].kind != Kind::Figure) continue;
    const bool isFirst =
        std::none_of(entries_, entries_ + index, [&](const Entry &other) { return isSame(index, other); });
    if (isFirst) PrintMetric(index);
  }
  std::puts("# HELP devdoctor_faults Faults that were found.\n# TYPE devdoctor_faults gauge");
  std::printf("devdoctor_faults{severity=\"error\"} %zu\n", Count(Severity::Error));
  std::printf("devdoctor_faults{severity=\"warning\"} %zu\n", Count(Severity::Warning));
  std::puts("# HELP devdoctor_complete Whether everything fitted into the report.\n# TYPE devdoctor_complete gauge");
  std::printf("devdoctor_complete %d\n", isCut_ ? 0 : 1);
}

}  // namespace devdoctor
