// SPDX-License-Identifier: MIT
// The end of devconf by a signal: after the current step, or at once.
#pragma once

namespace devconf {

/// From now on, the first signal that would end the program ends it after the current step. A second signal, or three
/// seconds, end it at once, which the store survives. Signals that our caller ignores stay ignored.
void EndPolitely();

/// Whether such a signal has arrived, so that the program should end.
bool IsInterrupted();

/// Ends the program by that signal. Returns when there was none.
void EndBySignal();

}  // namespace devconf
