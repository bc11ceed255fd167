// SPDX-License-Identifier: MIT
// Shared between a stepped process under the user emulator and the process that controls it: the plugin StepPlugin.c
// stops it where this record says. C and C++.
#pragma once

#include <stdint.h>

// A process attaches a record by the system call close(kStepCall, descriptor of a file that holds it). Elsewhere that
// descriptor is invalid.
#define kStepCall (-0x53544550)

enum StepKind { kRunFreely, kStepInstructions, kStepCalls };

struct StepRecord {
  volatile uint32_t nKind;      // what the plugin counts; a StepKind
  volatile uint32_t nLeft;      // it stops the process after so many more of them
  volatile uint32_t nTaken;     // so many instructions have been counted
  volatile uint32_t bAttached;  // set by the plugin
};
