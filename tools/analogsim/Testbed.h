// SPDX-License-Identifier: MIT
// The device that the command sees: /dev/analog/0, whose requests the simulator answers.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/analogsim/Simulator.h"

namespace analogsim {

/// While it lives, commands started with Environment() find the simulated device. Other commands do not.
class Testbed {
 public:
  /// Throws std::runtime_error when the device cannot be made.
  /// simulator  answers the requests, one at a time, in threads of the testbed; outlives the testbed
  explicit Testbed(Simulator &simulator);
  ~Testbed();
  Testbed(const Testbed &) = delete;
  Testbed &operator=(const Testbed &) = delete;

  /// Our own environment, with what leads a program to the device.
  std::vector<std::string> Environment() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace analogsim
