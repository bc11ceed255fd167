// SPDX-License-Identifier: MIT
// The simulated analog driver: what it remembers, and how it answers one request. No I/O.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "cpld/Request.h"

namespace analogsim {

using Record = cpld::TAnalogRegRequest;

/// Contents by register number. A register that was never written is absent and reads 0.
using Bank = std::map<std::int32_t, std::int32_t>;

struct Channel {
  Bank direct{};
  Bank indirect{};
  bool operator==(const Channel &) const = default;
};

/// Everything that the driver remembers between requests.
struct Registers {
  std::map<std::int32_t, Channel> channels{};
  bool debug = false;
  bool operator==(const Registers &) const = default;
};

/// What the driver leaves in the record and returns. A failure has the result -1 and an errno.
struct Answer {
  Record record{};
  std::int32_t result = 0;
  int error = 0;
};

/// Wrong values for answers, to test how a program handles them.
struct Distortion {
  std::optional<std::int32_t> channel{};
  std::optional<std::int32_t> registerNumber{};
  std::optional<std::int32_t> value{};
  std::optional<std::int32_t> result{};  ///< of requests that succeed
};

/// How the driver behaves in one session.
struct Behaviour {
  std::int32_t channels = 4;     ///< channels 0 to channels - 1 exist
  std::optional<int> failure{};  ///< every request fails with this errno and changes nothing
  Distortion distortion{};
};

class Driver {
 public:
  explicit Driver(const Behaviour &behaviour) : behaviour_(behaviour) {}

  /// Answers one request.
  /// request    in      the number given to ioctl
  /// record     in      the record as the driver received it
  /// registers  in,out  what the driver remembers; unchanged by reads and by requests that fail
  /// Returns    the answer: ENOTTY for unknown requests, ENXIO for channels that do not exist, EINVAL for a
  ///            debug switch that is neither on nor off. The record of a failed request comes back as it went.
  Answer Handle(std::uint32_t request, const Record &record, Registers &registers) const;

 private:
  Answer Serve(std::uint32_t request, const Record &record, Registers &registers) const;
  Answer Get(const Record &record, const Registers &registers, Bank Channel::*bank) const;
  Answer Set(const Record &record, Registers &registers, Bank Channel::*bank) const;
  bool Exists(std::int32_t channel) const;
  Answer Distorted(Answer answer) const;

  Behaviour behaviour_;
};

/// The answer to a request that fails.
Answer Failed(const Record &record, int error);

}  // namespace analogsim
