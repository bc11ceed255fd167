// SPDX-License-Identifier: MIT
// What devdoctor has found: sentences, figures, and faults with what to do about them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace devdoctor {

enum class Format : std::uint8_t { Words, Json, Prometheus };
enum class Severity : std::uint8_t { Warning, Error };

/// The plural ending of "error", "message" or "program" after this number.
constexpr const char *Plural(std::uint64_t count) { return count == 1 ? "" : "s"; }

/// Collects everything before printing: the text format for metrics needs the samples of one name together.
class Report {
 public:
  /// A sentence about an object.
  __attribute__((format(printf, 3, 4))) void Note(const char *object, const char *format, ...);
  /// A figure of an object.
  /// name  a static text, as a metric is called: devdoctor_NAME
  void Figure(const char *object, const char *name, std::uint64_t value);
  /// A fault.
  /// fault  a static text: its name for machines
  /// advice what to do about it
  __attribute__((format(printf, 6, 7))) void Fault(Severity severity, const char *object, const char *fault,
                                                   const char *advice, const char *format, ...);

  /// Writes everything to standard output. False when it cannot be written.
  bool Print(Format format) const;
  /// 0 no faults, 1 warnings, 2 errors.
  int Status() const;

 private:
  enum class Kind : std::uint8_t { Note, Figure, Fault };
  struct Entry {
    Kind kind;
    Severity severity;
    const char *object;
    const char *name;
    const char *advice;
    const char *text;
    std::uint64_t value;
  };

  Entry *Add(const Entry &entry);
  const char *Keep(const char *text);
  void PrintWords() const;
  void PrintJson() const;
  void PrintMetrics() const;
  void PrintMetric(std::size_t first) const;
  std::size_t Count(Severity severity) const;

  static constexpr std::size_t kMaxEntries = 512;
  static constexpr std::size_t kMaxText = std::size_t{64} * 1024;

  Entry entries_[kMaxEntries];
  std::size_t count_ = 0;
  char texts_[kMaxText];
  std::size_t used_ = 0;
  bool isCut_ = false;
};

}  // namespace devdoctor
