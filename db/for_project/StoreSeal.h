// SPDX-License-Identifier: MIT
// The seal: a small file beside the tables' file, written by the last process that closes in order. It holds size and
// checksum of the tables' file and of each log file, so that the next process that opens the store detects changes.
// It exists only while no process has the store open for changes. docs/formats.md describes it.
#pragma once

namespace devsupport::store {

enum class SealState : unsigned char {
  Fits,     // all files are as they were when the store was closed
  Missing,  // the store was not closed in order, or the seal itself cannot be read
  Stale,    // the log has grown: a process used the store without removing the seal
  Changed,  // the tables' file is not as it was, the log is
  Damaged   // a part of the sealed log is missing
};

struct SealFinding {
  SealState state = SealState::Missing;
  char szFile[64] = "";  // the first one that is changed or damaged
};

/// Compares the files with the seal. Reads all of them; writes nothing.
/// nHomeFd    in      descriptor of the home
/// pFile      in      name of the tables' file, as for BerkDb_Open
SealFinding CheckSeal(int nHomeFd, const char *pFile);

/// Writes the seal for the files as they are, after flushing them. Returns 0, or an error number: then there is no seal.
int WriteSeal(int nHomeFd, const char *pFile);

/// Removes the seal, so that it is gone after a loss of power, too. Returns 0, also without one, or an error number.
int RemoveSeal(int nHomeFd, const char *pFile);

/// Removes the seals of all files in the home likewise: they seal the same log.
int RemoveSeals(int nHomeFd);

}  // namespace devsupport::store
