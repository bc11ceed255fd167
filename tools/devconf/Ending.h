// SPDX-License-Identifier: MIT
// How a signal ends devconf: politely at first, and in any case.
#pragma once

namespace devconf {

/// From here on, the first signal that would end the program lets it end after the step at hand. A second one, or
/// three seconds, end it at once: the store comes to terms with that. Signals that our caller ignores stay ignored.
void EndPolitely();

/// Whether such a signal has come: time to come to an end.
bool IsInterrupted();

/// Lets that signal do what it would have done. Returns when there was none.
void EndBySignal();

}  // namespace devconf
