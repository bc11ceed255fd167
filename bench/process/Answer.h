// SPDX-License-Identifier: MIT
// The fixed request and answer of the hand-written floors of cpld.
#pragma once

static const char kDevice[] = "/dev/analog/0";
static const char kAnswer[] = "ch=1, reg23, data=0x0 value=0xffffffff\n";

enum { kGetDirectReg = 10019 };

struct Request {
  unsigned nRequest;
  int nChannel;
  int nRegister;
  int nValue;
  unsigned nReserved[2];
};
