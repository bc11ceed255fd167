// SPDX-License-Identifier: MIT
// Prints records and complaints.

#include "tools/devconf/Print.h"

#include "tools/common/Utf8.h"
#include "tools/devconf/Shown.h"

namespace devconf {

namespace {

using tools::Form;
using tools::IsText;

void PrintOut(const Bytes &bytes) { Put(Stream::Out, bytes.View()); }

// A member whose name shows the form of its string.
void PrintBytes(const char *name, std::string_view bytes, bool asText) {
  Format(Stream::Out, ",\"%s%s\":", name, asText ? "" : "_bytes");
  PrintJsonString(asText ? TextOf(bytes) : bytes, asText ? Form::Text : Form::Bytes);
}

void PrintMembers(const Table &table, std::string_view key) {
  Format(Stream::Out, "\"table\":\"%s\"", table.Name());
  PrintBytes("key", key, IsKeyOfName(table, key) && IsText(TextOf(key)));
}

void PrintValueMember(std::string_view value) {
  PrintBytes("value", value, IsTerminatedText(value) && IsText(TextOf(value)));
}

void PrintJsonRecord(const Record &record) {
  Put(Stream::Out, "{");
  PrintMembers(*record.table, record.key);
  PrintValueMember(record.value);
  if (record.index != nullptr) {
    Format(Stream::Out, ",\"index\":\"%s\"", record.index->Name());
    PrintBytes("index_key", record.indexKey, IsText(TextOf(record.indexKey)));
  }
  Put(Stream::Out, "}\n");
}

void PrintBatchLine(const Table &table, std::string_view key, const std::string_view *value) {
  Bytes line;
  line.Append(value != nullptr ? "set --table " : "del --table ");
  line.Append(table.Name());
  line.Append(" \"");
  AppendShownKey(line, table, key, Quotes::Double);
  line.Append("\"");
  if (value != nullptr) {
    line.Append(" \"");
    AppendShownValue(line, *value, Quotes::Double);
    line.Append("\"");
  }
  line.Append("\n");
  PrintOut(line);
}

// What is in quotes in a complaint.
void AppendQuoted(Bytes &line, std::string_view text) {
  line.Append("\"");
  AppendShown(line, text);
  line.Append("\"");
}

}  // namespace

void PrintJsonString(std::string_view bytes, Form form) {
  Put(Stream::Out, "\"");
  while (!bytes.empty()) Put(Stream::Out, tools::EscapeNext(bytes, form).View());
  Put(Stream::Out, "\"");
}

void PrintRecord(const Record &record, bool json) {
  if (json) return PrintJsonRecord(record);
  Bytes line;
  if (record.index != nullptr) {
    AppendShown(line, TextOf(record.indexKey));
    line.Append("\t");
  }
  AppendShownKey(line, *record.table, record.key);
  line.Append("\t");
  AppendShownValue(line, record.value);
  line.Append("\n");
  PrintOut(line);
}

// The form of the key fits every table but the phone book, which would have been recognised.
void PrintWithoutTable(std::string_view key, std::string_view value) {
  Put(Stream::Out, "{\"table\":\"?\"");
  PrintBytes("key", key, IsTerminatedText(key) && IsText(TextOf(key)));
  PrintValueMember(value);
  Put(Stream::Out, "}\n");
}

void PrintTableLine(const Table &table) { Format(Stream::Out, "{\"table\":\"%s\"}\n", table.Name()); }

void PrintDifference(const Table &table, std::string_view key, const std::string_view *value, bool json) {
  if (!json) return PrintBatchLine(table, key, value);
  Format(Stream::Out, "{\"change\":\"%s\",", value != nullptr ? "set" : "del");
  PrintMembers(table, key);
  if (value != nullptr) PrintValueMember(*value);
  Put(Stream::Out, "}\n");
}

void Complain(const Table &table, std::string_view key, const char *what) {
  Bytes line;
  line.Append("devconf: ");
  line.Append(table.Name());
  line.Append(" ");
  AppendQuoted(line, TextOf(key));
  line.Append(": ");
  line.Append(what);
  line.Append("\n");
  Put(Stream::Error, line.View());
}

void Complain(const char *what, std::string_view word) {
  Bytes line;
  line.Append("devconf: ");
  line.Append(what);
  if (!word.empty()) {
    line.Append(" ");
    AppendQuoted(line, word);
  }
  line.Append("\n");
  Put(Stream::Error, line.View());
}

void ComplainAboutLine(const char *file, unsigned line, const char *what) {
  Format(Stream::Error, "devconf: %s:%u: %s\n", file, line, what);
}

}  // namespace devconf
