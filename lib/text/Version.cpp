// SPDX-License-Identifier: MIT
// The version of the library as a text.

#include <devsupport/text/Version.h>

#define TEXT_OF(number) #number
#define VERSION_TEXT(major, minor, patch) TEXT_OF(major) "." TEXT_OF(minor) "." TEXT_OF(patch)

const char *DevSupport_Version() {
  return VERSION_TEXT(DEVSUPPORT_VERSION_MAJOR, DEVSUPPORT_VERSION_MINOR, DEVSUPPORT_VERSION_PATCH);
}
