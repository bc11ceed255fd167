// SPDX-License-Identifier: MIT
// The command line of analogsim.

#include "tools/analogsim/Options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>

#include "tools/analogsim/Numbers.h"

namespace analogsim {

namespace {

constexpr char kDescription[] =
    "Runs a command, or a shell, in which /dev/analog/0 is a simulated analog driver.\n"
    "Registers start at 0 and are forgotten at the end unless --state keeps them.";
constexpr char kFooter[] =
    "Example: analogsim --trace -- sh -c 'cpld 1 1 23 0x30; cpld 0 1 23'\n"
    "Exit status: the command's; 128 + N when signal N ended it; 127 command not found;\n"
    "126 command not runnable; 125 analogsim itself failed.";

std::vector<std::string> UsersShell() {
  const char *shell = std::getenv("SHELL");
  return {shell != nullptr && *shell != '\0' ? shell : "/bin/sh"};
}

/// Everything after the options. The first word that is no option, or "--", starts the command, so that the
/// command's own options are never taken for ours.
std::vector<std::string> CommandWords(std::vector<std::string> rest) {
  if (rest.empty()) return UsersShell();
  const bool hasSeparator = rest.front() == "--";
  if (!hasSeparator && rest.front().size() > 1 && rest.front().starts_with('-')) {
    throw CLI::ExtrasError("analogsim", {rest.front()});
  }
  if (hasSeparator) rest.erase(rest.begin());
  return rest.empty() ? UsersShell() : rest;
}

/// Adds an option that sets a field. A function converts its text to the field's value, or refuses it.
template <typename Field, typename Convert>
void AddOption(CLI::App &app, const std::string &name, Field &field, Convert convert, const char *type,
               const char *description) {
  const auto set = [&field, convert, name](const std::string &text) {
    try {
      field = convert(text);
    } catch (const std::runtime_error &error) {
      throw CLI::ValidationError(name, error.what());
    }
  };
  app.add_option_function<std::string>(name, set, description)->type_name(type);
}

std::int32_t ToChannelCount(const std::string &text) {
  const std::optional<std::int32_t> count = ToInt32(text);
  if (!count || *count < 1) throw std::runtime_error('"' + text + "\" is no number of channels");
  return *count;
}

int ToFailure(const std::string &text) {
  const std::optional<int> error = ToErrno(text);
  if (!error) throw std::runtime_error('"' + text + "\" is no error: EIO, EBUSY, 5, ...");
  return *error;
}

void AddOptions(CLI::App &app, Options &options) {
  const auto asPath = [](const std::string &text) { return std::filesystem::path(text); };
  AddOption(app, "--state", options.stateFile, asPath, "FILE", "Keep the registers in this file between runs");
  AddOption(app, "--channels", options.behaviour.channels, ToChannelCount, "N",
            "Channels 0 to N-1 exist (4 unless given); requests for others fail");
  app.add_flag("-t,--trace", options.trace, "Describe each request in one line on standard error");
  app.add_flag("--trace-bytes", options.traceBytes, "As --trace, with the bytes of the record as received");
  app.set_version_flag("-V,--version", "analogsim " ANALOGSIM_VERSION);

  constexpr char kFaults[] = "To try out how a program takes it";
  AddOption(app, "--fail", options.behaviour.failure, ToFailure, "ERRNO",
            "Every request fails with this error, by name or number");
  AddOption(app, "--answer", options.behaviour.distortion, ToDistortion, "FIELD=N,...",
            "Every answer says this instead of the truth; fields channel, register, value, result");
  app.get_option("--fail")->group(kFaults);
  app.get_option("--answer")->group(kFaults);
}

class HelpFormatter final : public CLI::Formatter {
  std::string make_usage(const CLI::App *, std::string) const override {
    return "Usage: analogsim [OPTIONS] [--] [COMMAND [ARG...]]\n";
  }
};

}  // namespace

Distortion ToDistortion(const std::string &text) {
  Distortion distortion;
  const std::map<std::string, std::optional<std::int32_t> *> fields = {
      {"channel", &distortion.channel},
      {"register", &distortion.registerNumber},
      {"value", &distortion.value},
      {"result", &distortion.result},
  };
  for (const std::string &part : CLI::detail::split(text, ',')) {
    const std::size_t equals = part.find('=');
    const auto field = fields.find(part.substr(0, equals));
    if (equals == std::string::npos || field == fields.end()) {
      throw std::runtime_error('"' + part + "\" is not channel=, register=, value= or result= with a number");
    }
    *field->second = ToInt32(part.substr(equals + 1));
    if (!*field->second) throw std::runtime_error('"' + part + "\" has no number of 32 bits");
  }
  if (distortion.result.value_or(0) < 0) throw std::runtime_error("result is 0 or more; --fail makes errors");
  return distortion;
}

Options ReadOptions(int argCount, const char *const *args, int mistakeStatus) {
  Options options;
  CLI::App app(kDescription, "analogsim");
  app.formatter(std::make_shared<HelpFormatter>());
  app.footer(kFooter);
  app.prefix_command();
  app.failure_message([](const CLI::App *, const CLI::Error &error) {
    return std::string("analogsim: ") + error.what() + "\nanalogsim --help lists the options.\n";
  });
  AddOptions(app, options);
  try {
    app.parse(argCount, args);
    options.command = CommandWords(app.remaining());
  } catch (const CLI::ParseError &error) {
    const bool isMistake = app.exit(error) != 0;
    throw Stop{isMistake ? mistakeStatus : 0};
  }
  return options;
}

}  // namespace analogsim
