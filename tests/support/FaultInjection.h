// SPDX-License-Identifier: MIT
// Makes the n-th call of a C library function fail, so that a test can check the reaction.
//
// The files of a test program name each fault point once, and its devsupport_test() names the functions under WRAP:
//
//   DEVSUPPORT_FAULT_POINT(void *, malloc, (std::size_t n), (n), nullptr, ENOMEM)
//
//   FailCall fail("malloc", 2);        // the second malloc from here on answers nullptr, once
//   EXPECT_EQ(TMyHash_Create(...), 0);
//   EXPECT_TRUE(fail.Happened());
#pragma once

#include <cerrno>
#include <cstddef>

namespace devsupport::test {

/// As long as it lives, makes the n-th call (counted from 1) of one wrapped function in this process fail. kEvery makes
/// all calls fail. Only one object can exist at a time.
class FailCall {
 public:
  static constexpr int kEvery = 0;

  FailCall(const char *function, int nth);
  ~FailCall();
  FailCall(const FailCall &) = delete;
  FailCall &operator=(const FailCall &) = delete;

  bool Happened() const;
};

/// Called by each fault point; true when this call must fail.
bool MustFail(const char *function);

}  // namespace devsupport::test

#define DEVSUPPORT_FAULT_POINT(Result, function, parameters, arguments, failure, error) \
  extern "C" Result __real_##function parameters;                                       \
  extern "C" Result __wrap_##function parameters;                                       \
  extern "C" Result __wrap_##function parameters {                                      \
    if (devsupport::test::MustFail(#function)) {                                        \
      errno = (error);                                                                  \
      return (failure);                                                                 \
    }                                                                                   \
    return __real_##function arguments;                                                 \
  }
