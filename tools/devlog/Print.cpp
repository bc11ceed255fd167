// SPDX-License-Identifier: MIT
// Formats one message: for people, as JSON, for syslog.

#include "tools/devlog/Print.h"

#include <iterator>

#include "tools/common/Text.h"
#include "tools/common/Utf8.h"

namespace devlog {

namespace {

constexpr std::string_view kDim = "\033[2m";
constexpr std::string_view kCyan = "\033[36m";
constexpr std::string_view kYellow = "\033[33m";
constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kNormal = "\033[0m";

/// The colour of each type; type 0 has none.
constexpr std::string_view kTypeColours[] = {
    "",         "\033[32m", "\033[34m", "\033[36m", "\033[35m", "\033[33m",   "\033[31m",   "\033[92m",
    "\033[94m", "\033[96m", "\033[95m", "\033[93m", "\033[91m", "\033[1;32m", "\033[1;34m", "\033[1;35m",
};

constexpr unsigned kRingPlaces = 5;

std::string_view NameOf(Status status) {
  switch (status) {
    case Status::Ok:
      return "ok";
    case Status::Partial:
      return "partial";
    case Status::Damaged:
      return "damaged";
    case Status::Lost:
      break;
  }
  return "lost";
}

bool HasType(const Message &message) { return message.status != Status::Lost && message.damage != Damage::Length; }

bool HasSequence(const Message &message) { return message.damage != Damage::Length; }

void AddDamage(Line &line, const Message &message) {
  line.Add("damaged: ");
  switch (message.damage) {
    case Damage::Length:
      line.Add("the length is ");
      line.AddNumber(message.first->length);
      break;
    case Damage::Text:
      line.Add("the text has no end");
      break;
    case Damage::Time:
      line.Add("invalid time");
      break;
    case Damage::Order:
    case Damage::None:
      line.Add("fragment ");
      line.AddNumber(Decode(*message.first).number);
      line.Add(" follows no other");
      break;
  }
}

void AddDetail(Line &line, const Message &message) {
  switch (message.status) {
    case Status::Ok:
      break;
    case Status::Partial:
      line.Add("its beginning is lost");
      break;
    case Status::Lost:
      line.AddNumber(message.records);
      if (message.isAtLeast) line.Add(" or more");
      line.Add(message.records == 1 && !message.isAtLeast ? " record lost" : " records lost");
      break;
    case Status::Damaged:
      AddDamage(line, message);
      break;
  }
}

void AddColoured(Line &line, std::string_view colour, Look look, std::string_view text) {
  if (look == Look::Coloured) line.Add(colour);
  line.Add(text);
  if (look == Look::Coloured && !colour.empty()) line.Add(kNormal);
}

void AddRing(Line &line, Ring ring, Look look) {
  const std::string_view name = NameOf(ring);
  AddColoured(line, ring == Ring::Event ? kCyan : std::string_view{}, look, name);
  for (std::size_t place = name.size(); place <= kRingPlaces; ++place) line.Add(' ');
}

/// The type's name left-aligned, or its number right-aligned; a dash when not known.
void AddType(Line &line, const Message &message, const Known &known, Look look) {
  char number[2] = {static_cast<char>('0' + message.type / 10), static_cast<char>('0' + message.type % 10)};
  std::string_view type = "-";
  if (HasType(message)) type = message.type < 10 ? std::string_view(number + 1, 1) : std::string_view(number, 2);
  const bool isNamed = HasType(message) && !known.typeName.empty();
  if (isNamed) type = known.typeName;
  const std::size_t filling = known.typePlaces > type.size() ? known.typePlaces - type.size() : 0;
  for (std::size_t place = 0; !isNamed && place < filling; ++place) line.Add(' ');
  AddColoured(line, HasType(message) ? kTypeColours[message.type % std::size(kTypeColours)] : std::string_view{},
              look, type);
  for (std::size_t place = 0; isNamed && place < filling; ++place) line.Add(' ');
}

void AddWords(Line &line, const Message &message, const Known &known, Look look) {
  if (look == Look::Coloured) line.Add(kDim);
  line.AddTime(message.time);
  if (look == Look::Coloured) line.Add(kNormal);
  line.Add(' ');
  AddRing(line, message.ring, look);
  AddType(line, message, known, look);
  line.Add("  ");
  if (message.status != Status::Ok) {
    if (look == Look::Coloured) line.Add(message.status == Status::Damaged ? kRed : kYellow);
    line.Add('(');
    AddDetail(line, message);
    line.Add(')');
    if (look == Look::Coloured) line.Add(kNormal);
    if (!known.text.empty()) line.Add(' ');
  }
  if (!known.process.empty()) {
    AddColoured(line, kBold, look, known.process);
    line.Add(": ");
  }
  line.AddForPeople(tools::After(known.text, known.process.size()));
}

void AddNumberOrNull(Line &line, bool isKnown, unsigned number) {
  if (isKnown) {
    line.AddNumber(number);
  } else {
    line.Add("null");
  }
}

DayTime DayTimeAt(std::int64_t when) {
  const std::int64_t inDay = when % kDay;
  return static_cast<DayTime>(inDay < 0 ? inDay + kDay : inDay);
}

void AddMember(Line &line, std::string_view name, std::string_view value) {
  line.Add(",\"");
  line.Add(name);
  line.Add("\":\"");
  line.Add(value);
  line.Add('"');
}

void AddJson(Line &line, const Message &message, const Known &known) {
  line.Add("{\"time\":\"");
  line.AddTime(message.time != kUnknownTime ? message.time : DayTimeAt(message.when));
  line.Add('"');
  AddMember(line, "ring", NameOf(message.ring));
  line.Add(",\"type\":");
  AddNumberOrNull(line, HasType(message), message.type);
  AddMember(line, "type_name", HasType(message) ? known.typeName : std::string_view{});
  line.Add(",\"sequence\":");
  AddNumberOrNull(line, HasSequence(message), message.sequence);
  line.Add(",\"records\":");
  line.AddNumber(message.records);
  AddMember(line, "status", NameOf(message.status));
  line.Add(",\"detail\":\"");
  AddDetail(line, message);
  line.Add('"');
  AddMember(line, "process", known.process);
  const std::string_view text = tools::After(known.text, known.process.size());
  const bool isText = tools::IsText(text);
  line.Add(isText ? ",\"text\":\"" : ",\"text_bytes\":\"");
  line.AddForJson(text, isText ? tools::Form::Text : tools::Form::Bytes);
  line.Add("\"}");
}

}  // namespace

std::string_view NameOf(Ring ring) { return ring == Ring::Log ? "log" : "event"; }

void AddMessage(Line &line, const Message &message, const Known &known, Look look) {
  if (look == Look::Json) {
    AddJson(line, message, known);
  } else {
    AddWords(line, message, known, look);
  }
}

}  // namespace devlog
