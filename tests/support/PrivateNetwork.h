// SPDX-License-Identifier: MIT
// Real network interfaces for the tests: private network, mount and IPC namespaces.
#pragma once

#include <initializer_list>
#include <string>

namespace devsupport::test {

/// True when this process may make private networks and the machine has `ip`. Otherwise the test must skip.
bool CanMakePrivateNetworks();

/// Moves this process to a new network, whose only interface is a loopback that is down, and to new mount and IPC
/// namespaces. They disappear with the process, or when it enters others. Throws when it is not allowed.
void EnterPrivateNetwork();

/// Runs commands of `ip` in one batch; throws when one fails.
void Ip(std::initializer_list<std::string> commands);

/// Adds an Ethernet interface that is up and has only these addresses ("10.1.2.3/24", "fe80::1/64"); the kernel adds no
/// link-local one. With an index of 0 the kernel chooses the index.
void AddInterface(const std::string &name, std::initializer_list<std::string> addresses, int index = 0);

/// Mounts an empty file system over a folder.
void HideFolder(const std::string &path);
/// Unmounts those of all hidden folders.
void RevealFolders();

/// Writes a file and creates its parent folders.
void WriteFile(const std::string &path, const std::string &text);

/// Number of descriptors that this process has open.
int CountDescriptors();

}  // namespace devsupport::test
