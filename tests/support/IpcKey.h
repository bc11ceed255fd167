// SPDX-License-Identifier: MIT
// System V keys for one test, and removal of the objects under them.
#pragma once

namespace devsupport::test {

/// A key that no other test or process uses. The destructor removes the segment, the semaphore set and the message
/// queue of the key, if there are any.
class IpcKey {
 public:
  IpcKey();
  ~IpcKey();
  IpcKey(const IpcKey &) = delete;
  IpcKey &operator=(const IpcKey &) = delete;

  int Value() const { return key_; }
  operator int() const { return key_; }  // NOLINT(google-explicit-constructor): it stands for its key

 private:
  int key_;
  int ownerPid_;
};

/// Number of segments, semaphore sets and message queues in the current IPC namespace.
int CountIpcObjects();

}  // namespace devsupport::test
