// SPDX-License-Identifier: MIT
/* The version of the headers that a program was compiled with, and of the library that it runs with. */
#ifndef DEVSUPPORT_TEXT_VERSION_H
#define DEVSUPPORT_TEXT_VERSION_H

#include <devsupport/Api.h>

#define DEVSUPPORT_VERSION_MAJOR 0
#define DEVSUPPORT_VERSION_MINOR 1
#define DEVSUPPORT_VERSION_PATCH 0

/* One number, for #if: 10203 is version 1.2.3. */
#define DEVSUPPORT_VERSION \
  (DEVSUPPORT_VERSION_MAJOR * 10000 + DEVSUPPORT_VERSION_MINOR * 100 + DEVSUPPORT_VERSION_PATCH)

DEVSUPPORT_BEGIN_API

/// Returns the version of the library that the program runs with, which can be another one than DEVSUPPORT_VERSION.
/// Returns    "0.1.0": major, minor and patch number, in decimal; lives as long as the library.
/// Prints     nothing.
/// Threads    safe.                                           Signal handler  safe.
/// Cost       constant, no allocation.
const char *DevSupport_Version(void);

DEVSUPPORT_END_API

#endif
