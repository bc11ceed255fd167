// SPDX-License-Identifier: MIT
// A fuzz target is one file <Name>_fuzz.cpp with the function below. It checks properties with GoogleTest's
// expectations: under libFuzzer the first one that fails ends the run, and the test that replays the corpus names
// the input (see Replay.cpp and cmake/Tests.cmake).
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
