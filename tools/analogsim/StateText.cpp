// SPDX-License-Identifier: MIT
// The text of a state file: the registers as JSON.

#include "tools/analogsim/StateText.h"

#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "tools/analogsim/Numbers.h"

namespace analogsim {

namespace {

using nlohmann::ordered_json;

constexpr int kVersion = 1;

[[noreturn]] void Refuse(const std::string &reason) { throw std::runtime_error(reason); }

ordered_json FromBank(const Bank &bank) {
  ordered_json json = ordered_json::object();
  for (const auto &[number, value] : bank) json[std::to_string(number)] = value;
  return json;
}

/// The object's members are these and no others.
void RequireMembers(const ordered_json &json, const std::string &where, std::initializer_list<const char *> names) {
  if (!json.is_object()) Refuse(where + " is no object");
  for (const char *name : names) {
    if (!json.contains(name)) Refuse(where + " has no \"" + name + '"');
  }
  if (json.size() != names.size()) Refuse(where + " has members that do not belong there");
}

std::int32_t ToKey(const std::string &text, const std::string &where) {
  const std::optional<std::int32_t> number = ToInt32(text);
  if (!number || std::to_string(*number) != text) Refuse('"' + text + "\" in " + where + " is no number");
  return *number;
}

std::int32_t ToContent(const ordered_json &json, const std::string &where) {
  using Limits = std::numeric_limits<std::int32_t>;
  if (!json.is_number_integer()) Refuse(where + " holds no whole number");
  const bool tooLarge = json.is_number_unsigned() && json.get<std::uint64_t>() > std::uint64_t{Limits::max()};
  if (tooLarge || json.get<std::int64_t>() < Limits::min()) Refuse(where + " holds more than 32 bits");
  return json.get<std::int32_t>();
}

Bank ToBank(const ordered_json &json, const std::string &where) {
  if (!json.is_object()) Refuse(where + " is no object");
  Bank bank;
  for (const auto &[key, value] : json.items()) {
    std::string place = where;
    place.append(" register ").append(key);
    bank[ToKey(key, where)] = ToContent(value, place);
  }
  return bank;
}

Channel ToChannel(const ordered_json &json, const std::string &where) {
  RequireMembers(json, where, {"direct", "indirect"});
  return {.direct = ToBank(json["direct"], where + " direct"),
          .indirect = ToBank(json["indirect"], where + " indirect")};
}

Registers ToRegisters(const ordered_json &json) {
  RequireMembers(json, "the file", {"version", "debug", "channels"});
  if (json["version"] != kVersion) Refuse("it has another version than " + std::to_string(kVersion));
  if (!json["debug"].is_boolean()) Refuse("\"debug\" is neither true nor false");
  if (!json["channels"].is_object()) Refuse("\"channels\" is no object");

  Registers registers{.channels = {}, .debug = json["debug"].get<bool>()};
  for (const auto &[key, channel] : json["channels"].items()) {
    registers.channels[ToKey(key, "\"channels\"")] = ToChannel(channel, "channel " + key);
  }
  return registers;
}

}  // namespace

std::string ToStateText(const Registers &registers) {
  ordered_json channels = ordered_json::object();
  for (const auto &[number, channel] : registers.channels) {
    channels[std::to_string(number)] = {{"direct", FromBank(channel.direct)},
                                        {"indirect", FromBank(channel.indirect)}};
  }
  const ordered_json json = {{"version", kVersion}, {"debug", registers.debug}, {"channels", channels}};
  return json.dump(2) + '\n';
}

Registers FromStateText(const std::string &text) {
  try {
    return ToRegisters(ordered_json::parse(text));
  } catch (const ordered_json::exception &error) {
    Refuse(error.what());
  }
}

}  // namespace analogsim
