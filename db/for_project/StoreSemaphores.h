// SPDX-License-Identifier: MIT
// The store's two semaphores. The kernel gives both back when their holder dies, and a child made with fork() does
// not inherit them. A value of 0 means free, so that a new set needs no initialisation.
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "db/for_project/Deadline.h"

namespace devsupport::store {

class StoreSemaphores {
 public:
  enum Which : unsigned short {
    kOpening,  // held by the one process of the device that opens or closes the store, whatever its home
    kQueue,    // held by the one that is next at the gate; where there are no robust mutexes, it is the gate
    kCount
  };

  /// Attaches the set; makes it when it is missing. Reports a foreign set. Returns 0 or an error number.
  int Attach(const struct stat &home);
  void Detach() { nId_ = -1; }

  /// Waits for the opening lock, without a limit. Returns 0 or an error number.
  int TakeOpening(const struct stat &home);
  void ReleaseOpening() const { Release(kOpening); }

  /// Waits until the deadline at most. False when the semaphore cannot be had.
  bool Take(Which which, Deadline &deadline) const;
  void Release(Which which) const;

 private:
  int nId_ = -1;
};

/// The semaphores of the store that this process has open.
extern StoreSemaphores g_semaphores;

}  // namespace devsupport::store
