// SPDX-License-Identifier: MIT
// How the program can end. The numbers are documented; scripts depend on them.
#pragma once

namespace devconf::status {

inline constexpr int kDone = 0;
inline constexpr int kNothingFound = 1;  // no record with this key, or none that matches
inline constexpr int kMistake = 2;       // the command line
inline constexpr int kNoDatabase = 3;    // there is none, or it cannot be opened
inline constexpr int kFailed = 4;        // the store refused or failed, memory, output
inline constexpr int kRefused = 5;       // the file to import; nothing was changed
inline constexpr int kDamaged = 6;       // verify found something
inline constexpr int kInUse = 7;         // verify found others at work

}  // namespace devconf::status
