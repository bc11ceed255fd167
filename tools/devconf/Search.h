// SPDX-License-Identifier: MIT
// Searches through the indexes.
#pragma once

#include <string_view>

#include "tools/devconf/Records.h"

namespace devconf {

enum class Match : bool { Prefix, Whole };

/// Prints the records whose key in an index begins with the wanted text, or is the wanted text; in the index's order.
/// Returns    Yes when there were any, No otherwise; Failed has been complained about.
Answer PrintIndexed(const Table &index, std::string_view wanted, Match match, bool json);

}  // namespace devconf
