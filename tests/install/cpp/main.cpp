// SPDX-License-Identifier: MIT
#include "../program.h"
