// How one message looks: for people, as JSON, for syslog.

#include "tools/devlog/Print.h"

#include "tools/common/Utf8.h"

namespace devlog {

namespace {

constexpr std::string_view kDim = "\033[2m";
constexpr std::string_view kCyan = "\033[36m";
constexpr std::string_view kYellow = "\033[33m";
constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kNormal = "\033[0m";

constexpr unsigned kRingPlaces = 5;
constexpr unsigned kTypePlaces = 2;

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
      line.Add("the time is none");
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
      line.Add(message.records == 1 ? " record lost" : " records lost");
      break;
    case Status::Damaged:
      AddDamage(line, message);
      break;
  }
}

void AddColoured(Line &line, std::string_view colour, Look look, std::string_view text) {
  if (look == Look::Coloured) line.Add(colour);
  line.Add(text);
  if (look == Look::Coloured) line.Add(kNormal);
}

void AddWords(Line &line, const Message &message, std::string_view text, Look look) {
  if (look == Look::Coloured) line.Add(kDim);
  line.AddTime(message.time);
  if (look == Look::Coloured) line.Add(kNormal);
  line.Add(' ');
  const std::string_view ring = NameOf(message.ring);
  if (message.ring == Ring::Event) {
    AddColoured(line, kCyan, look, ring);
  } else {
    line.Add(ring);
  }
  for (std::size_t place = ring.size(); place <= kRingPlaces; ++place) line.Add(' ');
  if (HasType(message)) {
    line.AddNumber(message.type, kTypePlaces, ' ');
  } else {
    line.Add(" -");
  }
  line.Add("  ");
  if (message.status != Status::Ok) {
    if (look == Look::Coloured) line.Add(message.status == Status::Damaged ? kRed : kYellow);
    line.Add('(');
    AddDetail(line, message);
    line.Add(')');
    if (look == Look::Coloured) line.Add(kNormal);
    if (!text.empty()) line.Add(' ');
  }
  line.AddForPeople(text);
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

void AddJson(Line &line, const Message &message, std::string_view text) {
  line.Add("{\"time\":\"");
  line.AddTime(message.time != kUnknownTime ? message.time : DayTimeAt(message.when));
  line.Add("\",\"ring\":\"");
  line.Add(NameOf(message.ring));
  line.Add("\",\"type\":");
  AddNumberOrNull(line, HasType(message), message.type);
  line.Add(",\"sequence\":");
  AddNumberOrNull(line, HasSequence(message), message.sequence);
  line.Add(",\"records\":");
  line.AddNumber(message.records);
  line.Add(",\"status\":\"");
  line.Add(NameOf(message.status));
  line.Add("\",\"detail\":\"");
  AddDetail(line, message);
  const bool isText = tools::IsText(text);
  line.Add(isText ? "\",\"text\":\"" : "\",\"text_bytes\":\"");
  line.AddForJson(text, isText ? tools::Form::kText : tools::Form::kBytes);
  line.Add("\"}");
}

}  // namespace

std::string_view NameOf(Ring ring) { return ring == Ring::Log ? "log" : "event"; }

void AddMessage(Line &line, const Message &message, std::string_view text, Look look) {
  if (look == Look::Json) {
    AddJson(line, message, text);
  } else {
    AddWords(line, message, text, look);
  }
}

}  // namespace devlog
