// SPDX-License-Identifier: MIT
// The seal of a closed store.

#include "tools/devconf/Seal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>

#include "db/for_project/StoreSeal.h"

namespace devconf {

using devsupport::store::CheckSeal;
using devsupport::store::SealFinding;
using devsupport::store::SealState;

Seal::Seal(const Options &options) : home_(::open(options.home, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  char name[PATH_MAX];
  const int size = std::snprintf(name, sizeof name, "%s.seal", options.file);
  if (home_ < 0 || size < 0 || static_cast<std::size_t>(size) >= sizeof name) return;
  // Open from before the first look on, so that no other seal can be taken for it.
  seal_ = ::openat(home_, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (seal_ < 0) return;
  const SealFinding finding = CheckSeal(home_, options.file);
  if (finding.state == SealState::Fits) state_ = State::Fits;
  if (finding.state != SealState::Damaged && finding.state != SealState::Changed) return;
  state_ = State::Damaged;
  std::snprintf(damaged_, sizeof damaged_, "%s", finding.szFile);
}

Seal::~Seal() {
  if (seal_ >= 0) ::close(seal_);
  if (home_ >= 0) ::close(home_);
}

bool Seal::IsStillThere() const {
  struct stat status = {};
  return ::fstat(seal_, &status) == 0 && status.st_nlink != 0;
}

}  // namespace devconf
